#include "log/output/RotatedFileEmitter.h"

#include "log/front/EmitContext.h"

using zuvsvc::ConfigResult;

ConfigResult RotatedFileEmitterActor::setConfig(TextOrNull key, TextOrNull text) {
  const ScopedLock lock(mutex_);
  if (key == "interval") {
    file_.interval = TimeUtils::parseDuration(text);
  } else if (key == "prefix") {
    file_.prefix = text;
  } else if (key == "dir") {
    file_.directory = text;
  } else {
    return ConfigResult::unknownKey;
  }
  return ConfigResult::accepted;
}

bool RotatedFileEmitterActor::verifyConfig() {
  const ScopedLock lock(mutex_);
  return file_.hasValidInterval();
}

void* RotatedFileEmitterActor::getInterface(std::string_view wanted) {
  if (wanted == FileEmitterInterface::interfaceName) return static_cast<FileEmitterInterface*>(this);
  return EmitterActor::getInterface(wanted);
}

bool RotatedFileEmitterActor::appendInSamePeriod(const std::string& header, const std::string& body, std::int64_t now) {
  const ScopedLock lock(mutex_);
  if (file_.enterPeriod(BasicLog::localTicks(now))) return false;
  file_.append(header, body);
  return true;
}

// Scrubbing logs, so scrub() runs without the emitter's lock. Otherwise it could deadlock with a thread that holds a
// lock of the log and waits for this emitter.
void RotatedFileEmitterActor::scrub(std::int64_t now) {
  std::string directory;
  std::string prefix;
  {
    const ScopedLock lock(mutex_);
    directory = file_.directory;
    prefix = file_.prefix;
  }
  scrub_old_files(directory, prefix, now);
}

void RotatedFileEmitterActor::write(BasicLog::Level, const std::string& header, const std::string& body) {
  const std::int64_t now = clock_();
  if (appendInSamePeriod(header, body, now)) return;
  scrub(now);
  const ScopedLock lock(mutex_);
  file_.append(header, body);
}

std::string RotatedFileEmitterActor::currentFileName() const {
  const ScopedLock lock(mutex_);
  return file_.fileName();
}
