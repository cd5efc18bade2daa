// LogLines: log entries as lines to compare.
#pragma once

#include <string>

#include "base/text/StringUtils.h"
#include "log/front/BasicLog.h"

// "[ERROR] basiclib FileUtils.cpp makeUniqueFile failed to open file: path=/x"
inline std::string lineOf(const BasicLog::LogMessage& message) {
  return StringUtils::concatenate({BasicLog::shortTextHeader(message), " ", message.logger(), " ", message.file(), " ",
                                   message.function(), " ", BasicLog::textBody(message)});
}
