// FilePlace: tells whether a name still belongs to a file that is open. Other processes rename and replace files, so
// whoever has opened or locked one looks again before it relies on the path.
//
//   if (placeOf(fd, directoryFd, "hip.conf.temp") == Place::another) ...start over...
#pragma once

enum class Place {
  same,     // the name belongs to the open file
  another,  // it belongs to another file, or to none
  unknown,  // the system cannot tell
};

// Looks at `name` from the open directory, or from AT_FDCWD, without following a link in its place.
Place placeOf(int fd, int directoryFd, const char* name);
