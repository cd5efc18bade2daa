// Value sinks: where the result fields of a command put what they hold.
//
//   std::vector<std::string> lines;
//   StringVectorValueBinder sink(lines);
//   field.render(sink);                   // "profile_name: lab"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The sink. Each operation tells whether it accepted the value; this base accepts nothing.
class ValueBinder {
 public:
  virtual ~ValueBinder() = default;
  virtual bool takeText(std::string_view key, std::string_view text);
  virtual bool takeInteger(std::string_view key, std::int32_t n);
  virtual bool takeBoolean(std::string_view key, bool value);
  virtual bool takeStringList(std::string_view key, std::vector<std::string> list);
};

// Turns every value into text lines, appended to a list that stays its owner's. A text becomes its key, ": " and
// itself; integers are decimal, booleans "true" or "false". A list becomes a heading, its key and ":", and each element
// a line of its own, unchanged; a key that is empty or begins with "_" has no heading, which is how a field prints free
// text.
class StringVectorValueBinder : public ValueBinder {
 public:
  explicit StringVectorValueBinder(std::vector<std::string>& lines) : lines_(lines) {}
  bool takeText(std::string_view key, std::string_view text) override;
  bool takeInteger(std::string_view key, std::int32_t n) override;
  bool takeBoolean(std::string_view key, bool value) override;
  bool takeStringList(std::string_view key, std::vector<std::string> list) override;

 private:
  std::vector<std::string>& lines_;
};
