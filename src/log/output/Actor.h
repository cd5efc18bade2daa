// Actors: parts of a service that are made by the name of their type, set up by text, checked, started and stopped.
//
//   EmitterFactory factory;
//   std::unique_ptr<zuvsvc::Actor> actor = factory.create({"file_emitter", "main log"});
//   if (!actor || actor->setConfig("interval", "1 hour") != zuvsvc::ConfigResult::accepted) return ...;
//   if (!actor->verifyConfig() || !actor->startup()) return ...;
//   auto* emitter = actor->interfaceOf<BasicLog::Emitter>();        // null when it is none
//   ...
//   actor->shutdown();
//   while (!actor->isStopped()) ...
//
// Threads: the lifecycle may be used from any thread; an actor is configured before it is put to work.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/tasks/AsyncTask.h"

namespace zuvsvc {

// What became of a setting. The numbers are fixed.
enum class ConfigResult { accepted = 1, unknownKey = 3 };

class ActorInterface {
 public:
  virtual ~ActorInterface() = default;
  virtual bool startup() = 0;
  virtual void shutdown() = 0;
  // Moves an actor that is stopping to stopped; any other is left alone.
  virtual void stateStep() = 0;
  // Takes a setting. With unknownKey nothing has changed.
  virtual ConfigResult setConfig(std::string_view key, std::string_view text) = 0;
  virtual ConfigResult setConfig(std::string_view key, std::int64_t value) = 0;
  // Whether the settings are complete; what is missing is logged.
  virtual bool verifyConfig() = 0;
  // The named interface of this actor, or null. It lives as long as the actor; interfaceOf gives it with its type.
  virtual void* getInterface(std::string_view wanted) = 0;
  virtual const char* name() const = 0;

  // T::interfaceName names the interface.
  template <typename T>
  T* interfaceOf() {
    return static_cast<T*>(getInterface(T::interfaceName));
  }
};

// An actor without settings and interfaces, complete as it stands, that starts and stops at once.
class Actor : public ActorInterface, public AsyncTask {
 public:
  explicit Actor(std::string_view actorName) : AsyncTask(actorName) {}

  // The name of this one actor, as its messages tell it.
  const std::string& actorName() const { return taskName(); }

  bool startup() override { return asyncStartup(); }
  void shutdown() override { asyncShutdown(); }
  void stateStep() override { (void)isStopped(); }  // asking moves it
  ConfigResult setConfig(std::string_view key, std::string_view text) override;
  ConfigResult setConfig(std::string_view key, std::int64_t value) override;
  bool verifyConfig() override { return true; }
  void* getInterface(std::string_view wanted) override;
  // The actor's own name, unless its kind has one.
  const char* name() const override { return actorName().c_str(); }

 private:
  bool start() override { return true; }
  void beginShutdown() override {}
  void continueShutdown() override { finishShutdown(); }
};

// What an actor is made from.
struct CreationRequest {
  std::string typeName;
  std::string actorName;
};

class ActorFactory {
 public:
  virtual ~ActorFactory() = default;
  // A new actor of the requested type, the caller's; null when the type is unknown. Type names compare exactly.
  virtual std::unique_ptr<Actor> create(const CreationRequest& request) const = 0;
  // Appends the names of all types.
  virtual void listTypes(std::vector<std::string>& names) const = 0;
};

}  // namespace zuvsvc
