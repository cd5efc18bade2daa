// Laws of levels, for any text; the model is testing/models/LogModel.h:
// - The level parser finds the level that the model finds, and says whether the text named one.
// - The gate of the log excerpt, asked about one line after the other, says of each what the parser says of its text,
//   or that it must see the whole text.
// Input: a byte for the threshold, lines.
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
  require(BasicLog::parseLogLevel(text, level) == isNamed, "the parser says whether a level is named");
  require(level == expected, "the level is that of the model");
  require(BasicLog::parseLogLevel(text) == expected, "so it is without the question");
}

void requireHonestGate(LevelGate& gate, Level threshold, std::string_view piece) {
  const std::string text = log_model::textOf(std::string(piece));
  const bool passes = log_model::levelOf(text).first >= threshold;
  require(gate.passes(text) == passes, "the gate asks the parser");
  const LevelGate::Answer answer = gate.ask(piece);
  if (answer == LevelGate::Answer::needsWholeText) return;
  require(!text.empty(), "an answer is about a text that is not empty");
  require((answer == LevelGate::Answer::passes) == passes, "the gate knows the level by the first bytes");
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
