#include "log/output/EmitterActor.h"

void* EmitterActor::getInterface(std::string_view wanted) {
  if (wanted == BasicLog::Emitter::interfaceName) return static_cast<BasicLog::Emitter*>(this);
  return Actor::getInterface(wanted);
}
