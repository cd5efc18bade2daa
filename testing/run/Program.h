// Runs the real program on the private host and keeps what it said.
//
//   const Outcome outcome = runRavctl({"list", "profiles"});
//   EXPECT_EQ(outcome.out, "...");
//   EXPECT_EQ(outcome.exitStatus, 0);
//
// The program is the one of this build; RAVCTL_PROGRAM in the environment names another one, RAVCTL_EMULATOR an
// emulator to run it with.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

struct Outcome {
  std::string out;
  std::string err;
  int exitStatus = -1;  // -1 when a signal ended it
  int signal = 0;       // 0 when it exited
};

// How the process differs from a plain start by root at "/".
struct Start {
  std::vector<std::string> environment = {"PATH=/usr/bin:/usr/sbin"};  // all of it
  std::string input;                                                   // standard input, up to its end
  std::string folder = "/";                                            // working directory
  std::string argv0 = "ravctl";                                        // the path by which the program knows itself
  std::vector<int> closed;                       // of 0, 1 and 2: those that are not open; nothing is caught of them
  std::string outputTo;                          // a file for standard output instead of `out`, such as /dev/full
  bool readerGone = false;                       // standard output is a pipe that nobody reads
  std::optional<uid_t> uid;                      // another user; needs the machine's root
  std::optional<mode_t> mask;                    // umask, else 022
  std::optional<unsigned long> fileLimit;        // no file grows beyond so many bytes
  std::optional<unsigned long> memoryLimit;      // address space in bytes
  std::optional<unsigned long> descriptorLimit;  // one more than the highest descriptor it may have
  unsigned seconds = 0;                          // SIGALRM ends it then; 0: never
  bool boundByModes = false;                     // uid 0, but mode 000 is unreadable
};

// Waits for the program's end; what a daemon that it left behind says later is not waited for. Throws
// std::runtime_error when the program cannot be started so.
Outcome runRavctl(const std::vector<std::string>& words, const Start& start = {});
// The same for any program, found by its path; words[0] is that path.
Outcome runProgram(const std::vector<std::string>& words, const Start& start = {});

// The path of the program under test.
std::string ravctlPath();
