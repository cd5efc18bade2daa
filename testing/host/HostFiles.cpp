#include "testing/host/HostFiles.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "testing/host/EmptyFolder.h"
#include "testing/host/Places.h"
#include "testing/host/PrivateHost.h"

namespace fs = std::filesystem;

namespace host {
namespace {

void must(bool worked, const std::string& what) {
  if (!worked) throw std::runtime_error(what + ": " + std::strerror(errno));
}

struct stat infoOf(const std::string& path) {
  struct stat info {};
  must(::lstat(path.c_str(), &info) == 0, "stat " + path);
  return info;
}

std::string octal(mode_t mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

std::string treeLine(const std::string& path, const std::string& shown) {
  const mode_t mode = infoOf(path).st_mode;
  const std::string modeAndName = " " + octal(mode) + " " + shown;
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "d" + modeAndName + "\n";
    case S_IFREG:
      return "f" + modeAndName + " " + quoted(readFile(path)) + "\n";
    case S_IFLNK:
      return "l " + shown + " -> " + fs::read_symlink(path).string() + "\n";
    case S_IFIFO:
      return "p" + modeAndName + "\n";
    case S_IFSOCK:
      return "s" + modeAndName + "\n";
    default:
      return "c" + modeAndName + "\n";
  }
}

// The contents of programs of the machine that a stand-in replaced, by path. reset() restores them.
std::map<std::string, std::string> displaced;

void displace(const std::string& path) {
  const bool isOurs = displaced.count(path) != 0;
  if (!isOurs && fs::is_regular_file(path)) displaced[path] = readFile(path);
  fs::remove(path);
}

void putBack() {
  for (const auto& [path, program] : displaced) {
    fs::remove(path);
    writeFile(path, program, 0755);
  }
  displaced.clear();
}

constexpr unsigned kFileCapabilities = 1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH;

void changeEffective(bool give) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2];
  must(::syscall(SYS_capget, &header, data) == 0, "read the capabilities");
  data[0].effective =
      give ? data[0].effective | (data[0].permitted & kFileCapabilities) : data[0].effective & ~kFileCapabilities;
  must(::syscall(SYS_capset, &header, data) == 0, "change the capabilities");
}

}  // namespace

void writeFile(const std::string& path, const std::string& text, mode_t mode) {
  makeDirs(fs::path(path).parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  must(file.good(), "write " + path);
  setMode(path, mode);
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  must(file.is_open(), "read " + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void writeSparse(const std::string& path, off_t size, const Islands& islands) {
  writeFile(path, "");
  must(::truncate(path.c_str(), size) == 0, "enlarge " + path);
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  for (const Island& island : islands) {
    file.seekp(island.offset);
    file << island.text;
  }
  file.close();
  must(file.good(), "write " + path);
}

void makeDirs(const std::string& path, mode_t mode) {
  if (fs::is_directory(path)) return;
  const mode_t callersMask = ::umask(022);
  std::error_code failure;
  fs::create_directories(path, failure);
  ::umask(callersMask);
  must(fs::is_directory(path), "make " + path);
  setMode(path, mode);
}

void makeLink(const std::string& path, const std::string& target) {
  makeDirs(fs::path(path).parent_path());
  must(::symlink(target.c_str(), path.c_str()) == 0, "link " + path);
}

void makeFifo(const std::string& path, mode_t mode) {
  makeDirs(fs::path(path).parent_path());
  must(::mkfifo(path.c_str(), mode) == 0, "make the fifo " + path);
  setMode(path, mode);
}

void makeSocket(const std::string& path) {
  makeDirs(fs::path(path).parent_path());
  must(::mknod(path.c_str(), S_IFSOCK | 0666, 0) == 0, "make the socket " + path);
}

void remove(const std::string& path) {
  errno = EBUSY;
  must(!fs::is_directory(fs::symlink_status(path)) || emptyFolder(path), "empty " + path);
  fs::remove(path);
}

bool exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

mode_t modeOf(const std::string& path) { return infoOf(path).st_mode & 07777; }

void giveTo(uid_t uid, const std::string& path) { must(::lchown(path.c_str(), uid, uid) == 0, "give away " + path); }

void setMode(const std::string& path, mode_t mode) {
  must(::chmod(path.c_str(), mode) == 0, "set the mode of " + path);
}

std::string tree(const std::string& folder) {
  if (!fs::is_directory(folder)) return "";
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(folder))
    paths.push_back(entry.path().lexically_relative(folder));
  std::sort(paths.begin(), paths.end());
  std::string text;
  for (const std::string& path : paths) text += treeLine((fs::path(folder) / path).string(), path);
  return text;
}

std::string quoted(const std::string& text) {
  std::string shown = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(byte));
    if (c == '\n') {
      shown += "\\n";
    } else if (c == '\t') {
      shown += "\\t";
    } else if (c == '\r') {
      shown += "\\r";
    } else if (c == '"' || c == '\\') {
      shown += std::string("\\") + c;
    } else if (byte < 32 || byte > 126) {
      shown += hex;
    } else {
      shown += c;
    }
  }
  return shown + "\"";
}

bool unquoted(const std::string& text, std::string* plain) {
  plain->clear();
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return false;
  const size_t end = text.size() - 1;
  for (size_t at = 1; at < end; ++at) {
    if (text[at] == '"') return false;
    if (text[at] != '\\') {
      *plain += text[at];
      continue;
    }
    if (++at >= end) return false;
    const size_t known = std::string("ntr\"\\").find(text[at]);
    if (known != std::string::npos) {
      *plain += "\n\t\r\"\\"[known];
    } else if (text[at] == 'x' && at + 2 < end) {
      *plain += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
      at += 2;
    } else {
      return false;
    }
  }
  return true;
}

void installScript(const std::string& path, const std::string& body) {
  displace(path);
  writeFile(path, "#!/bin/sh\n" + body, 0755);
}

void installRecorder(const std::string& path, const std::string& record, int exitStatus) {
  installScript(path, "echo \"$(basename \"$0\") $*\" >> " + record + "\nexit " + std::to_string(exitStatus) + "\n");
}

std::string recordedCalls() { return exists(kCalls) ? readFile(kCalls) : ""; }

void installDaemon() {
  remove("/usr/sbin/hip");
  writeFile("/usr/sbin/hip", readFile(places::hipStandin()), 0755);
}

void writeHeartbeat(const std::string& profileFolder, int peers) {
  const auto now = std::to_string(::time(nullptr) + 600);
  const auto started = std::to_string(::time(nullptr) - 60);
  writeFile(profileFolder + "/hipvars.txt", "uptime.now=" + now + "\nuptime.started=" + started +
                                                "\nhipd_state=running\npeers.count=" + std::to_string(peers) +
                                                "\nhelmsor.up=true\n");
}

void makeProfile(const std::string& dirname, const std::string& name) {
  const std::string folder = kProfiles + dirname;
  makeDirs(folder);
  writeFile(folder + "/profile_name", name + "\n", 0640);
  writeFile(folder + "/hip.conf", "");
}

void makeActive(const std::string& dirname) { writeFile(kCurrent, dirname + "\n", 0666); }

void reset() {
  if (!PrivateHost::inside()) throw std::runtime_error("not on a private host, so the machine's files are left alone");
  putBack();
  for (const char* path : {"/etc/zuv", "/etc/init.d", "/usr/bin/systemctl", "/usr/sbin/initctl", "/usr/sbin/hip",
                           "/usr/bin/zuv-sendbundle.sh"}) {
    remove(path);
  }
  for (const char* folder : {"/tmp", "/run"}) (void)emptyFolder(folder);  // false means that a mount stays
  makeDirs(kProfiles);
  makeDirs("/tmp/lock", 01777);
}

bool hasOtherUsers() {
  // The third number is the count of users: 1 in the namespace of an ordinary user, the whole range for root.
  unsigned long inside = 0, outside = 0, count = 0;
  return std::sscanf(readFile("/proc/self/uid_map").c_str(), "%lu %lu %lu", &inside, &outside, &count) == 3 &&
         count > 1;
}

SmallDisk::SmallDisk(const std::string& folder, size_t bytes) : folder_(folder) {
  makeDirs(folder);
  must(::mount("small-disk", folder.c_str(), "tmpfs", 0, ("mode=755,size=" + std::to_string(bytes)).c_str()) == 0,
       "mount on " + folder);
}

SmallDisk::~SmallDisk() { (void)::umount2(folder_.c_str(), MNT_DETACH); }

void fillDisk(const std::string& folder) {
  for (int i = 0;; ++i) {
    try {
      writeFile(folder + "/filler" + std::to_string(i), std::string(4096, 'x'));
    } catch (const std::runtime_error&) {
      return;
    }
  }
}

FileSizeLimit::FileSizeLimit(rlim_t bytes) : oldAction_(std::signal(SIGXFSZ, SIG_IGN)) {
  must(::getrlimit(RLIMIT_FSIZE, &old_) == 0, "getrlimit");
  const rlimit limited = {bytes, old_.rlim_max};
  must(::setrlimit(RLIMIT_FSIZE, &limited) == 0, "setrlimit");
}

FileSizeLimit::~FileSizeLimit() {
  (void)::setrlimit(RLIMIT_FSIZE, &old_);
  (void)std::signal(SIGXFSZ, oldAction_);
}

BoundByModes::BoundByModes() { changeEffective(false); }
BoundByModes::~BoundByModes() { changeEffective(true); }

void bindByModesForGood() {
  must(::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) == 0 && ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH) == 0,
       "drop capabilities");
  changeEffective(false);
}

}  // namespace host
