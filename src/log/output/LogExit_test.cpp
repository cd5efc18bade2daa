// Tests that a process may exit while its threads log. Each test runs the program exiting-logger several times, because
// most mistakes show in some runs only.
#include <gtest/gtest.h>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"
#include "testing/run/Program.h"

namespace {

#ifdef RAVCTL_SANITIZED
constexpr int kRuns = 2;  // sanitizers see in one run what crashes others only sometimes, but they are slow
#else
constexpr int kRuns = 5;
#endif

// The name lets the runs on other machines leave out what starts programs.
using LogExitDeathTest = HostTest;

void expectNormalEnds(const std::string& how) {
  Start start;
  start.seconds = 60;  // then SIGALRM ends the program: it hangs
  // The leak checker cannot run in a child that was forked while other threads ran.
  if (how == "forked") start.environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");
  for (int run = 0; run < kRuns; ++run) {
    const Outcome outcome = runProgram({places::build() + "/testing/exiting-logger", how}, start);
    EXPECT_EQ(outcome.signal, 0);
    EXPECT_EQ(outcome.exitStatus, 5);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "");
  }
}

// --- Where the exit comes from

TEST_F(LogExitDeathTest, ReturnFromMainWhileThreadsLogWritesWhatWasQueued) { expectNormalEnds("return"); }

TEST_F(LogExitDeathTest, ExitOnAnotherThreadWhileThreadsLogWritesWhatWasQueued) { expectNormalEnds("another-thread"); }

TEST_F(LogExitDeathTest, ExitRightAfterTheStartOfTheThreadsEndsTheProcess) {
  expectNormalEnds("right-after-the-start");
}

TEST_F(LogExitDeathTest, ExitInAnEmitterWhileThreadsLogEndsTheProcess) { expectNormalEnds("emitter"); }

TEST_F(LogExitDeathTest, ExitInAnEmitterThatAFlushCallsEndsTheProcess) { expectNormalEnds("flush"); }

TEST_F(LogExitDeathTest, ExitInAProcessorDoesNotWaitForAnEmitterThatWaitsForTheProcessor) {
  expectNormalEnds("processor");
}

TEST_F(LogExitDeathTest, ExitInAnAssertionHandlerInsideTheQueueDoesNotHang) { expectNormalEnds("assertion"); }

TEST_F(LogExitDeathTest, ExitOnTwoThreadsAtTheSameTimeEndsTheProcess) { expectNormalEnds("two-threads"); }

// --- What other threads do at the exit

TEST_F(LogExitDeathTest, ExitWhileThreadsWaitForTheOutputEndsTheProcess) { expectNormalEnds("waiting"); }

TEST_F(LogExitDeathTest, ExitOfAForkedChildWaitsForNoLockThatAThreadOfItsParentHolds) { expectNormalEnds("forked"); }

// --- Without an output thread

TEST_F(LogExitDeathTest, ExitWithASynchronousEmitterDoesNotCallItAfterItsDestruction) {
  expectNormalEnds("synchronous");
}

TEST_F(LogExitDeathTest, ExitInASynchronousEmitterWhileThreadsLogEndsTheProcess) { expectNormalEnds("in-synchronous"); }

TEST_F(LogExitDeathTest, ExitWithoutAnOutputThreadWritesNoQueuedEntries) { expectNormalEnds("no-output-thread"); }

TEST_F(LogExitDeathTest, ExitAfterAStopOfTheOutputThreadWritesNoQueuedEntries) { expectNormalEnds("stopped"); }

// --- What still runs at the exit

TEST_F(LogExitDeathTest, ExitDeletesTheProcessorWhoseDestructorMayLog) { expectNormalEnds("processor-destructor"); }

TEST_F(LogExitDeathTest, EntriesOfExitHandlersAreWrittenBeforeTheStopAndDroppedAfterIt) {
  expectNormalEnds("handlers");
}

TEST_F(LogExitDeathTest, FlushAfterTheStopCallsNoEmitter) { expectNormalEnds("late-flush"); }

}  // namespace
