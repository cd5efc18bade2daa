#include "base/system/OpenAt2.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

int openAt2(int directoryFd, const char* path, int flags, mode_t mode, std::uint64_t resolve) {
  open_how how = {};
  // Unlike openat, it refuses flags that have no effect, and no libc adds O_LARGEFILE on a 32-bit machine.
  constexpr int flagsOfPaths = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  how.flags = static_cast<std::uint64_t>((flags & O_PATH) != 0 ? flags & flagsOfPaths : flags | O_LARGEFILE);
  how.mode = (flags & O_CREAT) != 0 ? mode : 0;  // the system call refuses a mode without O_CREAT
  how.resolve = resolve;
  return static_cast<int>(::syscall(SYS_openat2, directoryFd, path, &how, sizeof how));
}
