// Session: commands as a manual shows them, each behind its prompt, with what they print. A session is true when its
// script prints it, byte for byte.
//
//   # ravctl profile rename lab new_name=harbour
//   profile_name: harbour
//
// "# " is a command of root, "$ " one of a user without rights (uid 65534), and "> " goes on with the command before,
// as a shell shows it. Root's commands share one shell; each of the user's has one of its own, without standard input.
// "@ " is a command of root that sets the scene: it runs like the others, and neither it nor what it says is shown.
// Blank lines before a prompt are blank lines; all others, and all other lines, are what the command before prints, on
// standard output and standard error. A printed line that begins like a prompt cannot be shown.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct Session {
  std::string shown;          // the text without what sets the scene
  std::string script;         // for /bin/sh; prints `shown` when all of it is true
  bool needsAnyUser = false;  // holds a command of the user, so root must run the script, where there are other users
};

// Throws std::runtime_error for text before the first prompt, and for "> " without a command before it.
Session readSession(std::string_view text);

// The lines of a text, without their newlines.
std::vector<std::string> linesOf(std::string_view text);
