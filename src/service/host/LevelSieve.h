// LevelSieve: skips lines of a log that are below a level, many lines at once.
//
//   LevelSieve sieve(log, BasicLog::Level::error);
//   for (std::size_t end = log.size(); end > 0;) {
//     end = sieve.skip(end);                        // the line that ends here is still to be judged
//     ...judge this line, then set `end` to its start...
//   }
//
// The second byte of a line often decides alone that the line is below the level: no text whose second byte is "I" can
// be an error, whatever its other bytes are, so no line that begins with "[INFO" needs a look of its own. The sieve
// remembers up to four such second bytes of the log; BasicLog::secondByteAllows says which ones they are. It tests
// blocks of 512 bytes: it skips the lines that begin in a block if each of them has one of these second bytes.
//
// What it gains, on a log of 1 GiB of which few lines match (bench/run.sh, "The log, few lines match"): LevelGate takes
// 100 ms line after line, the sieve 20 ms with vectors of 16 bytes and 12 ms with vectors of 32 bytes. Reading the log
// takes 65 to 90 ms.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "log/front/BasicLog.h"

// The vectors that this machine has. Compilers translate vectors of 16 bytes for every machine, but without vector
// instructions they are slower than LevelGate. Vectors of 32 bytes are used if GCC compiled the code and the processor
// has AVX2.
enum class Vectors { none, of16Bytes, of32Bytes };
Vectors widestVectors();

using SecondBytes = std::array<char, 4>;

class LevelSieve {
 public:
  // Skips lines of `log` that are below `threshold`; skips nothing without vectors. The log is not copied and must
  // outlive the sieve.
  LevelSieve(std::string_view log, BasicLog::Level threshold, Vectors vectors);

  // `end` is the end of a line, and all lines behind it have been judged or skipped. Returns the end of the last line
  // that is still to be judged. Every line that it skips is below the threshold and has less than 4095 bytes.
  std::size_t skip(std::size_t end) { return end > next_ ? end : skipBlocks(end); }

 private:
  std::size_t skipBlocks(std::size_t end);
  void learnFrom(const char* newline, const char* blockEnd);

  std::string_view log_;  // empty without vectors
  BasicLog::Level threshold_;
  Vectors vectors_;
  std::size_t next_;  // the next block is tested when `end` is here or before
  std::size_t count_ = 0;
  char refused_ = '\n';    // the last byte that allows the level, so that it is not asked about again and again
  SecondBytes seconds_{};  // unused places repeat the last byte
};

// Returns true if these bytes may name a level. If it returns false, no text that begins with at least 16 consecutive
// bytes of them names a level. The reason: only blanks may precede a level name, the name has fewer than 16 letters,
// and a blank, "]", "~" or the end of the text must follow it. A shorter text that ends with these bytes may still name
// a level ("ERROR"), so the caller must judge it. Without vectors it returns true.
// What it gains: a line of 100 MiB without such bytes need not be read a second time to judge its pieces. The answer
// for 256 KiB takes 3 us, reading them takes 20 us.
bool mayNameLevel(std::string_view bytes, Vectors vectors);
