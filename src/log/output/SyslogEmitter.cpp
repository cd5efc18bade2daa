#include "log/output/SyslogEmitter.h"

using zuvsvc::ConfigResult;

namespace {

constexpr char subsystemKey[] = "subsystem";
constexpr char categoryKey[] = "category";

void logMissing(std::string_view actor, std::string_view field) {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::basiclibLogger);
  if (!log.isEnabled(BasicLog::Level::error)) return;
  // Deliberately not the name of this source file: people search logs for "BasicLog.cpp".
  BasicLog::Entry entry(log, BasicLog::Level::error, "required config field not present", "BasicLog.cpp",
                        "verifyConfig");
  entry.add("actor", actor);
  entry.add("field", field);
}

}  // namespace

ConfigResult SyslogEmitterActor::setConfig(TextOrNull key, TextOrNull text) {
  if (key != subsystemKey && key != categoryKey) return ConfigResult::unknownKey;
  (key == subsystemKey ? subsystem_ : category_) = text;
  return ConfigResult::accepted;
}

bool SyslogEmitterActor::verifyConfig() {
  if (!subsystem_.empty() && !category_.empty()) return true;
  logMissing(actorName(), subsystem_.empty() ? subsystemKey : categoryKey);
  return false;
}

void SyslogEmitterActor::write(BasicLog::Level, const std::string&, const std::string&) {}
