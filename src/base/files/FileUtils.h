// FileUtils: file-system operations on plain paths. The headers below declare them; these rules hold for all of them:
//
// - An operation that can fail returns a status and throws nothing. A predicate or query returns false, 0 or -1
//   instead.
// - A path is a byte string. An empty path, or one with a zero byte, is "invalid argument" before any system call.
// - No operation waits for the other end of a FIFO. A write to a FIFO that has a reader may wait for the reader.
// - Every descriptor is close-on-exec.
// - Only makeUniqueFile logs.
// - Threads: all functions may be called from several threads at once.
// - Other processes: writers of one file take turns (see FileAccess.h). FileLock.h and KeyValueFile.h say more.
#pragma once

#include "base/files/CopyFile.h"
#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/FileInfo.h"
#include "base/files/ProgramDirectories.h"
#include "base/files/RemoveTree.h"
#include "base/files/UniqueFile.h"
#include "base/files/WholeFile.h"
