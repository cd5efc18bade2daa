// emptyFolder: the one function that tests, fuzz targets and benchmarks empty a folder with.
//
//   emptyFolder("/tmp");
//   emptyFolder(folder); ::rmdir(folder.c_str());
//
// It never leaves the file system on which it began: a folder on which something is mounted stays with everything in
// it, and so do the folders above it. Bind mounts of the same file system count as mounts. It never follows a link.
// Single-threaded use: another process that changes the folder meanwhile may leave entries behind, but cannot lead the
// removal elsewhere, because every folder is opened without following links and examined before it is entered.
#pragma once

#include <string>

// Returns true when the folder is empty afterwards, also when it does not exist. Returns false when an entry stays: a
// mount, a file on which another one is mounted, or one that the caller may not remove. Everything else is gone then.
bool emptyFolder(const std::string& folder);
