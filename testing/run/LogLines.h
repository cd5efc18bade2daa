// LogLines: turns a log entry into one line of text for tests to compare.
#pragma once

#include <string>

#include "base/text/StringUtils.h"
#include "log/front/BasicLog.h"

// For example "[ERROR] basiclib FileUtils.cpp makeUniqueFile failed to open file: path=/x"
inline std::string lineOf(const BasicLog::LogMessage& message) {
  return StringUtils::concatenate({BasicLog::shortTextHeader(message), " ", message.logger(), " ", message.file(), " ",
                                   message.function(), " ", BasicLog::textBody(message)});
}
