#include "command/framework/LineOutput.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"

namespace {

constexpr std::size_t writeAt = 64 * 1024;
// Most commands print less, so that one allocation is enough.
constexpr std::size_t usualOutput = 1000;

}  // namespace

void LineOutput::put(std::string_view line) {
  if (pending_.empty()) pending_.reserve(usualOutput);
  pending_.append(line.substr(0, line.find('\0')));
  pending_ += '\n';
  if (pending_.size() >= writeAt) flush();
}

void LineOutput::flush() {
  if (error_ == 0 && !writeFully(STDOUT_FILENO, pending_)) error_ = errno;
  pending_.clear();
}

void LineOutput::finish() {
  flush();
  if (error_ != 0 && error_ != EPIPE) {
    // There is no place left to report a failure of this write.
    (void)writeFully(STDERR_FILENO,
                     StringUtils::concatenate({"ravctl: can't write standard output: ", strerror(error_), "\n"}));
  }
}
