// Terminal: runs a program on a pseudo-terminal of its own, types text and reads the screen.
//
//   Terminal terminal({"/bin/sh"}, {});
//   terminal.upTo("# ");                              // waits for the prompt
//   terminal.type("exit 3\n");
//   terminal.rest();
//   EXPECT_EQ(terminal.exitStatus(), 3);
//
// The results are the text that a user sees: without escape sequences, bells and carriage returns.
// Time limits: upTo() waits for at most two minutes. After a minute without output, rest() and upTo() close the
// terminal, which ends most programs. exitStatus() has no limit.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "testing/run/Program.h"

class Terminal {
 public:
  // Starts the program at words[0]. Only the environment, the folder and the user of `start` count.
  Terminal(const std::vector<std::string>& words, const Start& start);
  // Kills the program if it still runs.
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void type(const std::string& text) const;

  // Returns what the screen shows between the end of the last call and the next occurrence of `text`, without `text`.
  // If `text` never appears, the test fails and the whole remainder is returned.
  std::string upTo(const std::string& text);

  // Returns everything up to the end of the program.
  std::string rest();

  // Waits for the end of the program and returns its exit status; -1 if a signal ended it. Call it once.
  int exitStatus();

  // Closes the terminal, as when a user closes the window.
  void hangUp();

 private:
  // Returns false at the end of the output, and if nothing arrives for a long time.
  bool readMore();

  int screen_ = -1;
  pid_t child_ = -1;
  std::string bytes_;  // received, not yet in shown_
  std::string shown_;  // shown on the screen, not yet returned
};
