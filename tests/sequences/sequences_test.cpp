// Runs tests/sequences/sequences.py: the program and its model do the same random commands on the same random stores.
#include <cstdlib>

#include "testing/faults/Tracer.h"
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

#ifdef RAVCTL_SANITIZED
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

// The sequences start the program themselves.
#define SKIP_UNDER_EMULATOR() \
  if (std::getenv("RAVCTL_EMULATOR") != nullptr) GTEST_SKIP() << "the sequences start the program without an emulator"

using SequencesTest = HostTest;

Outcome runSequences(std::vector<std::string> words) {
  std::vector<std::string> all = {"/usr/bin/python3", "-B", places::source() + "/tests/sequences/sequences.py"};
  all.insert(all.end(), words.begin(), words.end());
  return runProgram(all, {});
}

// A part of every run of the tests. `./dev sequences` continues with other seeds.
TEST_F(SequencesTest, TheProgramAgreesWithItsModel) {
  SKIP_UNDER_EMULATOR();
  std::vector<std::string> words = {"--program", ravctlPath(), "--sequences", "60"};
  if (!kIsSanitized && whyNoTracing().empty())
    words.insert(words.end(), {"--interrupt", places::build() + "/tests/sequences/interrupt"});
  const Outcome outcome = runSequences(words);
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.out << outcome.err;
}

// The program of the flaws below, without a flaw.
TEST_F(SequencesTest, TheProgramWithoutAFlawAgreesToo) {
  SKIP_UNDER_EMULATOR();
  const std::string program = places::build() + "/tests/sequences/ravctl-with-flaw";
  const Outcome outcome = runSequences({"--program", program, "--sequences", "30"});
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.out << outcome.err;
}

struct Flaw {
  const char* name;
  const char* seed;
  bool needsUsers;
};

class FlawTest : public HostTest, public testing::WithParamInterface<Flaw> {};

// A planted flaw (see flaws.cpp) is found by the sequences of fixed seeds.
TEST_P(FlawTest, IsFound) {
  SKIP_UNDER_EMULATOR();
  if (kIsSanitized) GTEST_SKIP() << "the build is not a release";
  if (GetParam().needsUsers) SKIP_WITHOUT_OTHER_USERS();
  const Outcome outcome = runSequences({"--program", places::build() + "/tests/sequences/ravctl-with-flaw", "--flaw",
                                        GetParam().name, "--seed", GetParam().seed, "--sequences", "300", "--brief"});
  EXPECT_EQ(outcome.exitStatus, 1) << outcome.out << outcome.err;
  EXPECT_NE(outcome.out.find("differs"), std::string::npos) << outcome.out << outcome.err;
}

INSTANTIATE_TEST_SUITE_P(Planted, FlawTest,
                         testing::Values(Flaw{"lost-mode", "1", false}, Flaw{"lost-owner", "480", true},
                                         Flaw{"lost-cut", "1", false}, Flaw{"lost-removal", "1", false},
                                         Flaw{"lost-rename", "1", false}, Flaw{"owner-is-root", "1", true},
                                         Flaw{"one-name", "110", true}, Flaw{"everybody-is-root", "1", true},
                                         Flaw{"tools-succeed", "1", false}, Flaw{"no-fourth-profile", "10", false}),
                         [](const auto& test) {
                           std::string name = test.param.name;
                           for (char& byte : name) byte = byte == '-' ? '_' : byte;
                           return name;
                         });

}  // namespace
