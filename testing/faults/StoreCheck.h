// StoreCheck: what is wrong with a store after something rough has happened to it.
//
//   EXPECT_THAT(flawsOfStore(), testing::IsEmpty());
//
// A literal model of what a sound store looks like on the disk, which knows nothing of the product: every file is
// whole, no temporary file and no lock file is left. What a file says, and which profiles there are, is not looked at:
// a profile that was being removed may lack any of its files.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "testing/host/HostFiles.h"

// One line for each flaw, with the path and the content; empty for a sound store. `profiles` ends with "/".
std::vector<std::string> flawsOfStore(const std::string& profiles = host::kProfiles);

// One line for each file in the lock directory.
std::vector<std::string> staleLocks(const std::string& lockFolder = "/tmp/lock");

// The pairs of a configuration file by key; of several with one key the last. A missing file has none.
std::map<std::string, std::string> pairsOf(const std::string& path);
