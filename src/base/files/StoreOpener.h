// StoreOpener: opens files of the store. Parts of the store may belong to somebody else, who could choose by a link
// which file root reads, copies or changes. So the way to every file of the store is walked by this one function.
//
//   StoreFile file = openInStore(AT_FDCWD, "/etc/zuv/profiles/profile-7/hip.conf", O_RDONLY, Follow::forReading);
//   if (!file.fd.isOpen()) return ...;                  // errno holds the reason; ELOOP: a link that is not followed
//
// A link is trusted if root or our own user owns both the link and the directory in which it lies, and if nobody else
// may write in that directory: neither others, nor a group other than the owner's own (the one with the owner's
// number), nor anybody by an access list. Every link on the way counts, also one in the place of a directory. Plain
// directories on the way do not count.
//
// A regular file with more than one name cannot be opened if its owner is not the owner of the directory: a hard link
// would choose a file as a symbolic link does.
//
// How: openat2(2) with RESOLVE_NO_SYMLINKS opens a file without a link on its way in one system call. If there is a
// link, or if the system has no openat2, the way is walked component by component.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "base/system/UniqueFd.h"

enum class Follow {
  trusted,     // only trusted links
  forReading,  // also a link whose owner owns its directory and the regular file, with one name, to which it leads: a
               // daemon's own log rotation makes such links; and any link to /dev/null
};

struct StoreFile {
  UniqueFd fd;
  struct stat info = {};  // of the file, if it is open
  // Where the file itself lies, behind all links: `name` from `directory`, or from `start` if `directory` is not open.
  UniqueFd directory;
  int start = AT_FDCWD;  // the directory from which openInStore was to start; borrowed
  std::string name;

  int place() const { return directory.isOpen() ? directory.get() : start; }
};

// True if both belong to the same file.
inline bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
// True if it belongs to the device /dev/null, which counts as an empty file wherever a regular file is expected.
bool isNullDevice(const struct stat& info);

// Opens the file at `path` with the flags of open(2). O_CLOEXEC, O_NONBLOCK, O_NOCTTY and O_NOFOLLOW are added. O_CREAT
// also creates the missing target of a link that is followed; use it only after an opening without it has found no
// file, because a file that then cannot be examined is removed again. Behind an untrusted link nothing is opened before
// a stat has shown that it may be: to open a device can already have an effect. Nor is a file opened there unless
// statfs shows that it is not in /proc, which has endless files that stat reports as regular. On failure `fd` is not
// open and errno holds the reason.
StoreFile openInStore(int directoryFd, const char* path, int flags, Follow follow, mode_t mode = 0);

// Opens a directory of the store in the same way, over trusted links only, and without a stat where there is no link. A
// link in the place of the directory itself is followed if the path ends with a slash. If that fails, the result is not
// open and errno holds the reason.
UniqueFd openDirectoryInStore(const char* path, int flags);

// Returns true if somebody other than root and our own user may write in an open directory.
bool othersMayWrite(int directoryFd, const struct stat& directory);

// Returns true if the path is, or leads over, a link that is not trusted.
bool leadsOverUntrustedLink(const std::string& path);
