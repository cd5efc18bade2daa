// StoreCheck: finds damage in a store after a crash, a fault or a race.
//
//   EXPECT_THAT(flawsOfStore(), testing::IsEmpty());
//
// It is independent of the product. In a sound store every file is complete and no temporary file is left. It does not
// check the values in the files or which profiles exist: a profile that was being removed may lack any of its files.
// A directory that a delete has renamed may also hold an empty file: another process created it just before the rename
// and then could not find it at its path.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "testing/host/HostFiles.h"

// Returns a line for each damaged or leftover file, with its path and content; nothing for a sound store. `profiles`
// must end with "/".
std::vector<std::string> flawsOfStore(const std::string& profiles = host::kProfiles);

// Returns the path of each file in the lock directory.
std::vector<std::string> staleLocks(const std::string& lockFolder = "/tmp/lock");

// Returns the values of a configuration file by key. If a key occurs twice, the last value counts. A missing file has
// no keys.
std::map<std::string, std::string> pairsOf(const std::string& path);
