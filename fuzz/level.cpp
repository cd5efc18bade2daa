// Laws of log levels, for any text. The model is testing/models/LogModel.h.
// - The level parser finds the same level as the model, and reports if the text names one.
// - For each line, the gate of the log excerpt decides as the parser does, or asks for the whole text.
// Input: a byte for the threshold, then lines.
#include <cstdint>

#include "fuzz/FuzzTarget.h"
#include "service/host/LevelGate.h"
#include "testing/models/LogModel.h"

namespace {

using BasicLog::Level;
using fuzz::require;

void requireAsModel(const std::string& text) {
  const auto [expected, isNamed] = log_model::levelOf(text);
  Level level = Level::trace;
  require(BasicLog::parseLogLevel(text, level) == isNamed, "the parser reports if a level is named");
  require(level == expected, "the level is that of the model");
  require(BasicLog::parseLogLevel(text) == expected,
          "the level is the same if the caller does not ask if one is named");
}

void requireHonestGate(LevelGate& gate, Level threshold, std::string_view piece) {
  const std::string text = log_model::textOf(std::string(piece));
  const bool passes = log_model::levelOf(text).first >= threshold;
  require(gate.passes(text) == passes, "for the whole text the gate decides as the parser");
  const LevelGate::Answer answer = gate.ask(piece);
  if (answer == LevelGate::Answer::needsWholeText) return;
  require(!text.empty(), "the gate decides only about a text that is not empty");
  require((answer == LevelGate::Answer::passes) == passes, "from the first bytes the gate decides as the parser");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto threshold = static_cast<Level>(static_cast<unsigned>(Level::trace) + input.byte() % 7);
  LevelGate gate(threshold);
  requireAsModel(std::string(input.rest()));
  for (std::string_view rest = input.rest(); !rest.empty();) {
    const std::string_view line = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
    requireAsModel(std::string(line));
    requireHonestGate(gate, threshold, line);
    rest.remove_prefix(line.size());
  }
  return 0;
}
