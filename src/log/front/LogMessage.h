// LogMessage: one log entry on its way to the emitters.
//
//   LogMessage message;
//   message.begin("FileUtils.cpp", "makeUniqueFile", "basiclib", "failed to open file");
//   message.add("path", path);
//   for (const LogParameter& parameter : message.parameters()) ...
//
// An entry is built on one processor and written on another, and what costs then is every piece of memory that has to
// come over: all texts lie in a row, one behind the other, within the object itself as long as they fit.
// Texts are copied, and handed out as views that live until the message is changed or destroyed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "log/front/Level.h"

namespace BasicLog {

struct LogParameter {
  std::string_view key;
  std::string_view value;
};

class LogMessage {
 public:
  Level level = Level::info;
  bool isFromEmitter = false;  // logged by an emitter that was writing another one
  std::int64_t created = 0;    // wall clock, microseconds

  LogMessage() { begin("", "", "", ""); }
  LogMessage(const LogMessage& other) { *this = other; }
  LogMessage& operator=(const LogMessage& other);

  // Puts these four texts in the place of all there are; no parameters are left. None of them may be a view of this
  // very message.
  void begin(std::string_view file, std::string_view function, std::string_view logger, std::string_view text);
  // Appends a key=value pair. Keys may repeat.
  void add(std::string_view key, std::string_view value);

  std::string_view file() const { return head(0); }  // name of the source file
  std::string_view function() const { return head(1); }
  std::string_view logger() const { return head(2); }
  std::string_view text() const { return head(3); }
  // In the order added.
  std::vector<LogParameter> parameters() const;

  // Goes through the texts without a copy: text(), then key and value of every parameter.
  class Reader {
   public:
    explicit Reader(const LogMessage& message);
    bool isAtEnd() const { return at_ == end_; }
    std::string_view next();

   private:
    const char* at_;
    const char* end_;
  };

  // Bytes that the texts take, with their lengths.
  std::size_t size() const { return size_; }

 private:
  static constexpr std::size_t roomInside = 216;  // makes the object 256 bytes

  const char* bytes() const { return outside_ ? outside_.get() : inside_.data(); }
  std::string_view head(int index) const;
  void put(std::string_view text);
  void makeRoom(std::size_t needed);

  std::size_t size_ = 0;
  std::size_t room_ = roomInside;
  std::unique_ptr<char[]> outside_;  // in the place of inside_, once that was too small
  // Each text behind its length.
  std::array<char, roomInside> inside_;
};

}  // namespace BasicLog
