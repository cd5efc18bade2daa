// What the log's front end asks of its back end.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "log/front/BasicLog.h"

namespace BasicLog {

// Keeps the loggers. The functions are as those of the same name in BasicLog.h, but getLogger is null when the logger
// cannot be made (after its assertion).
class LoggerKeeper {
 public:
  virtual Logger* getLogger(std::string_view name) = 0;
  virtual Logger* findLogger(std::string_view name) = 0;
  virtual void listLoggers(std::vector<std::string>& names) = 0;
  virtual void setDefaultLevel(Level level) = 0;
  virtual Level getDefaultLevel() = 0;
  virtual void setSyncProcessor(LogMessageProcessor* processor) = 0;

 protected:
  ~LoggerKeeper() = default;
};

// The one of the program, or null on a thread that is just making it or is inside its queue. Deliberately defined in
// the back end, by LogManager.cpp: whoever logs first makes the whole log, and no program has to set it up.
LoggerKeeper* usableKeeper();

}  // namespace BasicLog
