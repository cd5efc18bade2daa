// OldBytes: the bytes that a write in place overwrites, so that a write that fails can be undone.
//
//   OldBytes old;
//   old.keep(fd, sizeOfTheFile, lengthOfTheNewContent);    // before the first write
//   if (!writeFully(fd, content)) old.putBack(fd);
//
// Memory: at most 4 KiB more than the new content has. Of a file that is longer only the beginning is kept, which is
// all that a write overwrites; once such a file has been cut, it cannot be put back. Other processes: the caller holds
// them off. A process that dies in between puts nothing back.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

class OldBytes {
 public:
  // Keeps what a write of `length` bytes at the start of the open file overwrites. Keeps nothing if that cannot be
  // read.
  void keep(int fd, off_t size, std::size_t length);
  bool isKept() const { return kept_ != Kept::nothing; }

  // The file has been cut. Forgets bytes of a file of which only the beginning is kept.
  void noteCut();

  // Writes the bytes back and cuts the file to its old length if it has become longer. Then forgets them. A failure is
  // ignored: the caller reports the one before it.
  void putBack(int fd);
  void forget() { kept_ = Kept::nothing; }

 private:
  enum class Kept { nothing, beginning, wholeFile };

  std::string bytes_;  // has no meaning while kept_ is `nothing`
  Kept kept_ = Kept::nothing;
};
