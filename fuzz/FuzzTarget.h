// FuzzTarget: what the fuzz targets share. It checks laws, takes the input apart, chooses faults from the input and
// creates a temporary folder.
//
//   fuzz::Input input(data, size);
//   const FaultPlan plan = fuzz::faults(input);          // the first two bytes
//   const std::string content(input.rest());
//   ...
//   fuzz::require(after == before, "reading changes nothing");
#pragma once

#include <fcntl.h>
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

// Does nothing if the law holds. Otherwise prints the law and aborts, so that the fuzzer keeps the input.
inline void require(bool holds, const char* law) {
  if (holds) return;
  (void)std::fprintf(stderr, "broken law: %s\n", law);
  std::abort();
}

// Reads an input from its start. After the end of the input every byte is 0.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  unsigned byte() {
    if (rest_.empty()) return 0;
    const auto first = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return first;
  }

  // The bytes that were not read yet.
  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

// Reads a byte that says how often to repeat the remaining input, so that files grow larger than every buffer; '@'
// means 64 times. Returns the repeated text. The repetition stops before the text reaches `limit` bytes.
inline std::string repeatedRest(Input& input, std::size_t limit) {
  const unsigned byte = input.byte();
  std::string content(input.rest());
  const std::size_t size = content.size();
  for (unsigned copies = byte * byte / 64; copies > 1 && content.size() + size < limit; --copies) {
    content.append(content, 0, size);
  }
  return content;
}

// Reads two bytes and returns the plan that they choose. The lowest bits of the first byte choose the kind: no fault
// ('@'), one failing call ('A'), one call and all later ones fail ('B'), reads and writes move one byte at a time
// ('C'). The second byte chooses the failing call; '@' is the first.
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

// Runs the operation under the plan. Returns true if no call failed. Otherwise appends the names of the failed calls to
// `refused`.
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

// Requires that the same descriptors are open at its end as at its start. It looks at the first 32.
class NothingStaysOpen {
 public:
  NothingStaysOpen() : open_(openDescriptors()) {}
  ~NothingStaysOpen() { require(openDescriptors() == open_, "no descriptor stays open"); }
  NothingStaysOpen(const NothingStaysOpen&) = delete;
  NothingStaysOpen& operator=(const NothingStaysOpen&) = delete;

 private:
  static std::uint32_t openDescriptors() {
    std::uint32_t open = 0;
    for (int fd = 0; fd < 32; ++fd) {
      if (::fcntl(fd, F_GETFD) != -1) open |= std::uint32_t{1} << static_cast<unsigned>(fd);
    }
    return open;
  }

  std::uint32_t open_;
};

// A temporary folder for a file and its lock. It is in ZUV_TMP_DIR, which should be in memory. The destructor removes
// it.
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
    (void)::rmdir(path_.c_str());  // a failure at the end of the process cannot be reported
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
