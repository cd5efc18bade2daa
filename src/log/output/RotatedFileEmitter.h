// RotatedFileEmitterActor: writes entries to files that change with the period; see RotatedFile.h.
#pragma once

#include "base/text/TimeUtils.h"
#include "base/threads/Locks.h"
#include "log/output/EmitterActor.h"
#include "log/output/RotatedFile.h"

// Settings: "interval", a duration such as "1 day" (at least a millisecond, else every entry is dropped), "prefix" of
// the files' names, "dir". Once in each period, when its first entry comes, outdated files are removed from the
// directory. An entry that is emitted by itself is written at once, those of a batch at its end.
// Threads: everything may be called from any thread.
class RotatedFileEmitterActor : public EmitterActor, public BasicLog::FileEmitterInterface {
 public:
  using Clock = std::int64_t (*)();  // the wall clock, in microseconds

  explicit RotatedFileEmitterActor(const zuvsvc::CreationRequest& request, Clock clock = TimeUtils::nowMicros)
      : EmitterActor(request), clock_(clock) {}

  using Actor::setConfig;
  zuvsvc::ConfigResult setConfig(std::string_view key, std::string_view text) override;
  bool verifyConfig() override;
  void* getInterface(std::string_view wanted) override;

  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "RotatedFileEmitter"; }
  void beginBatch() override;
  void endBatch() override;

  std::string currentFileName() const override;

 private:
  // False when the entry is the first of its period; then it is not written yet.
  bool appendInSamePeriod(const std::string& header, const std::string& body, std::int64_t now);
  void scrub(std::int64_t now);

  const Clock clock_;
  mutable PortableMutex mutex_;
  RotatedFile file_;
};
