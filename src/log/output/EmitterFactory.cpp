#include "log/output/EmitterFactory.h"

#include "log/output/RotatedFileEmitter.h"
#include "log/output/SyslogEmitter.h"
#include "log/output/TextEmitters.h"

using zuvsvc::Actor;
using zuvsvc::CreationRequest;

namespace {

template <typename T>
std::unique_ptr<Actor> make(const CreationRequest& request) {
  return std::make_unique<T>(request);
}

struct EmitterType {
  const char* name;
  std::unique_ptr<Actor> (*make)(const CreationRequest& request);
};

constexpr EmitterType emitterTypes[] = {
    {"null_emitter", make<NullEmitterActor>},        {"stdout_emitter", make<StdoutEmitterActor>},
    {"stderr_emitter", make<StderrEmitterActor>},    {"syslog_emitter", make<SyslogEmitterActor>},
    {"file_emitter", make<RotatedFileEmitterActor>},
};

}  // namespace

std::unique_ptr<Actor> EmitterFactory::create(const CreationRequest& request) const {
  for (const EmitterType& type : emitterTypes) {
    if (request.typeName == type.name) return type.make(request);
  }
  return nullptr;
}

void EmitterFactory::listTypes(std::vector<std::string>& names) const {
  for (const EmitterType& type : emitterTypes) names.emplace_back(type.name);
}
