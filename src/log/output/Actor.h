// Actor: a part of a service. A factory creates actors by the name of their type. Text settings configure an actor, and
// then the service checks, starts and stops it.
//
//   EmitterFactory factory;
//   std::unique_ptr<zuvsvc::Actor> actor = factory.create({"file_emitter", "main log"});
//   if (!actor || actor->setConfig("interval", "1 hour") != zuvsvc::ConfigResult::accepted) return ...;
//   if (!actor->verifyConfig() || !actor->startup()) return ...;
//   auto* emitter = actor->interfaceOf<BasicLog::Emitter>();        // null if it is not an emitter
//   ...
//   actor->shutdown();
//   while (!actor->isStopped()) ...
//
// Threads: any thread may start and stop an actor and ask for its state. An actor must be configured before it is used.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/tasks/AsyncTask.h"
#include "base/text/TextOrNull.h"

namespace zuvsvc {

// The result of a setting. The numbers are fixed.
enum class ConfigResult { accepted = 1, unknownKey = 3 };

class ActorInterface {
 public:
  virtual ~ActorInterface() = default;
  virtual bool startup() = 0;
  virtual void shutdown() = 0;
  // Changes the state from stopping to stopped. In any other state it does nothing.
  virtual void stateStep() = 0;
  // Stores a setting. A null pointer is the empty text. If it returns unknownKey, nothing has changed.
  virtual ConfigResult setConfig(TextOrNull key, TextOrNull text) = 0;
  virtual ConfigResult setConfig(TextOrNull key, std::int64_t value) = 0;
  // Returns true if the settings are complete.
  virtual bool verifyConfig() = 0;
  // Returns the named interface of this actor, or null. The interface lives as long as the actor. interfaceOf returns
  // it with its type.
  virtual void* getInterface(std::string_view wanted) = 0;
  virtual const char* name() const = 0;

  // T::interfaceName names the interface.
  template <typename T>
  T* interfaceOf() {
    return static_cast<T*>(getInterface(T::interfaceName));
  }
};

// An actor without settings and interfaces. Its settings are always complete. It starts at once. shutdown() makes a
// running actor stopping, and the next isStopped or stateStep makes it stopped.
class Actor : public ActorInterface, public AsyncTask {
 public:
  explicit Actor(std::string_view actorName) : AsyncTask(actorName) {}

  // The name of this actor, which its log entries contain.
  const std::string& actorName() const { return taskName(); }

  bool startup() override { return asyncStartup(); }
  void shutdown() override { asyncShutdown(); }
  void stateStep() override { (void)isStopped(); }  // isStopped changes the state
  ConfigResult setConfig(TextOrNull key, TextOrNull text) override;
  ConfigResult setConfig(TextOrNull key, std::int64_t value) override;
  bool verifyConfig() override { return true; }
  void* getInterface(std::string_view wanted) override;
  // Returns the actor's own name. A subclass may return the name of its kind instead.
  const char* name() const override { return actorName().c_str(); }

 private:
  bool start() override { return true; }
  void beginShutdown() override {}
  void continueShutdown() override { finishShutdown(); }
};

// Describes the actor that a factory is to create.
struct CreationRequest {
  std::string typeName;
  std::string actorName;
};

class ActorFactory {
 public:
  virtual ~ActorFactory() = default;
  // Creates an actor of the requested type, which the caller owns. Returns null if the type is unknown. The case of
  // type names matters.
  virtual std::unique_ptr<Actor> create(const CreationRequest& request) const = 0;
  // Appends the names of all types to `names`.
  virtual void listTypes(std::vector<std::string>& names) const = 0;
};

}  // namespace zuvsvc
