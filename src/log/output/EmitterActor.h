// EmitterActor: an actor that is an emitter; the base class of all actors that EmitterFactory creates.
#pragma once

#include "log/output/Actor.h"
#include "log/output/Emitter.h"

// getInterface("log_emitter") returns this emitter. It emits entries in every lifecycle state, also when it is stopped:
// the code that added it to the log must remove it.
class EmitterActor : public zuvsvc::Actor, public BasicLog::Emitter {
 public:
  explicit EmitterActor(const zuvsvc::CreationRequest& request) : Actor(request.actorName) {}

  void* getInterface(std::string_view wanted) override;
  const char* name() const override = 0;
};
