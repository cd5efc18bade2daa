// LineOutput: standard output in few system calls.
//
//   LineOutput out;
//   for (const std::string& line : lines) out.put(line);
//   out.finish();
//
// Gathers lines and writes them with write(2) in large pieces. After a failed write nothing more is written.
#pragma once

#include <string>
#include <string_view>

class LineOutput {
 public:
  // Adds the text up to its first zero byte, as puts(3) would, and a newline.
  void put(std::string_view line);

  // Writes what is left. A failure of any write so far is one line on standard error; a reader that went away is none.
  void finish();

 private:
  void flush();

  std::string pending_;
  int error_ = 0;  // errno of the first failed write
};
