// OpenAt2: the system call openat2(2), which libc does not have.
#pragma once

#include <sys/types.h>

#include <cstdint>

extern "C" {

// Opens a file as openat does, with the RESOLVE_ flags of <linux/openat2.h> for the way to it. Returns -1 and sets
// errno on failure.
// The name has C linkage, so that tests can make the call fail.
int openAt2(int directoryFd, const char* path, int flags, mode_t mode, std::uint64_t resolve);
}
