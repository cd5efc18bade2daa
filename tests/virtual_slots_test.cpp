// Virtual functions have fixed slots, and some fields a fixed order: code built apart from ours may rely on both. With
// the C++ ABI of our compilers, a pointer to a virtual function holds the offset of its slot. The destructor has the
// slots 0 and 1 where a class declares it first.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "base/tasks/AsyncTask.h"
#include "base/threads/Locks.h"
#include "command/framework/CommandCore.h"
#include "command/framework/ResultFields.h"
#include "command/parameters/InputParams.h"
#include "command/parameters/ValueBinder.h"
#include "json/JsonScanner.h"
#include "log/output/Emitter.h"
#include "service/host/SystemSpecificImpl.h"

namespace {

template <class Function>
std::size_t slotOf(Function function) {
  std::uintptr_t parts[2] = {};
  static_assert(sizeof function == sizeof parts, "a pointer to a member function is an offset and an adjustment");
  std::memcpy(parts, &function, sizeof parts);
#if defined(__arm__) || defined(__aarch64__)
  EXPECT_EQ(parts[1], 1U) << "not virtual";
  return parts[0] / sizeof(void*);
#else
  EXPECT_EQ(parts[0] % 2, 1U) << "not virtual";
  return parts[0] / sizeof(void*);
#endif
}

template <class... Functions>
std::vector<std::size_t> slotsOf(Functions... functions) {
  return {slotOf(functions)...};
}

// Its functions are public here, so that this test can point to them.
struct Task : AsyncTask {
  using AsyncTask::AsyncTask;
  bool start() override { return true; }
  void beginShutdown() override {}
  void continueShutdown() override {}
};

TEST(VirtualSlots, FollowTheFixedOrderOfEachClass) {
  using BasicLog::Emitter;
  using Param = InputParamBase;
  using Impl = SystemSpecificImpl;
  using R = TokenReceiver;
  const struct {
    const char* why;
    std::size_t first;
    std::vector<std::size_t> slots;
  } cases[] = {
      {"a command: execute comes before the destructor", 0, slotsOf(&RavctlCommandInstance::execute)},
      {"a lock", 2, slotsOf(&Lockable::lock, &Lockable::unlock)},
      {"a task", 2, slotsOf(&Task::start, &Task::beginShutdown, &Task::continueShutdown)},
      {"a parameter", 2,
       slotsOf(&Param::setFromText, &Param::setFromInteger, &Param::setFromBoolean, &Param::setFromOther,
               &Param::appendValueForm, &Param::isSingleWord, &Param::takesValue, &Param::isSatisfied,
               &Param::typeDescription)},
      {"a result", 2, slotsOf(&ResultParamBase::render, &ResultParamBase::typeWord)},
      {"a value sink", 2,
       slotsOf(&ValueBinder::takeText, &ValueBinder::takeInteger, &ValueBinder::takeBoolean,
               &ValueBinder::takeStringList)},
      {"a token receiver", 2,
       slotsOf(&R::onError, &R::onLeftBracket, &R::onLeftCurly, &R::onRightBracket, &R::onRightCurly, &R::onComma,
               &R::onColon, &R::onNumber, &R::onString, &R::onNull, &R::onBool, &R::onName)},
      {"a backend", 2, slotsOf(&Impl::name, &Impl::start, &Impl::stop, &Impl::restart)},
      {"an emitter", 2,
       slotsOf(&Emitter::formatHeader, &Emitter::formatBody, &Emitter::emit, &Emitter::write, &Emitter::name)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::vector<std::size_t> expected(c.slots.size());
    std::iota(expected.begin(), expected.end(), c.first);
    EXPECT_EQ(c.slots, expected);
  }
}

TEST(FieldOrder, ABinderHasItsFieldsInTheOrderRequiredHiddenNameHasValue) {
  class Param : public NamedValueBinder {
   public:
    Param() : NamedValueBinder("key", Need::required, Show::listed) {}
    void give() { accept(); }
  };
  Param param;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&param);
  const std::size_t required = sizeof(void*);  // behind the pointer to the table of virtual functions
  const std::size_t name = static_cast<std::size_t>(reinterpret_cast<const unsigned char*>(&param.name()) - bytes);
  const std::size_t hasValue = name + sizeof(std::string);
  EXPECT_EQ(bytes[required], 1);
  EXPECT_EQ(bytes[required + 1], 0);
  EXPECT_EQ(name, 2 * sizeof(void*));
  EXPECT_EQ(bytes[hasValue], 0);
  param.give();
  EXPECT_EQ(bytes[hasValue], 1);
}

}  // namespace
