// tools/promises.py lists planted headers beside planted tests. With its real list, ./dev check finds a sentence of a
// header that has no test.
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using testing::HasSubstr;

const std::string kScript = places::source() + "/tools/promises.py";
const std::string kTree = "/tmp/tree";

constexpr const char* kHeader = R"(// Thing: keeps a number.
//
//   Thing thing;
//   thing.add(2);
//
// It never forgets a number. Threads: only one may use it.
#pragma once

class Thing {
 public:
  // Adds `number`. Returns false in these cases:
  // - the number is negative;
  // - the sum
  //   overflows.
  bool add(int number);
  // Adds nothing. What is left:
  //   true   one
  //          number
  //   false  none
  bool rest();

 private:
  // --- For derived classes (see Odd.h)
  // --- They supply it. It may log.
  virtual bool isOdd() = 0;
  // The sum fits.
  int sum_ = 0;
};

struct Pair {
  int first;  // the smaller
              // of both
};
)";

constexpr const char* kTest = R"(TEST(Thing, KeepsItsNumber) {}
TEST_F(ThingTest, RefusesNegativeNumbers) {}
TEST(Other, Rests) {}
TEST(Thing, Rests) {}
)";

constexpr const char* kTies = R"(src/base/Thing.h
  KeepsItsNumber
    It never forgets
  no promise: duty
    Threads:
  RefusesNegativeNumbers
    @add Adds `number`.
    the number is negative
    the sum overflows.
  Thing.Rests
    @rest Adds nothing.
    true
    false
    --- They supply
    It may log.
  transcript/pairs
    the smaller of both
)";

class PromisesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!host::exists("/usr/bin/python3")) GTEST_SKIP() << "python3 is not installed";
    plant("src/base/Thing.h", kHeader);
    plant("src/base/Thing_test.cpp", kTest);
    plant("tests/transcripts/pairs.transcript", "$ ravctl\n");
    plant("tests/promises/base.txt", kTies);
  }

  static void plant(const std::string& name, const std::string& text) { host::writeFile(kTree + "/" + name, text); }

  static Outcome promises(const std::vector<std::string>& words = {}) {
    std::vector<std::string> command = {"/usr/bin/python3", "-I", "-B", kScript, "--root", kTree};
    command.insert(command.end(), words.begin(), words.end());
    return runProgram(command);
  }
};

TEST_F(PromisesTest, AHeaderWithATestForEachSentenceIsWhole) {
  const Outcome outcome = promises();
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_THAT(outcome.out, HasSubstr("17 sentences, 10 promises, 0 without a test, 0 wrong lines\n"));
}

TEST_F(PromisesTest, TheListHasEachSentenceWithItsTestsOrWithTheReasonWhyItNeedsNone) {
  const Outcome outcome = promises({"--list", "src/base/Thing.h"});
  EXPECT_EQ(outcome.out.substr(0, outcome.out.find("    1 title")), R"(src/base/Thing.h
  1: Thing: keeps a number.
      no promise: title
  3: Thing thing;
      no promise: example
  4: thing.add(2);
      no promise: example
  6: It never forgets a number.
      KeepsItsNumber
  6: Threads: only one may use it.
      no promise: duty
  11: Adds `number`.
      RefusesNegativeNumbers
  11: Returns false in these cases:
      no promise: list
  12: the number is negative;
      RefusesNegativeNumbers
  13: the sum overflows.
      RefusesNegativeNumbers
  16: Adds nothing.
      Thing.Rests
  16: What is left:
      no promise: list
  17: true   one number
      Thing.Rests
  19: false  none
      Thing.Rests
  24: --- They supply it.
      Thing.Rests
  24: It may log.
      Thing.Rests
  26: The sum fits.
      no promise: private
  31: the smaller of both
      transcript/pairs
)");
}

TEST_F(PromisesTest, EachPromiseWithoutATestIsNamed) {
  plant("src/base/Empty.h", "// Empty: holds nothing.\n// It never fills. It\n// stays empty.\n#pragma once\n");
  const Outcome outcome = promises();
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.out.find("src/base/Empty.h:1: no test: It never fills.\n"
                             "src/base/Empty.h:1: no test: It stays empty.\n"),
            0u)
      << outcome.out;
  EXPECT_THAT(outcome.out, HasSubstr("20 sentences, 12 promises, 2 without a test, 0 wrong lines\n"));
}

TEST_F(PromisesTest, ANamedHeaderOrFolderIsCountedAlone) {
  plant("src/json/Empty.h", "// Empty: holds nothing.\n// It never fills.\n#pragma once\n");
  EXPECT_THAT(promises({"src/base/"}).out, HasSubstr("17 sentences, 10 promises, 0 without a test, 0 wrong lines\n"));
  EXPECT_EQ(promises({"src/base"}).exitStatus, 0);
  const Outcome outcome = promises({"src/json/Empty.h"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.out, HasSubstr("2 sentences, 1 promises, 1 without a test, 0 wrong lines\n"));
  EXPECT_THAT(promises({"src/bas"}).err, HasSubstr("src/bas: no header of src/ is there\n"));
}

struct Case {
  const char* why;
  const char* ties;  // behind the right ones
  const char* problem;
};
const Case kCases[] = {
    {"a header that has gone", "src/base/Gone.h\n", "tests/promises/more.txt:1: no such header: src/base/Gone.h\n"},
    {"a test that has gone", "src/base/Thing.h\n  Thing.Forgets\n    It never\n",
     "tests/promises/more.txt:2: no such test: Thing.Forgets\n"},
    {"a transcript that has gone", "src/base/Thing.h\n  transcript/gone\n    It never\n",
     "tests/promises/more.txt:2: no such test: transcript/gone\n"},
    {"a test of two suites", "src/base/Thing.h\n  Rests\n    It never\n",
     "tests/promises/more.txt:2: several tests: Other.Rests Thing.Rests\n"},
    {"a sentence that has changed", "src/base/Thing.h\n  KeepsItsNumber\n    It always\n",
     "tests/promises/more.txt:3: 0 sentences of src/base/Thing.h begin with: It always\n"},
    {"the beginning of two sentences", "src/base/Thing.h\n  KeepsItsNumber\n    Adds\n",
     "tests/promises/more.txt:3: 2 sentences of src/base/Thing.h begin with: Adds\n"},
    {"a test without a sentence", "src/base/Thing.h\n  KeepsItsNumber\n  RefusesNegativeNumbers\n    It never\n",
     "tests/promises/more.txt:2: no sentence below this test\n"},
    {"a test without a sentence at the end", "src/base/Thing.h\n  KeepsItsNumber\n",
     "tests/promises/more.txt:2: no sentence below this test\n"},
    {"a sentence without a test", "src/base/Thing.h\n    It never\n",
     "tests/promises/more.txt:2: no test above this line\n"},
    {"a kind that nobody knows", "src/base/Thing.h\n  no promise: hope\n    Threads:\n",
     "tests/promises/more.txt:2: no such kind: hope\n"},
    {"a test of what is no promise", "src/base/Thing.h\n  KeepsItsNumber\n    The sum fits.\n",
     "src/base/Thing.h:26: a test shows what is no promise: The sum fits.\n"},
};

TEST_F(PromisesTest, EachWrongLineIsNamed) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.why);
    plant("tests/promises/more.txt", c.ties);
    const Outcome outcome = promises();
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.out.find(c.problem), 0u) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("0 without a test, 1 wrong lines\n"));
  }
}

}  // namespace
