// LineOutput: writes lines to standard output in few system calls.
//
//   LineOutput out;
//   for (const std::string& line : lines) out.put(line);
//   out.finish();
//
// It collects lines and writes them with write(2) as soon as it has 64 KiB or more. The first 1000 bytes take one
// allocation. After a failed write it writes nothing more to standard output.
#pragma once

#include <string>
#include <string_view>

class LineOutput {
 public:
  // Adds the text up to its first zero byte, as puts(3) does, and a newline.
  void put(std::string_view line);

  // Writes the remaining lines. If any write failed, prints one line about it to standard error; a reader that closed
  // its end of the pipe (EPIPE) does not count as a failure. Must be called; the destructor writes nothing.
  void finish();

 private:
  void flush();

  std::string pending_;
  int error_ = 0;  // errno of the first failed write
};
