// Transcript: a session at the command line, written down: the host it begins on, each command with what it prints and
// how it ends, and the files afterwards. The form is described in tests/transcripts/README.md.
//
//   EXPECT_EQ(replayTranscript(text), text);
//
// Replaying gives the transcript as it should have been written: everything as it stands, but outputs, exit statuses
// and trees as they came out. What differs is what was wrong. The caller is on a private host, freshly reset. Throws
// std::runtime_error for a line that it does not understand, with its number, and TranscriptNeeds where this host
// cannot do what the transcript asks for.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

class TranscriptNeeds : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string replayTranscript(const std::string& text);

// The words of a command line. Blanks separate; 'as it is', "with \n \xHH escapes" and \x quote, and may be joined in
// one word. Throws std::runtime_error for an open quote or an unknown escape.
std::vector<std::string> splitWords(const std::string& line);
