#include "base/files/LinkText.h"

#include <unistd.h>

#include <cerrno>
#include <climits>

std::optional<std::string> linkText(int directoryFd, const char* name) {
  char text[PATH_MAX];
  const ssize_t length = ::readlinkat(directoryFd, name, text, sizeof text);
  if (length == 0 || length == sizeof text) errno = ENAMETOOLONG;
  if (length < 1 || length == sizeof text) return std::nullopt;
  return std::string(text, static_cast<std::size_t>(length));
}
