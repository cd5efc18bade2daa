// ValueBinder: a sink that receives the values of a command's result fields.
//
//   std::vector<std::string> lines;
//   StringVectorValueBinder sink(lines);
//   field.render(sink);                   // "profile_name: lab"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Each operation returns true if the sink accepts the value. This base class accepts nothing.
class ValueBinder {
 public:
  virtual ~ValueBinder() = default;
  virtual bool takeText(std::string_view key, std::string_view text);
  virtual bool takeInteger(std::string_view key, std::int32_t n);
  virtual bool takeBoolean(std::string_view key, bool value);
  virtual bool takeStringList(std::string_view key, std::vector<std::string> list);
};

// Turns every value into text lines and appends them to a list, which the caller owns and keeps alive.
//   text            the line "key: text"
//   integer         the line "key: 10", in decimal
//   boolean         the line "key: true" or "key: false"
//   list of texts   the heading "key:", then each element as one line, unchanged
// A list whose key is empty or begins with "_" has no heading; fields use this to print free text.
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
