// Program: runs the real program, or any other, and keeps its output and exit status.
//
//   const Outcome outcome = runRavctl({"list", "profiles"});
//   EXPECT_EQ(outcome.out, "...");
//   EXPECT_EQ(outcome.exitStatus, 0);
//
// The program under test is the one of this build. In the environment, RAVCTL_PROGRAM names another program, and
// RAVCTL_EMULATOR names an emulator to run it with.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

struct Outcome {
  std::string out;
  std::string err;
  int exitStatus = -1;  // -1 if a signal ended the program
  int signal = 0;       // 0 if the program exited
};

// How to start the process. The defaults start it as root in "/".
struct Start {
  std::vector<std::string> environment = {"PATH=/usr/bin:/usr/sbin"};  // the whole environment
  std::string input;                                                   // the whole standard input
  std::string folder = "/";                                            // working directory
  std::string argv0 = "ravctl";                                        // argv[0]; runRavctl() only
  std::vector<int> closed;                       // descriptors of 0, 1 and 2 that are closed at the start
  std::string outputTo;                          // a file that gets standard output instead of `out`, such as /dev/full
  bool readerGone = false;                       // standard output is a pipe without a reader
  std::optional<uid_t> uid;                      // run as this user; needs the machine's root user
  std::optional<mode_t> mask;                    // umask; if absent 022
  std::optional<unsigned long> fileLimit;        // the largest file size in bytes
  std::optional<unsigned long> memoryLimit;      // the largest address space in bytes
  std::optional<unsigned long> descriptorLimit;  // the number of descriptors it may open
  unsigned seconds = 0;                          // SIGALRM ends it after this time; 0: never
  bool boundByModes = false;                     // uid 0, but permission bits restrict it
};

// Runs the program under test and waits until it ends. It does not wait for a daemon that the program started, and it
// does not keep what the daemon prints later. Throws std::runtime_error if the program cannot be started.
Outcome runRavctl(const std::vector<std::string>& words, const Start& start = {});
// The same for any program; words[0] is its path.
Outcome runProgram(const std::vector<std::string>& words, const Start& start = {});

// The path of the program under test.
std::string ravctlPath();
