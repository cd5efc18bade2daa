#include "base/system/SignalManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Signals : public SignalManager {
 public:
  std::vector<int> handled;
  std::function<void(int)> whenHandled = [](int) {};

 private:
  void handle(int signal) override {
    handled.push_back(signal);
    whenHandled(signal);
  }
};

using Action = void (*)(int);
Action actionOf(int signal) {
  struct sigaction action = {};
  ::sigaction(signal, nullptr, &action);
  return action.sa_handler;
}

TEST(SignalManager, RefusesNumbersOutsideZeroToThirtyOne) {
  Signals signals;
  for (const int number : {32, 33, 64, 1000, -1, -32}) EXPECT_NE(signals.install(number), 0) << number;
}

TEST(SignalManager, RefusesSignalsThatCannotBeCaught) {
  Signals signals;
  for (const int number : {0, SIGKILL, SIGSTOP}) {
    EXPECT_NE(signals.install(number), 0) << number;
    EXPECT_NE(signals.install(number), 0) << number;
  }
}

TEST(SignalManager, AcceptsEveryOtherNumber) {
  Signals signals;
  for (int number = 1; number < 32; ++number) {
    if (number == SIGKILL || number == SIGSTOP) continue;
    EXPECT_EQ(signals.install(number), 0) << number;
  }
}

TEST(SignalManager, ASignalIsHandledByDispatchAndNotBefore) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  ::raise(SIGUSR1);
  EXPECT_THAT(signals.handled, IsEmpty());
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
}

TEST(SignalManager, WithoutASignalNothingIsHandled) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
}

TEST(SignalManager, ASecondInstallDoesNothing) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  const Action caught = actionOf(SIGUSR1);
  ::signal(SIGUSR1, SIG_IGN);
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  EXPECT_EQ(actionOf(SIGUSR1), SIG_IGN);
  ::signal(SIGUSR1, caught);
  ::raise(SIGUSR1);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
}

TEST(SignalManager, ASecondInstallKeepsAPendingSignal) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  ::raise(SIGUSR1);
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
}

TEST(SignalManager, ASignalRaisedTwiceBeforeDispatchIsHandledOnce) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  ::raise(SIGUSR1);
  ::raise(SIGUSR1);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
}

TEST(SignalManager, PendingSignalsAreHandledInIncreasingOrder) {
  Signals signals;
  for (const int number : {SIGTERM, SIGHUP, SIGUSR2, SIGUSR1, SIGSYS}) EXPECT_EQ(signals.install(number), 0);
  for (const int number : {SIGSYS, SIGTERM, SIGUSR2, SIGUSR1, SIGHUP}) ::raise(number);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGHUP, SIGUSR1, SIGUSR2, SIGTERM, SIGSYS));
}

TEST(SignalManager, ASignalThatComesWhileItIsHandledIsHandledByTheNextDispatch) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  signals.whenHandled = [&](int number) {
    if (signals.handled.size() == 1) ::raise(number);
  };
  ::raise(SIGUSR1);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1, SIGUSR1));
}

TEST(SignalManager, SignalsThatComeWhileAnotherIsHandledAreNotLost) {
  Signals signals;
  for (const int number : {SIGHUP, SIGUSR1, SIGTERM}) EXPECT_EQ(signals.install(number), 0);
  signals.whenHandled = [&](int number) {
    if (number != SIGUSR1 || signals.handled.size() > 1) return;
    ::raise(SIGTERM);  // this dispatch has not yet handled it
    ::raise(SIGHUP);   // this dispatch has already passed its number
  };
  ::raise(SIGUSR1);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1, SIGTERM));
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1, SIGTERM, SIGHUP));
  signals.dispatch();
  EXPECT_EQ(signals.handled.size(), 3U);
}

TEST(SignalManager, DispatchMayBeCalledFromHandle) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  EXPECT_EQ(signals.install(SIGUSR2), 0);
  signals.whenHandled = [&](int number) {
    if (number == SIGUSR1) ::raise(SIGUSR2);
    signals.dispatch();
  };
  ::raise(SIGUSR1);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1, SIGUSR2));
}

TEST(SignalManager, ASignalThatIsNotInstalledKeepsItsAction) {
  ::signal(SIGUSR2, SIG_IGN);
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  ::raise(SIGUSR2);
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
  EXPECT_EQ(actionOf(SIGUSR2), SIG_IGN);
  ::signal(SIGUSR2, SIG_DFL);
}

TEST(SignalManager, TheDestructorRestoresThePreviousActions) {
  ::signal(SIGUSR1, SIG_IGN);
  {
    Signals signals;
    EXPECT_EQ(signals.install(SIGUSR1), 0);
    EXPECT_EQ(signals.install(SIGUSR2), 0);
    EXPECT_NE(actionOf(SIGUSR1), SIG_IGN);
  }
  EXPECT_EQ(actionOf(SIGUSR1), SIG_IGN);
  EXPECT_EQ(actionOf(SIGUSR2), SIG_DFL);
  ::signal(SIGUSR1, SIG_DFL);
}

TEST(SignalManager, AHandlerWithoutAManagerDoesNothing) {
  Action handler = nullptr;
  {
    Signals signals;
    EXPECT_EQ(signals.install(SIGUSR1), 0);
    handler = actionOf(SIGUSR1);
  }
  handler(SIGUSR1);
  Signals signals;
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
}

TEST(SignalManager, TheHandlerIgnoresNumbersOutOfRange) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  const Action handler = actionOf(SIGUSR1);
  for (const int number : {32, 64, -1, 1 << 20}) handler(number);
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
}

TEST(SignalManager, ADestroyedManagerForgetsItsPendingSignals) {
  {
    Signals signals;
    EXPECT_EQ(signals.install(SIGUSR1), 0);
    ::raise(SIGUSR1);
  }
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
}

TEST(SignalManager, TheLaterOfTwoManagersGetsTheSignals) {
  Signals first;
  {
    Signals second;
    EXPECT_EQ(second.install(SIGUSR1), 0);
    ::raise(SIGUSR1);
    first.dispatch();
    second.dispatch();
    EXPECT_THAT(first.handled, IsEmpty());
    EXPECT_THAT(second.handled, ElementsAre(SIGUSR1));
  }
  first.dispatch();
  EXPECT_EQ(actionOf(SIGUSR1), SIG_DFL);
}

TEST(SignalManager, EachManagerRestoresOnlyTheSignalsItInstalled) {
  ::signal(SIGUSR1, SIG_IGN);
  ::signal(SIGUSR2, SIG_IGN);
  {
    Signals first;
    EXPECT_EQ(first.install(SIGUSR1), 0);
    const Action handler = actionOf(SIGUSR1);
    {
      Signals second;
      EXPECT_EQ(second.install(SIGUSR1), 0);
      EXPECT_EQ(first.install(SIGUSR2), 0);
    }
    EXPECT_EQ(actionOf(SIGUSR1), handler) << "the first manager installed it";
    EXPECT_EQ(actionOf(SIGUSR2), handler) << "the second manager did not install it";
  }
  EXPECT_EQ(actionOf(SIGUSR1), SIG_IGN);
  EXPECT_EQ(actionOf(SIGUSR2), SIG_IGN);
  ::signal(SIGUSR1, SIG_DFL);
  ::signal(SIGUSR2, SIG_DFL);
}

TEST(SignalManager, TheHandlerLeavesErrnoAlone) {
  Signals signals;
  EXPECT_EQ(signals.install(SIGUSR1), 0);
  errno = ENOTTY;
  ::raise(SIGUSR1);
  EXPECT_EQ(errno, ENOTTY);
}

// Each thread raises its own signal again only after the last one was handled, so the test notices a lost signal.
TEST(SignalManager, SignalsOfManyThreadsAreNeverLost) {
  constexpr int rounds = 500;
  const std::vector<int> numbers = {SIGHUP, SIGUSR1, SIGUSR2, SIGTERM};
  std::array<std::atomic<int>, 32> timesHandled{};
  std::atomic<std::size_t> running{numbers.size()};
  Signals signals;
  signals.whenHandled = [&](int number) { ++timesHandled[static_cast<std::size_t>(number)]; };
  std::vector<std::thread> threads;
  for (const int number : numbers) {
    EXPECT_EQ(signals.install(number), 0);
    threads.emplace_back([&, number] {
      const std::atomic<int>& handled = timesHandled[static_cast<std::size_t>(number)];
      for (int i = 1; i <= rounds; ++i) {
        ::raise(number);
        while (handled < i) std::this_thread::yield();
      }
      --running;
    });
  }
  while (running > 0) signals.dispatch();
  for (std::thread& thread : threads) thread.join();
  signals.dispatch();
  for (const int number : numbers) EXPECT_EQ(timesHandled[static_cast<std::size_t>(number)], rounds) << number;
}

}  // namespace
