// LogLines: turns a log entry into one line of text for tests to compare, and records the entries of the program's log.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/text/StringUtils.h"
#include "log/front/BasicLog.h"

// For example "[ERROR] basiclib FileUtils.cpp makeUniqueFile failed to open file: path=/x"
inline std::string lineOf(const BasicLog::LogMessage& message) {
  return StringUtils::concatenate({BasicLog::shortTextHeader(message), " ", message.logger(), " ", message.file(), " ",
                                   message.function(), " ", BasicLog::textBody(message)});
}

// Records every entry of the program's log as a line, from its construction to the end of its scope. The entries are
// not queued.
class LoggedLines {
 public:
  LoggedLines() { BasicLog::setSyncProcessor(new Processor(lines)); }
  ~LoggedLines() { BasicLog::setSyncProcessor(nullptr); }
  LoggedLines(const LoggedLines&) = delete;
  LoggedLines& operator=(const LoggedLines&) = delete;

  std::vector<std::string> lines;

 private:
  class Processor : public BasicLog::LogMessageProcessor {
   public:
    explicit Processor(std::vector<std::string>& lines) : lines_(lines) {}
    void process(std::unique_ptr<const BasicLog::LogMessage>& message) override {
      lines_.push_back(lineOf(*message));
      message.reset();
    }

   private:
    std::vector<std::string>& lines_;
  };
};
