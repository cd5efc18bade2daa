// Emitter: writes log entries to one output.
//
//   class Lines : public BasicLog::Emitter {
//     void write(BasicLog::Level, const std::string& header, const std::string& body) override { ... }
//     const char* name() const override { return "Lines"; }
//   };
//   Lines lines;
//   LogManager::instance().addEmitter(&lines);         // we still own it
//   ...
//   LogManager::instance().removeEmitter(&lines);      // before it is destroyed
//
// Threads: the log never calls an emitter from two threads at the same time.
// Re-entry: an emitter may log. It may also add and remove emitters, even itself. See LogOutput.h.
#pragma once

#include <string>
#include <string_view>

#include "log/front/BasicLog.h"

namespace BasicLog {

class Emitter {
 public:
  // An actor that is an emitter returns it for this interface name (see Actor.h).
  static constexpr char interfaceName[] = "log_emitter";

  virtual ~Emitter() = default;
  // Return "[WARNING 2024-03-01 12:00:05.000123]" and "opened: path=/x mode=644", unless a subclass overrides them.
  virtual std::string formatHeader(const LogMessage& message);
  virtual std::string formatBody(const LogMessage& message);
  // Formats the message and writes it.
  virtual void emit(const LogMessage& message);
  // Writes one entry. A failure, even an exception, is never reported to the code that logged the entry.
  virtual void write(Level level, const std::string& header, const std::string& body) = 0;
  virtual const char* name() const = 0;
};

// A second interface, which emitters that write to files have.
class FileEmitterInterface {
 public:
  static constexpr char interfaceName[] = "logfile_emitter";

  virtual ~FileEmitterInterface() = default;
  // Returns the name of the open file without its directory, or an empty text if no file is open.
  virtual std::string currentFileName() const = 0;
};

// Replaces each byte below 32 by a blank, and each byte above 126 by "?".
void sanitise(std::string& line);
// Returns header, blank and body as one sanitised line without a newline at its end.
std::string sanitisedLine(std::string_view header, std::string_view body);

}  // namespace BasicLog
