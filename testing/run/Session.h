// Session: commands and their output as a manual shows them, each command after its prompt. readSession() turns the
// text into a shell script. The text is correct if the script prints exactly the same bytes.
//
//   # ravctl profile rename lab new_name=harbour
//   profile_name: harbour
//
// The first two bytes of a line say what it is:
// - "# " is a command of root. All of root's commands run in one shell.
// - "$ " is a command of an unprivileged user (uid 65534). Each runs in a shell of its own, without standard input.
// - "> " continues the command of the line before.
// - "@ " is a command of root that prepares the others. The manual shows neither the command nor its output.
// All other lines are the output of the command before, on standard output and standard error. Blank lines right before
// a prompt only separate. So a session cannot show an output line that begins like a prompt.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct Session {
  std::string shown;          // the text without the lines of "@ " commands
  std::string script;         // for /bin/sh; prints `shown` if the text is correct
  bool needsAnyUser = false;  // there is a "$ " command, so the script needs root and a second user
};

// Throws std::runtime_error if there is text before the first prompt or "> " without a command before it.
Session readSession(std::string_view text);

// Returns the lines of a text without their newlines.
std::vector<std::string> linesOf(std::string_view text);
