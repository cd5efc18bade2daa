// Laws of times and durations. The model is testing/models/TimeModel.h.
// - Any text parses to the same duration and the same ISO time as in the model.
// - Any time has the same fields, texts, stamps and duration text as in the model.
// - The fields of a time compose to the same time, and its text parses to the same time.
// Input: a time in eight bytes, the lowest first; a byte that reduces its magnitude; a text.
#include <cstdint>

#include "base/text/TimeUtils.h"
#include "fuzz/FuzzTarget.h"
#include "testing/models/TimeModel.h"

namespace {

using fuzz::require;

constexpr std::int64_t micros = 1000000;

std::int64_t timeOf(fuzz::Input& input) {
  std::uint64_t number = 0;
  for (int byte = 0; byte < 8; ++byte) number |= static_cast<std::uint64_t>(input.byte()) << (8 * byte);
  const unsigned shrink = input.byte();
  auto time = static_cast<std::int64_t>(number);
  time /= std::int64_t{1} << (shrink % 48);
  // Whole units are likely inputs, because the text of a duration depends on them.
  const std::int64_t units[] = {1, 1000, micros, 60 * micros, 3600 * micros};
  return time - time % units[shrink / 48 % 5];
}

void requireFields(std::int64_t time) {
  const TimeUtils::BrokenDownTime found = TimeUtils::breakDown(time);
  const time_model::Fields expected = time_model::fieldsOf(time);
  require(found.year == expected.year && found.month == expected.month && found.day == expected.day, "the date");
  require(found.hour == expected.hour && found.minute == expected.minute && found.second == expected.second,
          "the time");
  require(found.millisecond == expected.microsecond / 1000 && found.microsecond == expected.microsecond % 1000,
          "the fraction of the second");
  require(found.micros == time, "the fields hold their time");
  require(TimeUtils::compose(found) == time, "a time is composed from its fields");
}

void requireTexts(std::int64_t time) {
  require(TimeUtils::formatTime(time, true, ' ') == time_model::formatTime(time, true, ' '), "with microseconds");
  const std::string iso = TimeUtils::formatTime(time, false, 'T');
  require(iso == time_model::formatTime(time, false, 'T'), "without microseconds");
  if (iso.size() == 19) {  // a year of four characters
    require(TimeUtils::parseIsoTime(iso) == time - time_model::fieldsOf(time).microsecond,
            "a time is read from its text");
  }
  require(TimeUtils::formatDuration(time) == time_model::formatDuration(time), "as a duration");
  if (time == 0) return;  // a stamp of time 0 is that of the present time
  require(TimeUtils::dayStamp("a", "b", time) == "a" + time_model::stamp(time, 0) + "b", "day stamp");
  require(TimeUtils::hourStamp("a", "b", time) == "a" + time_model::stamp(time, 1) + "b", "hour stamp");
  require(TimeUtils::minuteStamp("a", "b", time) == "a" + time_model::stamp(time, 2) + "b", "minute stamp");
  require(TimeUtils::secondStamp("a", "b", time) == "a" + time_model::stamp(time, 3) + "b", "second stamp");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::int64_t time = timeOf(input);
  requireFields(time);
  requireTexts(time);
  const std::string text(input.rest());
  require(TimeUtils::parseDuration(text) == time_model::parseDuration(text), "a text as a duration");
  require(TimeUtils::parseIsoTime(text) == time_model::parseIsoTime(text), "a text as an ISO time");
  return 0;
}
