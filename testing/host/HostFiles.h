// What tests do to the files of the private host. Everything here throws std::runtime_error when it does not work: a
// test that cannot set its scene has failed.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace host {

// Paths that the tests name again and again.
constexpr const char* kProfiles = "/etc/zuv/profiles/";
constexpr const char* kCurrent = "/etc/zuv/profiles/.current";
constexpr const char* kFactory = "/etc/zuv/profiles/.factory";

// Writes a whole file, making the folders above it; `mode` is what it has afterwards, whatever the umask and whether it
// was there before.
void writeFile(const std::string& path, const std::string& text, mode_t mode = 0644);
std::string readFile(const std::string& path);
// Writes a file of `size` bytes, which are zero, and on the disk holes, but for some texts. Its mode is 0644.
struct Island {
  off_t offset;
  std::string text;
};
using Islands = std::vector<Island>;
void writeSparse(const std::string& path, off_t size, const Islands& islands);

// All missing folders of the path; `mode` is given to the last one.
void makeDirs(const std::string& path, mode_t mode = 0755);
void makeLink(const std::string& path, const std::string& target);
void makeFifo(const std::string& path, mode_t mode = 0644);
void makeSocket(const std::string& path);
// Removes a file, or a folder with everything in it; a path where nothing exists is fine. Throws when a mount
// in the folder keeps it (see EmptyFolder.h).
void remove(const std::string& path);

bool exists(const std::string& path);  // a link that leads nowhere exists
// The permission bits, of the link itself for a link.
mode_t modeOf(const std::string& path);
// Makes another user, of the group of that number, the owner, of the link itself for a link; needs the machine's root.
void giveTo(uid_t uid, const std::string& path);
void setMode(const std::string& path, mode_t mode);

// Everything below a folder as one text to compare, a line for each entry, sorted by path:
//   d 0755 profile-1
//   f 0640 profile-1/profile_name "lab\n"
//   l profile-2 -> profile-1
//   p 0644 queue
//   s 0755 socket
// Contents are quoted as by quoted(). A folder that is not there gives an empty text.
std::string tree(const std::string& folder);

// The text between double quotes, with \n \t \r \" \\ and \xHH for every byte that does not print. unquoted() takes it
// back, and is false when the text is not so written.
std::string quoted(const std::string& text);
bool unquoted(const std::string& text, std::string* plain);

// An executable shell script: `body` below a first line "#!/bin/sh". It takes the place of a program of that name.
void installScript(const std::string& path, const std::string& body);
// A script that notes each call in `record`, one line of its name and words, and exits with `exitStatus`.
void installRecorder(const std::string& path, const std::string& record, int exitStatus = 0);
// The stand-in daemon, as /usr/sbin/hip.
void installDaemon();

// A heartbeat file of a daemon that has been up for a minute, connected and with `peers` peers. Its last beat lies ten
// minutes ahead, so that it does not grow old while a slow machine gets on with the test.
void writeHeartbeat(const std::string& profileFolder, int peers = 1);

// A profile as the program makes it: the folder, its profile_name and an empty hip.conf.
void makeProfile(const std::string& dirname, const std::string& name);
void makeActive(const std::string& dirname);

// Makes the host empty again: no /etc/zuv but the empty store, no init system, empty /tmp (with the empty /tmp/lock)
// and /run, none of the stand-ins. What is mounted there stays. Throws, and changes nothing, outside of a private host.
void reset();

// Whether the host came from the machine's root, so that there are other users, chown and devices.
bool hasOtherUsers();

// A file system of its own, `bytes` large (rounded up to pages), mounted on a folder until the end of the scope.
class SmallDisk {
 public:
  SmallDisk(const std::string& folder, size_t bytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

 private:
  const std::string folder_;
};

// While it lives this thread, though of uid 0, is bound by permission bits like any owner: mode 000 is unreadable.
class BoundByModes {
 public:
  BoundByModes();
  ~BoundByModes();
  BoundByModes(const BoundByModes&) = delete;
  BoundByModes& operator=(const BoundByModes&) = delete;
};

// For good, in this process and in what it executes.
void bindByModesForGood();

}  // namespace host
