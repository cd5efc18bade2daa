#include "base/system/SignalManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Numbers = std::vector<int>;

class Signals : public SignalManager {
 public:
  explicit Signals(const Numbers& installed = {}) {
    for (const int number : installed) EXPECT_EQ(install(number), 0) << number;
  }

  Numbers handled;
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

// A manager leaves its signals caught. So each test ends with the actions that it began with.
class SignalManagerTest : public testing::Test {
 protected:
  SignalManagerTest() {
    for (int number = 1; number < kSignals; ++number) ::sigaction(number, nullptr, &before_[number]);
  }
  ~SignalManagerTest() override {
    for (int number = 1; number < kSignals; ++number) ::sigaction(number, &before_[number], nullptr);
  }

 private:
  static constexpr int kSignals = 32;
  struct sigaction before_[kSignals] = {};
};

TEST_F(SignalManagerTest, AcceptsExactlyTheSignalsBelow32ThatCanBeCaught) {
  Signals signals;
  for (int number = -40; number <= 1'000; ++number) {
    const bool isAccepted = number >= 1 && number < 32 && number != SIGKILL && number != SIGSTOP;
    EXPECT_EQ(signals.install(number), isAccepted ? 0 : -1) << number;
    EXPECT_EQ(signals.install(number), isAccepted ? 0 : -1) << number << " again";
  }
}

TEST_F(SignalManagerTest, DispatchHandlesEachPendingSignalOnceLowerNumbersFirst) {
  const struct {
    const char* why;
    void (*raise)(Signals& signals);
    Numbers handled;
  } cases[] = {
      {"without a signal nothing is handled", [](Signals&) {}, {}},
      {"a signal is handled by dispatch and not before", [](Signals&) { ::raise(SIGUSR1); }, {SIGUSR1}},
      {"a signal that is raised twice is handled once",
       [](Signals&) {
         ::raise(SIGUSR1);
         ::raise(SIGUSR1);
       },
       {SIGUSR1}},
      {"a second install keeps a pending signal",
       [](Signals& signals) {
         ::raise(SIGUSR1);
         EXPECT_EQ(signals.install(SIGUSR1), 0);
       },
       {SIGUSR1}},
      {"lower numbers come first",
       [](Signals&) {
         for (const int number : {SIGSYS, SIGTERM, SIGUSR2, SIGUSR1, SIGHUP}) ::raise(number);
       },
       {SIGHUP, SIGUSR1, SIGUSR2, SIGTERM, SIGSYS}},
      {"the handler ignores numbers out of range",
       [](Signals&) {
         for (const int number : {32, 64, -1, 1 << 20}) actionOf(SIGUSR1)(number);
       },
       {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Signals signals({SIGTERM, SIGHUP, SIGUSR2, SIGUSR1, SIGSYS});
    c.raise(signals);
    EXPECT_THAT(signals.handled, IsEmpty());
    for (int i = 0; i < 2; ++i) {
      signals.dispatch();
      EXPECT_EQ(signals.handled, c.handled);
    }
  }
}

TEST_F(SignalManagerTest, ASecondInstallDoesNothing) {
  Signals signals({SIGUSR1});
  const Action caught = actionOf(SIGUSR1);
  for (const char* when : {"before a signal was handled", "after that"}) {
    SCOPED_TRACE(when);
    ::signal(SIGUSR1, SIG_IGN);
    EXPECT_EQ(signals.install(SIGUSR1), 0);
    EXPECT_EQ(actionOf(SIGUSR1), SIG_IGN);
    ::signal(SIGUSR1, caught);
    ::raise(SIGUSR1);
    signals.dispatch();
    EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
    signals.handled.clear();
  }
}

TEST_F(SignalManagerTest, ASignalThatComesDuringADispatchIsHandledByTheNextAtTheLatest) {
  const struct {
    const char* why;
    void (*whenFirstHandled)(Signals& signals);
    Numbers byTheFirst, byTheSecond;
  } cases[] = {
      {"the signal that is being handled", [](Signals&) { ::raise(SIGUSR1); }, {SIGUSR1}, {SIGUSR1, SIGUSR1}},
      {"a signal that this dispatch has not yet reached, and one that it has passed",
       [](Signals&) {
         ::raise(SIGTERM);
         ::raise(SIGHUP);
       },
       {SIGUSR1, SIGTERM},
       {SIGUSR1, SIGTERM, SIGHUP}},
      {"dispatch may be called from handle",
       [](Signals& signals) {
         ::raise(SIGTERM);
         signals.dispatch();
       },
       {SIGUSR1, SIGTERM},
       {SIGUSR1, SIGTERM}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Signals signals({SIGHUP, SIGUSR1, SIGTERM});
    signals.whenHandled = [&](int) {
      if (signals.handled.size() == 1) c.whenFirstHandled(signals);
    };
    ::raise(SIGUSR1);
    for (const Numbers& handled : {c.byTheFirst, c.byTheSecond, c.byTheSecond}) {
      signals.dispatch();
      EXPECT_EQ(signals.handled, handled);
    }
  }
}

TEST_F(SignalManagerTest, ASignalThatIsNotInstalledKeepsItsAction) {
  ::signal(SIGUSR2, SIG_IGN);
  Signals signals({SIGUSR1});
  ::raise(SIGUSR2);
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
  EXPECT_EQ(actionOf(SIGUSR2), SIG_IGN);
  ::signal(SIGUSR2, SIG_DFL);
}

TEST_F(SignalManagerTest, ASignalAfterTheDestructionDoesNothingAndANewManagerTakesOver) {
  Action handler = nullptr;
  {
    Signals destroyed({SIGUSR1, SIGTERM});
    handler = actionOf(SIGUSR1);
  }
  for (const int number : {SIGUSR1, SIGTERM}) {
    EXPECT_EQ(actionOf(number), handler) << "the signal stays caught";
    ::raise(number);  // its default action would end the process
  }
  Signals signals({SIGTERM});
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
  ::raise(SIGTERM);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGTERM));
}

// The exit status of a child process that runs `work`.
template <typename Work>
int statusOfChild(Work work) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(work());
  int status = 0;
  pid_t ended = -1;
  do {
    ended = ::waitpid(child, &status, 0);
  } while (ended < 0 && errno == EINTR);  // under the thread sanitizer a signal interrupts the wait
  EXPECT_EQ(ended, child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(SignalManagerTest, AChildCatchesItsOwnSignalsAndNoneOfItsParent) {
  Signals signals({SIGUSR1});
  const auto raiseInChild = [&] {
    ::raise(SIGUSR1);
    signals.dispatch();
    return static_cast<int>(signals.handled.size());
  };
  EXPECT_EQ(statusOfChild(raiseInChild), 1);
  signals.dispatch();
  EXPECT_THAT(signals.handled, IsEmpty());
  const auto killParent = [] {
    ::kill(::getppid(), SIGUSR1);
    return 0;
  };
  EXPECT_EQ(statusOfChild(killParent), 0);
  signals.dispatch();
  EXPECT_THAT(signals.handled, ElementsAre(SIGUSR1));
}

TEST_F(SignalManagerTest, AProgramThatAChildExecutesIsEndedByTheSignals) {
  const auto executeAndKill = [] { return ::execl("/bin/sh", "sh", "-c", "kill -USR1 $$; exit 7", nullptr); };
  Signals signals({SIGUSR1});
  EXPECT_EQ(statusOfChild(executeAndKill), -SIGUSR1);
}

TEST_F(SignalManagerTest, AManagerHandlesNoSignalFromBeforeItsConstruction) {
  Action handler = nullptr;
  {
    const Signals destroyed({SIGUSR1});
    handler = actionOf(SIGUSR1);
    ::raise(SIGUSR1);
  }
  for (const bool isCalled : {false, true}) {
    SCOPED_TRACE(isCalled ? "the handler was called while there was no manager" : "a destroyed manager got a signal");
    if (isCalled) handler(SIGUSR1);
    Signals signals({SIGUSR1});
    signals.dispatch();
    EXPECT_THAT(signals.handled, IsEmpty());
  }
}

TEST_F(SignalManagerTest, TheLaterOfTwoManagersGetsTheSignals) {
  Signals first;
  {
    Signals second({SIGUSR1});
    ::raise(SIGUSR1);
    first.dispatch();
    second.dispatch();
    EXPECT_THAT(first.handled, IsEmpty());
    EXPECT_THAT(second.handled, ElementsAre(SIGUSR1));
  }
  ::raise(SIGUSR1);
  first.dispatch();
  EXPECT_THAT(first.handled, IsEmpty()) << "the first one does not take over again";
}

TEST_F(SignalManagerTest, TheDestructionOfAnEarlierManagerLeavesTheLaterOneItsSignals) {
  auto first = std::make_unique<Signals>(Numbers{SIGUSR1});
  Signals second({SIGUSR1});
  first.reset();
  ::raise(SIGUSR1);
  second.dispatch();
  EXPECT_THAT(second.handled, ElementsAre(SIGUSR1));
}

TEST_F(SignalManagerTest, TheHandlerLeavesErrnoAlone) {
  const Signals signals({SIGUSR1});
  errno = ENOTTY;
  ::raise(SIGUSR1);
  EXPECT_EQ(errno, ENOTTY);
}

// Each thread raises its own signal again only after the last one was handled, so the test notices a lost signal.
TEST_F(SignalManagerTest, SignalsOfManyThreadsAreNeverLost) {
  constexpr int rounds = 500;
  const Numbers numbers = {SIGHUP, SIGUSR1, SIGUSR2, SIGTERM};
  std::array<std::atomic<int>, 32> timesHandled{};
  std::atomic<std::size_t> running{numbers.size()};
  Signals signals(numbers);
  signals.whenHandled = [&](int number) { ++timesHandled[static_cast<std::size_t>(number)]; };
  std::vector<std::thread> threads;
  for (const int number : numbers) {
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
