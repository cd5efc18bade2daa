// What the fuzz targets share: laws that end the run, an input taken apart, faults that the input decides, a folder of
// their own.
//
//   fuzz::Input input(data, size);
//   const FaultPlan plan = fuzz::faults(input);          // the first two bytes
//   const std::string content(input.rest());
//   ...
//   fuzz::require(after == before, "what was read changes nothing");
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "base/files/FileUtils.h"
#include "testing/faults/FaultInjector.h"
#include "testing/host/EmptyFolder.h"

namespace fuzz {

// Names a law that is broken and ends the process, so that the fuzzer keeps the input.
inline void require(bool holds, const char* law) {
  if (holds) return;
  (void)std::fprintf(stderr, "broken law: %s\n", law);
  std::abort();
}

// Hands out an input from its start. Where it is used up, bytes are 0.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  unsigned byte() {
    if (rest_.empty()) return 0;
    const auto first = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return first;
  }

  // What was not handed out yet.
  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

// One byte says how often what follows is repeated, so that files grow beyond every buffer: '@' is 64 times. The whole
// ends below `limit` bytes, wherever that is.
inline std::string repeatedRest(Input& input, std::size_t limit) {
  const unsigned byte = input.byte();
  std::string content(input.rest());
  const std::size_t size = content.size();
  for (unsigned copies = byte * byte / 64; copies > 1 && content.size() + size < limit; --copies) {
    content.append(content, 0, size);
  }
  return content;
}

// Two bytes: the lowest bits of the first say whether nothing fails ('@'), one system call fails once ('A'), it and all
// later ones fail ('B') or reads and writes move a byte at a time ('C'); the second says which call fails, '@' the
// first.
inline FaultPlan faults(Input& input) {
  enum : unsigned { none, once, fromThereOn, shortTransfers, kinds };
  const unsigned kind = input.byte() % kinds;
  const unsigned place = 1 + input.byte() % 64;
  FaultPlan plan;
  plan.at = kind == once || kind == fromThereOn ? place : 0;
  plan.fromThereOn = kind == fromThereOn;
  plan.oneByteAtATime = kind == shortTransfers;
  return plan;
}

// Makes its calls under the plan. True when none of them failed; the names of those that did are added to `refused`.
template <typename Operation>
bool runUnder(const FaultPlan& plan, Operation operation, std::vector<std::string>* refused = nullptr) {
  const ArmedFaults armed(plan);
  operation();
  if (plan.at == 0 || armed.count() < plan.at) return true;
  if (refused == nullptr) return false;
  const std::vector<std::string> calls = armed.calls();
  const auto first = calls.begin() + static_cast<std::ptrdiff_t>(plan.at - 1);
  refused->insert(refused->end(), first, plan.fromThereOn ? calls.end() : first + 1);
  return false;
}

// Requires that what was open at its begin, and nothing else, is open at its end.
class NothingStaysOpen {
 public:
  NothingStaysOpen() : free_(lowestFree()) {}
  ~NothingStaysOpen() { require(lowestFree() == free_, "no descriptor stays open"); }
  NothingStaysOpen(const NothingStaysOpen&) = delete;
  NothingStaysOpen& operator=(const NothingStaysOpen&) = delete;

 private:
  static int lowestFree() {
    const int fd = ::dup(STDERR_FILENO);
    (void)::close(fd);
    return fd;
  }

  int free_;
};

// A folder (in ZUV_TMP_DIR: best in memory) for a file and its lock; it goes at the end of the process.
class Folder {
 public:
  Folder() {
    path_ = FileUtils::tempDir() + "fuzz.XXXXXX";
    require(::mkdtemp(path_.data()) != nullptr, "a folder can be made");
    path_ += '/';
    (void)::setenv("ZUV_LOCK_DIR", path_.c_str(), 1);
  }
  ~Folder() {
    (void)emptyFolder(path_);
    (void)::rmdir(path_.c_str());  // at the end of the process nobody could be told
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline void writeFile(const std::string& path, const std::string& content) {
  require(FileUtils::writeString(path, content, false).isSuccess(), "a file can be written");
}

inline std::string contentOf(const std::string& path) {
  std::string content;
  require(FileUtils::readFile(path, content).isSuccess(), "a file can be read");
  return content;
}

}  // namespace fuzz
