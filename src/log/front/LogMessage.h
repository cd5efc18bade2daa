// LogMessage: one log entry on its way to the emitters.
//
//   LogMessage message;
//   message.begin("FileUtils.cpp", "makeUniqueFile", "basiclib", "failed to open file");
//   message.add("path", path);
//   for (const LogParameter& parameter : message.parameters()) ...
//
// The message copies every text. A text of 4 GiB or more may be cut. The views that it returns stay valid until the
// message is changed or destroyed.
//
// All texts are stored in one buffer, one after another. make() allocates that buffer together with the object, so a
// usual entry takes one allocation, and the thread that writes it finds all its texts on a few cache lines.
// bench/log_bench shows what this gains (its row `memory`): a std::string for each text and a std::vector of parameters
// take 377 instead of 185 bytes for each queued message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
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
  bool isFromEmitter = false;  // an emitter logged this entry while it was writing another one
  std::int64_t created = 0;    // wall clock, microseconds

  // Returns a message with these four texts. The same allocation has room for 64 more bytes, about three parameters.
  static std::unique_ptr<LogMessage> make(std::string_view file, std::string_view function, std::string_view logger,
                                          std::string_view text);
  static void operator delete(void* memory) { ::operator delete(memory); }  // make() allocates more than the object

  LogMessage() : LogMessage(0, "", "", "", "") {}
  LogMessage(const LogMessage& other) : LogMessage() { *this = other; }
  LogMessage& operator=(const LogMessage& other);

  // Replaces all texts by these four and removes all parameters. None of the four may be a view of a text of this
  // message.
  void begin(std::string_view file, std::string_view function, std::string_view logger, std::string_view text);
  // Appends a key=value pair. The same key may be added more than once. Both may be views of texts of this message.
  void add(std::string_view key, std::string_view value);

  std::string_view file() const { return fixedText(Place::file); }  // name of the source file
  std::string_view function() const { return fixedText(Place::function); }
  std::string_view logger() const { return fixedText(Place::logger); }
  std::string_view text() const { return fixedText(Place::text); }
  // The parameters in the order in which they were added.
  std::vector<LogParameter> parameters() const;

  // Reads the texts in order without copying them: first text(), then the key and the value of every parameter.
  class Reader {
   public:
    explicit Reader(const LogMessage& message);
    bool isAtEnd() const { return at_ == end_; }
    std::string_view next();

   private:
    const char* at_;
    const char* end_;
  };

  // Number of bytes that the texts and their lengths take.
  std::size_t size() const { return size_; }

 private:
  // The texts that every message has, in the order in which they are stored.
  enum class Place { file, function, logger, text };

  // The object has `room` bytes behind it.
  LogMessage(std::size_t room, std::string_view file, std::string_view function, std::string_view logger,
             std::string_view text)
      : room_(room) {
    begin(file, function, logger, text);
  }

  const char* bytes() const { return outside_ ? outside_.get() : reinterpret_cast<const char*>(this + 1); }
  char* bytes() { return const_cast<char*>(std::as_const(*this).bytes()); }
  const char* addressOf(Place place) const;
  std::string_view fixedText(Place place) const;
  void put(std::string_view text);  // call makeRoom first
  // Makes room for `needed` bytes in all. Returns the allocated buffer that this replaced, which the caller frees when
  // it no longer reads from it, or null if no allocated buffer was replaced.
  std::unique_ptr<char[]> makeRoom(std::uint64_t needed) { return needed <= room_ ? nullptr : enlarge(needed); }
  std::unique_ptr<char[]> enlarge(std::uint64_t needed);

  std::size_t size_;
  std::size_t room_;                 // size of the buffer in use
  std::unique_ptr<char[]> outside_;  // the buffer in use if the room behind the object is too small
};

}  // namespace BasicLog
