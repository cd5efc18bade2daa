// Transcript: replays a recorded session at the command line. A transcript holds the state of the host at the start,
// each command with its output and exit status, and the files at the end. The format is in
// tests/transcripts/README.md.
//
//   EXPECT_EQ(replayTranscript(text), text);
//
// replayTranscript() runs the commands and returns the transcript with the actual outputs, exit statuses and trees. So
// a transcript is correct if the result equals it, and otherwise the difference shows the wrong lines. Call it on a
// private host right after host::reset(). Throws std::runtime_error with the line number if it does not understand a
// line, and TranscriptNeeds if this host lacks something that the transcript needs.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

// what() names what the host lacks.
class TranscriptNeeds : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string replayTranscript(const std::string& text);

// Returns the words of a command line. Blanks separate words. Quoting: 'literal text', "text with \n and \xHH escapes"
// and a backslash before a single character; one word may mix them. Throws std::runtime_error for an unclosed quote or
// an unknown escape.
std::vector<std::string> splitWords(const std::string& line);
