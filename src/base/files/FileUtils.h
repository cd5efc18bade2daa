// FileUtils: file-system operations over plain paths. This is what holds for all of them; each is in a header below.
//
// Every operation that can fail returns a status and throws nothing; predicates answer false, 0 or -1. A path is a byte
// string. An empty one, or one with a zero byte, is "invalid argument" before any system call. Nothing blocks on a
// FIFO, neither a reader nor a writer. Descriptors are close-on-exec. Threads: re-entrant. Other processes: those that
// write one file take turns (see FileAccess.h); for more see FileLock.h and KeyValueFile.h.
#pragma once

#include "base/files/CopyFile.h"
#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/FileInfo.h"
#include "base/files/ProgramDirectories.h"
#include "base/files/RemoveTree.h"
#include "base/files/UniqueFile.h"
#include "base/files/WholeFile.h"
