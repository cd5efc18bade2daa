// NameRepair: gives a profile a display name that no other profile has.
//
//   NameRepair::Limit limit;                                  // in a command, for all its repairs
//   std::string name;
//   const auto result = NameRepair::run(dir, listedName, makeUnique, name);
//
// Other processes write names too, and the directory may belong to somebody else. So a repair locks the name file,
// reads it once more through that descriptor, and makes the new name from nothing but what it finds there. A name that
// another process has written in the meantime is not replaced if it can stay. On disk: the file is written in place,
// mode 0640. If an untrusted link, a link that leads to a directory or to a place where no file can be created, a FIFO,
// a socket or a device has the name of the file, a regular file replaces it. A directory of that name stays.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "base/system/WaitLimit.h"

namespace NameRepair {

// All repairs in the scope of one Limit together wait for locks for one second at most.
struct Repairs {
  static constexpr std::chrono::seconds longestWait{1};
};
using Limit = WaitLimit<Repairs>;

enum class Result {
  done,        // the name is on the disk
  notWritten,  // another process kept the lock, or the repair failed where somebody else may write in the directory
  gone,        // the directory has gone
  failed,      // any other failure
};

// Returns the name for a profile whose file holds `found`, which is empty if it holds none. It may be `found` itself.
using Choose = std::function<std::string(const std::string& found)>;

// Repairs the name of the profile in the directory `dir`. `listed` is what its file held before. Sets `name` to the
// name chosen from what the file holds, or from `listed` if the file was not read; it means nothing if the result is
// gone or failed.
Result run(const std::string& dir, const std::string& listed, const Choose& choose, std::string& name);

}  // namespace NameRepair
