// FileAttributes: the extended attributes of open files: access lists, security labels, and whatever else users and
// programs have attached to a file.
//
//   const bool isListKept = copyFileAttributes(oldFd, newFd, isOwnerKept);
//   ::fchmod(newFd, isListKept && isOwnerKept ? mode : mode & S_IRWXU);
//
// An attribute counts as an access list if it is one of the system's ("system.") and has "acl" in its name.
// Memory: a list of names and a value have at most 64 KiB each, which is the system's own limit, so a list or value
// that grows in the meantime needs no second try.
#pragma once

// Gives the file `to` exactly the attributes of the file `from`, except for capabilities: like a set-user-ID bit, they
// would make a program of another content privileged. It removes those that `from` does not have, for example an access
// list inherited from the directory. Then it sets all others, access lists last. An access list also sets the mode of
// `to`. If `isOwnerKept` is false, the permissions of others, and the mask, which limits all but the owner's, are taken
// from a POSIX list first, so that it never opens the file to another group.
//
// Returns true if `to` has the access list of `from`, or none if `from` has none. Returns false if that failed or if it
// cannot be known, because the attributes cannot be listed. Any other attribute that cannot be kept is no failure. A
// file system without attributes is no failure either.
bool copyFileAttributes(int from, int to, bool isOwnerKept);
