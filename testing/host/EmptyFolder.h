// emptyFolder: removes everything in a folder. Tests, fuzz targets and benchmarks empty folders with nothing else.
//
//   emptyFolder("/tmp");
//   emptyFolder(folder); ::rmdir(folder.c_str());
//
// It never leaves the file system of the folder: a folder on which something is mounted keeps its contents, and the
// folders above it stay too. Bind mounts of the same file system count as mounts. It never follows a link.
// Other processes: if one changes the folder during the call, some entries may stay. It cannot redirect the removal to
// another place, because emptyFolder() opens every folder without following links and examines it before it enters it.
#pragma once

#include <string>

// Returns true if the folder is empty afterwards or does not exist. Returns false if an entry stays: a mount, a file on
// which another file is mounted, or an entry that the caller may not remove. Even then everything else is removed.
bool emptyFolder(const std::string& folder);
