// Laws of the log excerpt, for any log, threshold and number of lines:
// - It is the excerpt of testing/models/LogModel.h, which reads the log from its start. Short reads do not change it.
// - If a call fails, it is the same excerpt, or an error status and no lines.
// Input: faults (fuzz::faults), threshold, number of lines, a repeat count (fuzz::repeatedRest), a log.
#include <cstdint>

#include "fuzz/FuzzTarget.h"
#include "service/host/LogExcerpt.h"
#include "testing/models/LogModel.h"

namespace {

using BasicLog::Level;
using fuzz::require;

constexpr std::size_t largestLog = 600000;  // more than two windows of the reader
constexpr std::size_t largestSlowLog = 5000;

// Returns a small number, a number larger than the log, or a number that the excerpt clamps.
std::int32_t lineCount(unsigned byte) {
  if (byte == 255) return -1;
  if (byte == 254) return 100001;
  return static_cast<std::int32_t>(byte < 128 ? byte % 64 : byte * byte);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Folder folder;
  const std::string path = folder.path() + "hip.log";
  fuzz::Input input(data, size);
  const FaultPlan plan = fuzz::faults(input);
  const auto threshold = static_cast<Level>(static_cast<unsigned>(Level::trace) + input.byte() % 7);
  const std::int32_t maxLines = lineCount(input.byte());
  const std::string log = fuzz::repeatedRest(input, plan.oneByteAtATime ? largestSlowLog : largestLog);
  fuzz::writeFile(path, log);

  const fuzz::NothingStaysOpen nothing;
  Status status;
  std::vector<std::string> lines;
  const bool isUndisturbed = fuzz::runUnder(plan, [&] { status = readLogExcerpt(path, threshold, maxLines, lines); });
  require(!isUndisturbed || status.isSuccess(), "a log without a fault can be read");
  if (status.isSuccess()) {
    require(lines == log_model::lastOf(log_model::matchingLines(log, threshold), maxLines),
            "the excerpt is that of the model");
  } else {
    require(status.code() == status::openError || status.code() == status::readError,
            "a failure is an error of the file");
    require(lines.empty(), "a failure shows no line");
  }
  return 0;
}
