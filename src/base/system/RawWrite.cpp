#include "base/system/RawWrite.h"

#include <unistd.h>

#include <cerrno>

bool writeFully(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written == -1) {
      if (errno == EINTR) continue;
      return false;
    }
    if (written == 0) {  // no known device does this, but a retry could loop forever
      errno = EIO;
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}
