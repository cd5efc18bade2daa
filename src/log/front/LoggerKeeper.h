// LoggerKeeper: the functions of the log's back end that its front end calls.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "log/front/BasicLog.h"

namespace BasicLog {

// Owns the loggers. The functions do what those of the same name in BasicLog.h do, except that getLogger returns null
// after the failed assertion if the logger cannot be created.
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

// Returns the keeper of the program, or null. Without a keeper, the functions of BasicLog.h find no loggers and drop
// what is logged. The result is null in these cases:
// - The calling thread is just creating the keeper.
// - The calling thread is inside the keeper's queue.
// - The program defines this function to return null, as ravctl does (src/command/entry/main.cpp).
// Other programs get the definition in LogManager.cpp, in the back end. There the first call that logs creates the
// whole log, so no program has to set it up.
LoggerKeeper* usableKeeper();

}  // namespace BasicLog
