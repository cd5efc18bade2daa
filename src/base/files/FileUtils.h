// FileUtils: file-system operations over plain paths.
//
//   Status s = FileUtils::writeString(path, "lab", true);       // whole file, mode 0640
//   if (!s.isSuccess()) return s;
//   std::string name;
//   s = FileUtils::readFirstLine(path, name);                   // "lab"; a missing file gives "" and success
//
// Every operation that can fail returns a status and throws nothing; predicates answer false, 0 or -1. A path is a byte
// string. An empty one, or one with a zero byte, is "invalid argument" before any system call.
//
// Reading follows links. What was opened is looked at: anything but a regular file counts as one that cannot be opened,
// /dev/null as an empty file, and what a link finds in /proc as one that cannot be opened either. Nothing blocks on a
// FIFO, neither a reader nor a writer. Descriptors are close-on-exec. Writing follows links that root or our own user
// made. Somebody else's counts as a file that cannot be opened.
//
// Writing whole files changes them in place: the new bytes are written first, then the file is cut to its new length,
// so that a full disk never empties a file; links and the owner stay. A file that did not exist before is removed again
// when writing it fails. Every write and close is checked; a failure is "stdlib error: file write".
//
// Threads: re-entrant; the two cached directories are safe to be asked for first by several threads at once.
// Other processes: those that write one file take turns (see FileWriter); for more see FileLock.h and KeyValueFile.h.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

namespace FileUtils {

// The string-list type, for callers that append and take away at both ends.
using StringList = std::deque<std::string>;

// --- Whole files and lines

// Reads the whole file, up to the size it has at the start; one that ends earlier gives what there was. `bytes` is
// cleared first. An empty file is not opened at all. Statuses: "file stat" (not there), "file open", "file read".
Status readFile(const std::string& path, std::string& bytes);

// Replaces the content of the file; mode 0640 whatever the umask (a failure to set it is no failure). No bytes make an
// empty file. Statuses: "file open" (not a regular file, too), "file write".
Status writeFile(const std::string& path, const void* data, std::size_t length);
// The same with a text, and one newline behind it when `addNewline` is set.
Status writeString(const std::string& path, const std::string& text, bool addNewline);
// The same with each text followed by a newline.
Status writeLines(const std::string& path, const std::vector<std::string>& lines);
Status writeLines(const std::string& path, const StringList& lines);

// Reads all lines, without the CR, LF and NUL bytes at their ends; empty lines included. `lines` is cleared first, and
// on failure too. Zero bytes inside a line are kept. Statuses: "file open" (not there, too), "file read" (also for a
// line of 9,999,500 bytes and more, so that rewriting what was read never cuts a file).
Status readLines(const std::string& path, std::vector<std::string>& lines);
Status readLines(const std::string& path, StringList& lines);

// The first line that is not empty after trimming everything outside 33..126 at both ends, trimmed. `line` is cleared
// first; a file without such a line, or with an over-long one before it, is success with an empty line.
// A file that cannot be opened: success with an empty line, unless it is an existing regular file: "file open".
// Statuses: "file open", "file read".
Status readFirstLine(const std::string& path, std::string& line);
// The same for a path relative to an open directory (see openDirectory); built for stores of 100,000 profiles: a line
// that lies in the first 4 KiB costs open, fstat, read and close, and no allocation besides the result.
Status readFirstLineAt(int directoryFd, const char* path, std::string& line);

// --- Questions (false, 0 or -1 for an empty path or a failed stat; links are followed)

bool fileExists(const std::string& path);
bool isRegularFile(const std::string& path);
bool isDirectory(const std::string& path);
bool isFifo(const std::string& path);
// A directory itself, not a link to one.
bool isRealDirectory(const std::string& path);
// Bytes, or -1.
std::int64_t fileSize(const std::string& path);
// Microseconds since 1970, whole seconds only, or 0.
std::int64_t fileModifiedMicros(const std::string& path);
// Whether a regular file was modified less than `maxAgeMicros` ago.
bool isFreshRegularFile(const std::string& path, std::int64_t maxAgeMicros);
// Whether the path can be opened for writing without waiting; a FIFO can only while somebody reads from it.
bool fifoHasReader(const std::string& path);

// The working directory, when it fits 4,095 bytes; else "getcwd" and an empty `dir`.
Status getCurrentDir(std::string& dir);
// "/etc/zuv/", the root of the product's configuration.
const char* configRoot();

// --- Creating, removing, renaming

// mkdir with the mode less the umask; whatever already has that name is success. Not recursive. Status: "mkdir".
Status makeDir(const std::string& path, mode_t mode);

// mkdir of a directory that must be new, with exactly `mode` whatever the umask. For choosing numbered names: mkdir
// itself decides. `exists` means an entry of any kind, also a link that leads nowhere. When only the mode cannot be set
// the directory is removed again: `failed`.
enum class NewDir { made, exists, failed };
NewDir makeNewDir(const std::string& path, mode_t mode);

// chmod; success also when it fails and the nine permission bits are already those of `mode`. Status: "chmod".
Status setMode(const std::string& path, mode_t mode);

// A missing path is success for all three. Statuses: "unlink", "rmdir"; removePath tries removeFile first, and when
// that fails its result is that of removeDir.
Status removeFile(const std::string& path);
Status removeDir(const std::string& path);
Status removePath(const std::string& path);

// Removes an absolute path with everything below it. A relative path and "/" (in any spelling) are "invalid argument".
// Anything but a directory is unlinked. Links are unlinked, never gone through, and a directory is looked at again
// before it is entered. Entries that listDirectory puts under `others` (FIFOs, sockets, devices, links whose text leads
// nowhere) stay, and then the last step fails: "rmdir". What fails on the way is passed over. Any depth, with few
// descriptors. `last` names a file of the directory itself that goes after all else in it that can go, so that whoever
// finds the rest of a process that ended on its way finds that file, too.
Status removeTree(const std::string& path, std::string_view last = {});

// rename(2). Without `overwrite` an existing regular file at `to` is a failure and both stay. Status: "rename".
Status renameFile(const std::string& from, const std::string& to, bool overwrite);

// Copies the bytes that `from` has at the start (one that ends earlier is copied as far as it goes), mode 0644 whatever
// the umask; owner and times are not copied. A destination that was not there is removed again after a failure. Of
// `from` too only trusted links are followed, since everybody may read the copy.
// Statuses, with the path as details and "copyFile" as context: "file open", "file read", "file write". "invalid
// argument" without details: an empty path, no file at `from`, or both the same file.
Status copyFile(const std::string& from, const std::string& to);

// Makes a new file named `base`, "." and six letters or digits, mode 0644 less the umask, and returns a stream opened
// "w+" that the caller closes, with its name in `pathOut`. At most 11 names are tried, each failure is logged. Null,
// and `pathOut` unchanged: all failed, or the name would be longer than 4,095 bytes (nothing is logged then).
std::FILE* makeUniqueFile(const std::string& base, std::string& pathOut);

// --- Directories

// The names in a directory by kind, without "." and "..", in the order the system gives them.
struct DirectoryListing {
  std::string path;
  Status status;
  std::vector<std::string> directories;
  std::vector<std::string> files;
  std::vector<std::string> linksToDirectories;
  std::vector<std::string> linksToFiles;
  std::vector<std::string> others;
};

// Lists a directory. A link counts by what its text leads to; a relative text is taken from the working directory of
// the process, not from the link's directory, which is deliberate. A text that leads nowhere is under `others`, a link
// that cannot be read nowhere; neither is a failure. A type that the directory read leaves open is looked up. Statuses:
// "invalid argument", "opendir" (a directory that cannot be read to its end, too; the lists hold what was seen).
DirectoryListing listDirectory(const std::string& path);

// The same for an open directory; `path` stays empty and the descriptor's own position does not move.
DirectoryListing listOpenDirectory(int directoryFd);

// Opens a directory for the functions that work relative to one; not open when it is no directory (errno).
UniqueFd openDirectory(const std::string& path);

// Appends the names of the real directories, never links to one, in the order the system gives them; the descriptor's
// own position does not move. Names that begin with "." are included, "." and ".." are not. Status: "opendir" when it
// cannot be read to its end; then `names` is as it was.
Status listRealDirectories(int directoryFd, std::vector<std::string>& names);

// The kind of a directory entry, as in d_type: `type` itself, or, where the directory read left it open (DT_UNKNOWN),
// what a look at the entry says. Links are not followed. DT_UNKNOWN when that look fails.
unsigned char entryType(int directoryFd, const char* name, unsigned char type);

// --- Directories of the program

// ZUV_TMP_DIR, or "/tmp/"; ZUV_LOCK_DIR, or "/tmp/lock/"; always ending in "/". Read once per process; later changes of
// the environment are not seen. At that moment the directory is made, mode 0750, whether that works or not.
const std::string& tempDir();
const std::string& lockDir();

}  // namespace FileUtils
