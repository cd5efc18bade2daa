// HostFiles: functions with which tests set up and read the files of the private host. Every function throws
// std::runtime_error on failure, because a test whose setup fails has failed.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace host {

// Paths that many tests use.
constexpr const char* kProfiles = "/etc/zuv/profiles/";
constexpr const char* kCurrent = "/etc/zuv/profiles/.current";
constexpr const char* kFactory = "/etc/zuv/profiles/.factory";
// The program with which the systemd backend stops and starts the daemon, and the file in which tests record its calls.
constexpr const char* kSystemctl = "/bin/systemctl";
constexpr const char* kCalls = "/tmp/calls";

// Writes a whole file and creates missing folders above it. Afterwards the file has the mode `mode`, whatever the umask
// is and whether or not the file existed before.
void writeFile(const std::string& path, const std::string& text, mode_t mode = 0644);
std::string readFile(const std::string& path);
// Writes a sparse file of `size` bytes with the mode 0644. It holds the text of each island at the island's offset and
// zero bytes, without disk blocks, everywhere else.
struct Island {
  off_t offset;
  std::string text;
};
using Islands = std::vector<Island>;
void writeSparse(const std::string& path, off_t size, const Islands& islands);

// Creates the folder and all missing folders above it. A new last folder gets the mode `mode`; those above get 0755.
void makeDirs(const std::string& path, mode_t mode = 0755);
void makeLink(const std::string& path, const std::string& target);
void makeFifo(const std::string& path, mode_t mode = 0644);
void makeSocket(const std::string& path);
// Removes a file, or a folder with everything in it. Does nothing if the path does not exist. Throws if something is
// mounted in the folder (see EmptyFolder.h).
void remove(const std::string& path);

bool exists(const std::string& path);  // true for a link too, even if its target is missing
// The permission bits; for a link those of the link itself.
mode_t modeOf(const std::string& path);
// Gives the file to the user `uid` and the group of the same number. A link itself changes its owner, not its target.
// Needs the machine's root user.
void giveTo(uid_t uid, const std::string& path);
void setMode(const std::string& path, mode_t mode);

// Describes everything below a folder in one text, which tests compare. It has a line for each entry, sorted by path:
//   d 0755 profile-1
//   f 0640 profile-1/profile_name "lab\n"
//   l profile-2 -> profile-1
//   p 0644 queue
//   s 0755 socket
// Contents are quoted as by quoted(). The text is empty if the folder does not exist.
std::string tree(const std::string& folder);

// quoted() returns the text between double quotes. It writes newlines, tabs, carriage returns, quotes and backslashes
// as \n \t \r \" \\ and all other bytes outside printable ASCII as \xHH. unquoted() reverses it, and returns false if
// the text is not in that form.
std::string quoted(const std::string& text);
bool unquoted(const std::string& text, std::string* plain);

// Installs an executable shell script: `body` below a first line "#!/bin/sh". It replaces a program of that path until
// the next reset().
void installScript(const std::string& path, const std::string& body);
// Installs a script that appends a line with its name and arguments to the file `record` at each call and exits with
// `exitStatus`.
void installRecorder(const std::string& path, const std::string& record, int exitStatus = 0);
// Returns the content of kCalls, which is empty if no call was recorded.
std::string recordedCalls();
// Installs the stand-in daemon as /usr/sbin/hip.
void installDaemon();

// Writes the heartbeat file of a daemon that has run for a minute, is connected and has `peers` peers. The time of the
// last heartbeat is ten minutes in the future, so that it stays fresh even if the test runs slowly.
void writeHeartbeat(const std::string& profileFolder, int peers = 1);

// Creates a profile as the program does: the folder, its profile_name and an empty hip.conf.
void makeProfile(const std::string& dirname, const std::string& name);
// Writes `.current`, so that this profile is the active one.
void makeActive(const std::string& dirname);

// Makes the host empty again: /etc/zuv holds only an empty store, there is no init system and no stand-in program, /run
// is empty and /tmp holds only the empty /tmp/lock. Mounts in these folders stay. Outside a private host it throws and
// changes nothing.
void reset();

// Returns true if the machine's root user created the host. Only then do other users, chown and device nodes work.
bool hasOtherUsers();

// Mounts a file system of `bytes` bytes (rounded up to whole pages) on a folder, and unmounts it at the end of the
// scope.
class SmallDisk {
 public:
  SmallDisk(const std::string& folder, size_t bytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

 private:
  const std::string folder_;
};
// Writes files into the folder until its file system is full.
void fillDisk(const std::string& folder);

// Until the end of its scope, this process can write no file beyond `bytes` bytes, and gets no signal when it tries.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes);
  ~FileSizeLimit();
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit old_ = {};
  void (*const oldAction_)(int);
};

// While it lives, permission bits restrict this thread although its uid is 0: it cannot read a file of mode 000.
class BoundByModes {
 public:
  BoundByModes();
  ~BoundByModes();
  BoundByModes(const BoundByModes&) = delete;
  BoundByModes& operator=(const BoundByModes&) = delete;
};

// The same for this process and every program that it executes, without a way back.
void bindByModesForGood();

}  // namespace host
