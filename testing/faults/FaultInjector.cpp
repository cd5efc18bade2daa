#include "testing/faults/FaultInjector.h"

#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

FaultPlan armedPlan;
std::atomic<bool> isArmed{false};
pid_t armingProcess = 0;
std::atomic<std::size_t> seen{0};
std::array<std::atomic<const char*>, 4096> seenNames;

thread_local bool isInBefore = false;

bool isWatched() { return isArmed.load(std::memory_order_acquire) && ::getpid() == armingProcess && !isInBefore; }

// Counts the call. Returns true and sets errno if the call must fail.
bool fails(const char* name) {
  if (!isWatched() || (!armedPlan.calls.empty() && armedPlan.calls.count(name) == 0)) return false;
  const std::size_t number = ++seen;
  if (number <= seenNames.size()) seenNames[number - 1] = name;
  if (armedPlan.before) {
    isInBefore = true;
    armedPlan.before(number);
    isInBefore = false;
  }
  const bool isChosen =
      armedPlan.at != 0 && (number == armedPlan.at || (armedPlan.fromThereOn && number > armedPlan.at));
  if (isChosen) errno = armedPlan.error;
  return isChosen;
}

std::size_t transferred(std::size_t size) { return size > 1 && isWatched() && armedPlan.oneByteAtATime ? 1 : size; }

}  // namespace

// The wrapped calls. The linker turns a call of NAME into a call of __wrap_NAME, and __real_NAME is the real function.
// A name that is wrapped here but not in CMakeLists.txt does not link. The wrappers only pass on pointers to
// structures, so these are void*.
#define WRAP_AS(shown, result, failure, name, parameters, arguments) \
  extern "C" result __real_##name parameters;                        \
  extern "C" result __wrap_##name parameters;                        \
  extern "C" result __wrap_##name parameters { return fails(shown) ? (failure) : __real_##name arguments; }
#define WRAP(result, failure, name, parameters, arguments) WRAP_AS(#name, result, failure, name, parameters, arguments)
// Calls with file offsets or sizes have a second name, which code with 64-bit offsets uses.
#define WRAP_BOTH(result, failure, name, parameters, arguments) \
  WRAP(result, failure, name, parameters, arguments)            \
  WRAP_AS(#name, result, failure, name##64, parameters, arguments)

// Callers pass a mode only together with flags that may create a file.
#define WRAP_OPEN(shown, name, parameters, arguments)                 \
  extern "C" int __real_##name parameters;                            \
  extern "C" int __wrap_##name parameters;                            \
  extern "C" int __wrap_##name parameters {                           \
    mode_t mode = 0;                                                  \
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) { \
      va_list more;                                                   \
      va_start(more, flags);                                          \
      mode = va_arg(more, mode_t);                                    \
      va_end(more);                                                   \
    }                                                                 \
    return fails(shown) ? -1 : __real_##name arguments;               \
  }
WRAP_OPEN("open", open, (const char* path, int flags, ...), (path, flags, mode))
WRAP_OPEN("open", open64, (const char* path, int flags, ...), (path, flags, mode))
WRAP_OPEN("openat", openat, (int at, const char* path, int flags, ...), (at, path, flags, mode))
WRAP_OPEN("openat", openat64, (int at, const char* path, int flags, ...), (at, path, flags, mode))

WRAP(ssize_t, -1, read, (int fd, void* to, std::size_t size), (fd, to, transferred(size)))
WRAP(ssize_t, armedPlan.error == 0 ? 0 : -1, write, (int fd, const void* from, std::size_t size),
     (fd, from, transferred(size)))
WRAP_BOTH(ssize_t, -1, pread, (int fd, void* to, std::size_t size, off_t at), (fd, to, transferred(size), at))
WRAP_BOTH(ssize_t, armedPlan.error == 0 ? 0 : -1, pwrite, (int fd, const void* from, std::size_t size, off_t at),
          (fd, from, transferred(size), at))
WRAP_BOTH(off_t, -1, lseek, (int fd, off_t offset, int whence), (fd, offset, whence))
WRAP_BOTH(int, -1, ftruncate, (int fd, off_t size), (fd, size))
WRAP_BOTH(int, -1, truncate, (const char* path, off_t size), (path, size))
WRAP_BOTH(int, -1, fallocate, (int fd, int mode, off_t offset, off_t size), (fd, mode, offset, size))
WRAP_BOTH(int, errno, posix_fallocate, (int fd, off_t offset, off_t size), (fd, offset, size))  // returns its error
WRAP(int, -1, fsync, (int fd), (fd))
WRAP(int, -1, fdatasync, (int fd), (fd))
WRAP(int, -1, flock, (int fd, int what), (fd, what))

WRAP_BOTH(int, -1, stat, (const char* path, void* info), (path, info))
WRAP_BOTH(int, -1, lstat, (const char* path, void* info), (path, info))
WRAP_BOTH(int, -1, fstat, (int fd, void* info), (fd, info))
WRAP_BOTH(int, -1, fstatat, (int at, const char* path, void* info, int flags), (at, path, info, flags))
WRAP_BOTH(int, -1, fstatfs, (int fd, void* system), (fd, system))
WRAP(int, -1, access, (const char* path, int how), (path, how))
WRAP(int, -1, chmod, (const char* path, mode_t mode), (path, mode))
WRAP(int, -1, fchmod, (int fd, mode_t mode), (fd, mode))
WRAP(int, -1, fchmodat, (int at, const char* path, mode_t mode, int flags), (at, path, mode, flags))
WRAP(int, -1, chown, (const char* path, uid_t uid, gid_t gid), (path, uid, gid))
WRAP(int, -1, fchown, (int fd, uid_t uid, gid_t gid), (fd, uid, gid))
WRAP(ssize_t, -1, flistxattr, (int fd, char* to, std::size_t size), (fd, to, size))
WRAP(ssize_t, -1, fgetxattr, (int fd, const char* name, void* to, std::size_t size), (fd, name, to, size))
WRAP(int, -1, fsetxattr, (int fd, const char* name, const void* from, std::size_t size, int flags),
     (fd, name, from, size, flags))
WRAP(int, -1, fremovexattr, (int fd, const char* name), (fd, name))

WRAP(int, -1, mkdir, (const char* path, mode_t mode), (path, mode))
WRAP(int, -1, mkdirat, (int at, const char* path, mode_t mode), (at, path, mode))
WRAP(int, -1, rename, (const char* from, const char* to), (from, to))
WRAP(int, -1, renameat, (int fromAt, const char* from, int toAt, const char* to), (fromAt, from, toAt, to))
WRAP(int, -1, renameat2, (int fromAt, const char* from, int toAt, const char* to, unsigned flags),
     (fromAt, from, toAt, to, flags))
WRAP(int, -1, unlink, (const char* path), (path))
WRAP(int, -1, unlinkat, (int at, const char* path, int flags), (at, path, flags))
WRAP(int, -1, rmdir, (const char* path), (path))
WRAP(int, -1, link, (const char* from, const char* to), (from, to))
WRAP(int, -1, symlink, (const char* target, const char* path), (target, path))
WRAP(ssize_t, -1, readlink, (const char* path, char* to, std::size_t size), (path, to, size))
WRAP(ssize_t, armedPlan.error == 0 ? armedPlan.linkLength : -1, readlinkat,
     (int at, const char* path, char* to, std::size_t size), (at, path, to, size))

WRAP(DIR*, nullptr, opendir, (const char* path), (path))
WRAP(DIR*, nullptr, fdopendir, (int fd), (fd))
WRAP_BOTH(void*, nullptr, readdir, (DIR * folder), (folder))
WRAP(int, -1, chdir, (const char* path), (path))
WRAP(int, -1, fchdir, (int fd), (fd))
WRAP(char*, nullptr, getcwd, (char* to, std::size_t size), (to, size))

WRAP(int, -1, dup, (int fd), (fd))
WRAP(int, -1, pipe2, (int* ends, int flags), (ends, flags))
WRAP(void*, nullptr, fdopen, (int fd, const char* mode), (fd, mode))
WRAP_BOTH(void*, nullptr, fopen, (const char* path, const char* mode), (path, mode))

WRAP(pid_t, -1, fork, (), ())
WRAP(pid_t, -1, waitpid, (pid_t pid, int* status, int options), (pid, status, options))
WRAP(int, -1, system, (const char* command), (command))
WRAP(int, armedPlan.error == 0 ? 0 : -1, getifaddrs, (ifaddrs * *list), (list))
WRAP(int, -1, gettimeofday, (void* time, void* zone), (time, zone))

// The functions that fortified code calls instead.
WRAP_AS("open", int, -1, __open_2, (const char* path, int flags), (path, flags))
WRAP_AS("open", int, -1, __open64_2, (const char* path, int flags), (path, flags))
WRAP_AS("openat", int, -1, __openat_2, (int at, const char* path, int flags), (at, path, flags))
WRAP_AS("openat", int, -1, __openat64_2, (int at, const char* path, int flags), (at, path, flags))
WRAP_AS("openat", int, -1, openAt2, (int at, const char* path, int flags, mode_t mode, std::uint64_t resolve),
        (at, path, flags, mode, resolve))
WRAP_AS("read", ssize_t, -1, __read_chk, (int fd, void* to, std::size_t size, std::size_t room),
        (fd, to, transferred(size), room))
WRAP_AS("pread", ssize_t, -1, __pread64_chk, (int fd, void* to, std::size_t size, off_t at, std::size_t room),
        (fd, to, transferred(size), at, room))
WRAP_AS("readlink", ssize_t, -1, __readlink_chk, (const char* path, char* to, std::size_t size, std::size_t room),
        (path, to, size, room))
WRAP_AS("readlinkat", ssize_t, armedPlan.error == 0 ? armedPlan.linkLength : -1, __readlinkat_chk,
        (int at, const char* path, char* to, std::size_t size, std::size_t room), (at, path, to, size, room))
WRAP_AS("getcwd", char*, nullptr, __getcwd_chk, (char* to, std::size_t size, std::size_t room), (to, size, room))

#if __SIZEOF_POINTER__ == 4
// The names on 32-bit machines with 64-bit times.
WRAP_AS("stat", int, -1, __stat64_time64, (const char* path, void* info), (path, info))
WRAP_AS("lstat", int, -1, __lstat64_time64, (const char* path, void* info), (path, info))
WRAP_AS("fstat", int, -1, __fstat64_time64, (int fd, void* info), (fd, info))
WRAP_AS("fstatat", int, -1, __fstatat64_time64, (int at, const char* path, void* info, int flags),
        (at, path, info, flags))
WRAP_AS("gettimeofday", int, -1, __gettimeofday64, (void* time, void* zone), (time, zone))
#endif

// These calls release the descriptor even when they fail.
#define WRAP_CLOSE(name, parameters, arguments)        \
  extern "C" int __real_##name parameters;             \
  extern "C" int __wrap_##name parameters;             \
  extern "C" int __wrap_##name parameters {            \
    if (!fails(#name)) return __real_##name arguments; \
    (void)__real_##name arguments;                     \
    errno = armedPlan.error;                           \
    return -1;                                         \
  }
WRAP_CLOSE(close, (int fd), (fd))
WRAP_CLOSE(closedir, (DIR * folder), (folder))

ArmedFaults::ArmedFaults(FaultPlan plan) {
  if (isArmed) std::abort();  // two plans at the same time
  armedPlan = std::move(plan);
  armingProcess = ::getpid();
  seen = 0;
  isArmed.store(true, std::memory_order_release);
}

ArmedFaults::~ArmedFaults() { isArmed = false; }

std::size_t ArmedFaults::count() const { return seen; }

std::vector<std::string> ArmedFaults::calls() const {
  std::vector<std::string> names(count());
  for (std::size_t i = 0; i < names.size(); ++i) names[i] = i < seenNames.size() ? seenNames[i].load() : "...";
  return names;
}

std::vector<std::string> openDescriptors() {
  std::vector<std::string> open;
  std::error_code gone;  // the descriptor of this listing has gone; it is no leak
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), gone);
    if (!gone && target.string().find("/proc/") != 0)
      open.push_back(entry.path().filename().string() + " -> " + target.string());
  }
  return open;
}

// Returns the open descriptors that a program would inherit. Does not change errno.
static std::vector<int> inheritedDescriptors() {
  const int error = errno;
  std::vector<int> inherited;
  for (int fd = 0; fd < 256; ++fd) {
    if (::fcntl(fd, F_GETFD) == 0) inherited.push_back(fd);
  }
  errno = error;
  return inherited;
}

std::vector<std::string> fault_loop::run(const FaultLoop& loop, const FaultPlan& plan,
                                         const std::function<void()>& operation) {
  if (loop.prepare) loop.prepare();
  const std::vector<std::string> before = openDescriptors();
  std::vector<std::string> calls;
  {
    FaultPlan watching = plan;
    if (plan.at == 0 && !plan.before) {
      watching.before = [inherited = inheritedDescriptors()](std::size_t call) {
        EXPECT_EQ(inheritedDescriptors(), inherited) << "a descriptor is not close-on-exec before call " << call;
      };
    }
    const ArmedFaults armed(watching);
    operation();
    calls = armed.calls();
  }
  const Fault fault{plan.at, plan.fromThereOn, plan.at != 0 && plan.at <= calls.size() ? calls[plan.at - 1] : ""};
  EXPECT_EQ(openDescriptors(), before) << "a descriptor was leaked: " << describe(fault, loop, calls);
  while (::waitpid(-1, nullptr, WNOHANG) > 0) {
  }
  return calls;
}

std::string fault_loop::describe(const Fault& fault, const FaultLoop& loop, const std::vector<std::string>& calls) {
  std::string text = "no call failed";
  if (fault) {
    text = "call " + std::to_string(fault.step) + ", " + (fault.call.empty() ? "never made" : fault.call) +
           ", failed with " + ::strerrorname_np(loop.error) + (fault.fromThereOn ? ", and every call after it" : "");
  }
  text += "; calls:";
  for (const std::string& call : calls) text += " " + call;
  return text;
}
