// EmitterActor: an actor whose work is to be an emitter; the base of all that the factory makes.
#pragma once

#include "log/output/Actor.h"
#include "log/output/Emitter.h"

// Gives itself out as "log_emitter". It goes on emitting whatever its lifecycle state: who put it into the log takes it
// out again.
class EmitterActor : public zuvsvc::Actor, public BasicLog::Emitter {
 public:
  explicit EmitterActor(const zuvsvc::CreationRequest& request) : Actor(request.actorName) {}

  void* getInterface(std::string_view wanted) override;
  const char* name() const override = 0;
};
