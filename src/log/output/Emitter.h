// Emitter: what writes log entries somewhere.
//
//   class Lines : public BasicLog::Emitter {
//     void write(BasicLog::Level, const std::string& header, const std::string& body) override { ... }
//     const char* name() const override { return "Lines"; }
//   };
//   Lines lines;
//   LogManager::instance().addEmitter(&lines);         // stays ours
//   ...
//   LogManager::instance().removeEmitter(&lines);      // before it is destroyed
//
// Threads: the log calls an emitter from one thread at a time. Re-entry: an emitter may log, and may add and remove
// emitters, itself too; see LogOutput.h.
#pragma once

#include <string>
#include <string_view>

#include "log/front/BasicLog.h"

namespace BasicLog {

class Emitter {
 public:
  // The name under which an actor that is an emitter gives it out (see Actor.h).
  static constexpr char interfaceName[] = "log_emitter";

  virtual ~Emitter() = default;
  // "[WARNING 2024-03-01 12:00:05.000123]" and "opened: path=/x mode=644", unless a subclass has others.
  virtual std::string formatHeader(const LogMessage& message);
  virtual std::string formatBody(const LogMessage& message);
  // Formats the message and writes it.
  virtual void emit(const LogMessage& message);
  // Writes one entry. A failure is never reported to the code that logged.
  virtual void write(Level level, const std::string& header, const std::string& body) = 0;
  virtual const char* name() const = 0;

  // Around a batch, 20 entries at most. What was written in between need not be on its way before the end.
  virtual void beginBatch() {}
  virtual void endBatch() {}
};

// What emitters that write to files have besides.
class FileEmitterInterface {
 public:
  static constexpr char interfaceName[] = "logfile_emitter";

  virtual ~FileEmitterInterface() = default;
  // The name, without its directory, of the file that is being written; empty when none is.
  virtual std::string currentFileName() const = 0;
};

// Header, blank and body as one line without its end: bytes below 32 become blanks, bytes from 127 on "?".
std::string sanitisedLine(std::string_view header, std::string_view body);
// The same, appended to `text`.
void appendSanitisedLine(std::string& text, std::string_view header, std::string_view body);

}  // namespace BasicLog
