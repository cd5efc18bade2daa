#include "log/output/RotatedFileEmitter.h"

#include <typeinfo>

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

template <typename Render>
void RotatedFileEmitterActor::append(Render render) {
  line_.clear();
  render(line_);
  BasicLog::sanitise(line_);
  line_ += '\n';
  file_.append(line_);
}

template <typename Render>
bool RotatedFileEmitterActor::appendInSamePeriod(Render render, std::int64_t now) {
  const ScopedLock lock(mutex_);
  if (file_.enterPeriod(BasicLog::localTicks(now))) return false;
  append(render);
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

template <typename Render>
void RotatedFileEmitterActor::writeEntry(Render render) {
  const std::int64_t now = clock_();
  if (appendInSamePeriod(render, now)) return;
  scrub(now);
  const ScopedLock lock(mutex_);
  append(render);
}

void RotatedFileEmitterActor::emit(const BasicLog::LogMessage& message) {
  // The header of an invalid level logs an error, and nothing may log while the emitter is locked.
  if (typeid(*this) != typeid(RotatedFileEmitterActor) || !BasicLog::isValid(message.level)) {
    Emitter::emit(message);
    return;
  }
  writeEntry([&](std::string& line) { BasicLog::appendTextLine(line, message); });
}

void RotatedFileEmitterActor::write(BasicLog::Level, const std::string& header, const std::string& body) {
  writeEntry([&](std::string& line) { line.append(header).append(1, ' ').append(body); });
}

std::string RotatedFileEmitterActor::currentFileName() const {
  const ScopedLock lock(mutex_);
  return file_.fileName();
}
