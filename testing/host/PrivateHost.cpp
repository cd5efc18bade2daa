#include "testing/host/PrivateHost.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/mount.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "testing/host/Places.h"

namespace {

using Shown = PrivateHost::Shown;

// The source name of the mounts of a private host. We are inside if the root directory is mounted from this name.
constexpr const char* kMountName = "private-host";
// The folder inside that holds what the host itself needs: the checkout and the upper layers of the overlays.
constexpr const char* kMarker = places::kInside;
// The new root is assembled here: every machine has this folder, and no checkout can be in it.
constexpr const char* kAssembly = "/proc";

// Folders of programs. Overlays keep all changes to them away from the machine.
constexpr const char* kProgramFolders[] = {"/usr/bin", "/usr/sbin", "/bin", "/sbin"};
// Programs that must not exist inside unless a test installs them.
constexpr const char* kHiddenPrograms[] = {"systemctl", "initctl", "hip", "ravctl", "zuv-sendbundle.sh"};
constexpr const char* kSharedFolders[] = {"/usr", "/lib", "/lib32", "/lib64", "/libx32", "/opt", "/nix"};
// The only files of the machine's /etc that its programs need.
constexpr const char* kSharedSettings[] = {"/etc/alternatives", "/etc/ld.so.cache", "/etc/terminfo", "/etc/inputrc"};
constexpr const char* kDevices[] = {"null", "zero", "full", "random", "urandom", "tty"};
constexpr struct {
  const char* path;
  mode_t mode;
} kOwnFolders[] = {{"/etc", 0755},  {"/dev", 0755},     {"/dev/shm", 01777}, {"/dev/pts", 0755}, {"/home", 0755},
                   {"/proc", 0555}, {"/root", 0700},    {"/run", 0755},      {"/sys", 0555},     {"/tmp", 01777},
                   {"/var", 0755},  {"/var/lib", 0755}, {"/var/log", 0755},  {"/var/tmp", 01777}};
constexpr struct {
  const char* path;
  const char* target;
} kOwnLinks[] = {{"/dev/fd", "/proc/self/fd"},       {"/dev/stdin", "/proc/self/fd/0"},
                 {"/dev/stdout", "/proc/self/fd/1"}, {"/dev/stderr", "/proc/self/fd/2"},
                 {"/dev/ptmx", "pts/ptmx"},          {"/var/run", "/run"},
                 {"/etc/mtab", "/proc/self/mounts"}};
constexpr struct {
  const char* path;
  const char* text;
} kOwnFiles[] = {{"/etc/passwd", "root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/:/usr/sbin/nologin\n"},
                 {"/etc/group", "root:x:0:\nnogroup:x:65534:\n"},
                 {"/etc/hosts", "127.0.0.1 localhost\n"},
                 {"/etc/nsswitch.conf", "passwd: files\ngroup: files\nhosts: files\n"}};

std::string reason;

bool isLink(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

bool isFolder(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string linkTarget(const char* path) {
  char text[PATH_MAX];
  const ssize_t length = ::readlink(path, text, sizeof text);
  return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
}

std::string workingFolder() {
  char text[PATH_MAX];
  return ::getcwd(text, sizeof text) != nullptr ? text : "/";
}

// Returns true if the root directory is a file system in memory with our name.
bool isRootOurs() {
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream words(line);
    std::string id, parent, device, root, mountPoint;
    words >> id >> parent >> device >> root >> mountPoint;
    const std::string kind = std::string(" - tmpfs ") + kMountName + " ";
    if (mountPoint == "/" && line.find(kind) != std::string::npos) return isFolder(kMarker);
  }
  return false;
}

std::string withoutLinks(const std::string& path) {
  char real[PATH_MAX];
  return ::realpath(path.c_str(), real) != nullptr ? real : "";
}

// The original arguments of this process. They are not those of main(), from which GoogleTest removes its own.
std::vector<std::string> ownArguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> arguments;
  for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

std::vector<std::string> ownEnvironment() {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) variables.push_back(*variable);
  return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

mode_t modeOf(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

bool writeText(const std::string& path, const std::string& text) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return ::close(fd) == 0 && written;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  DIR* const stream = ::opendir(folder.c_str());
  while (const dirent* entry = stream != nullptr ? ::readdir(stream) : nullptr) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) names.push_back(entry->d_name);
  }
  if (stream != nullptr) (void)::closedir(stream);
  return names;
}

void makeFolders(const std::string& path) {
  for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    (void)::mkdir(path.substr(0, end).c_str(), 0755);
  }
  (void)::mkdir(path.c_str(), 0755);  // if this fails, the first use of the folder fails
}

// Assembles the new root and moves into it. It runs in the first process of the new namespaces.
class Builder {
 public:
  Builder(uid_t uid, gid_t gid, std::vector<Shown> shown, const std::string& build)
      : uid_(uid),
        gid_(gid),
        program_(linkTarget("/proc/self/exe")),
        workingFolder_(workingFolder()),
        ownBuild_(places::build()),
        showsOwnBuild_(build.empty()),
        shown_(std::move(shown)) {
    shown_.push_back({places::made(), places::kMadeInside, true});
    shown_.push_back({build.empty() ? ownBuild_ : build, places::kBuildInside});
    shown_.push_back({places::source(), places::kSourceInside});
  }

  bool build() {
    const mode_t callersMask = ::umask(0);
    const bool built = findCheckout() && becomeRoot() && startRoot() && fillWithOwn() && shareMachine() &&
                       overlayPrograms() && makeDevices() && showCheckout() && moveIn();
    ::umask(callersMask);
    return built;
  }

  // Starts the program again from its path inside. Returns only on failure.
  void startAgain() {
    std::vector<std::string> arguments = ownArguments();
    std::vector<std::string> variables = ownEnvironment();
    for (std::string& argument : arguments) argument = PrivateHost::translated(argument, shown_);
    for (std::string& variable : variables) variable = PrivateHost::translated(variable, shown_);
    const std::string program = showsOwnBuild_ ? places::kBuildInside + program_.substr(ownBuild_.size())
                                               : places::kProgramsInside + program_.substr(program_.rfind('/'));
    if (!arguments.empty()) arguments[0] = program;
    ::execve(program.c_str(), pointersTo(arguments).data(), pointersTo(variables).data());
  }

 private:
  bool must(bool worked, const std::string& step) {
    if (!worked) reason = "no private host: " + step + ": " + std::strerror(errno);
    return worked;
  }

  bool becomeRoot() {
    if (uid_ == 0) return true;
    return must(writeText("/proc/self/setgroups", "deny"), "give up setgroups") &&
           must(writeText("/proc/self/uid_map", "0 " + std::to_string(uid_) + " 1"), "map the user id") &&
           must(writeText("/proc/self/gid_map", "0 " + std::to_string(gid_) + " 1"), "map the group id");
  }

  bool startRoot() {
    return must(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "detach the mounts") &&
           must(::mount(kMountName, kAssembly, "tmpfs", MS_NOSUID, "mode=755") == 0, "mount a root in memory");
  }

  bool fillWithOwn() {
    for (const auto& folder : kOwnFolders) {
      if (!must(::mkdir(in(folder.path).c_str(), folder.mode) == 0, folder.path)) return false;
    }
    for (const auto& link : kOwnLinks) {
      if (!must(::symlink(link.target, in(link.path).c_str()) == 0, link.path)) return false;
    }
    for (const auto& file : kOwnFiles) {
      if (!must(writeText(in(file.path), file.text), file.path)) return false;
    }
    return must(::mkdir(in(kMarker).c_str(), 0755) == 0, kMarker) &&
           must(::mount("proc", in("/proc").c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0,
                "mount proc");
  }

  bool shareMachine() {
    for (const char* folder : kSharedFolders) {
      if (!share(folder)) return false;
    }
    for (const char* setting : kSharedSettings) {
      if (!share(setting)) return false;
    }
    return true;
  }

  bool overlayPrograms() {
    for (const char* folder : kProgramFolders) {
      if (isLink(folder)) {
        // On most machines /bin is a link into /usr; then it is the same link inside.
        if (!exists(in(folder)) && !must(::symlink(linkTarget(folder).c_str(), in(folder).c_str()) == 0, folder))
          return false;
      } else if (!overlay(folder)) {
        return false;
      }
    }
    return true;
  }

  bool overlay(const std::string& folder) {
    std::string name = folder;
    for (char& c : name) c = c == '/' ? '-' : c;
    const std::string upper = in(kMarker) + "/upper" + name;
    const std::string work = in(kMarker) + "/work" + name;
    makeFolders(upper);
    makeFolders(work);
    for (const char* program : kHiddenPrograms) {
      // In an overlay, a device 0/0 in the upper layer hides the file below it.
      if (exists(folder + "/" + program) &&
          !must(::mknod((upper + "/" + program).c_str(), S_IFCHR, ::makedev(0, 0)) == 0,
                "hide " + folder + "/" + program)) {
        return false;
      }
    }
    const std::string options =
        "lowerdir=" + folder + ",upperdir=" + upper + ",workdir=" + work + (uid_ == 0 ? "" : ",userxattr");
    makeFolders(in(folder));
    return must(::mount(kMountName, in(folder).c_str(), "overlay", 0, options.c_str()) == 0,
                "mount an overlay on " + folder);
  }

  // Creates a device node of our own, so that not even a change of its mode reaches the machine. Only the machine's
  // root user can do it.
  bool makeOwnDevice(const std::string& path) {
    struct stat device;
    return uid_ == 0 && ::stat(path.c_str(), &device) == 0 &&
           ::mknod(in(path).c_str(), device.st_mode, device.st_rdev) == 0 && ::chmod(in(path).c_str(), 0666) == 0;
  }

  bool makeDevices() {
    for (const char* device : kDevices) {
      const std::string path = std::string("/dev/") + device;
      if (!makeOwnDevice(path) && !share(path, false)) return false;
    }
    // A failure is ignored: no test needs pseudo-terminals on a kernel that lacks them.
    (void)::mount("devpts", in("/dev/pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=620");
    return true;
  }

  bool findCheckout() {
    errno = ENOENT;
    if (!must(!ownBuild_.empty() && program_.compare(0, ownBuild_.size(), ownBuild_) == 0,
              "find the build of the program"))
      return false;
    for (Shown& shown : shown_) {
      const std::string folder = shown.folder;
      shown.folder = withoutLinks(folder);
      if (shown.at == places::kMadeInside && shown.folder.empty()) continue;  // then nothing outlives the host
      if (!must(!shown.folder.empty(), "find " + folder)) return false;
    }
    return true;
  }

  bool showCheckout() {
    for (const Shown& shown : shown_) {
      if (!(shown.folder.empty() ? makeFolder(shown.at, 01777) : show(shown))) return false;
    }
    // These are from our own build, because --build may show a build for another kind of machine.
    return makeFolder(places::kProgramsInside, 0755) && showProgram("/ravctl") && showProgram("/testing/hip-standin") &&
           showProgram("/testing/tracee") && (showsOwnBuild_ || showProgram(program_.substr(ownBuild_.size())));
  }

  bool makeFolder(const std::string& path, mode_t mode) {
    makeFolders(in(path));
    return must(::chmod(in(path).c_str(), mode) == 0, "make " + path);
  }

  // Shows a folder so that every user inside can enter it. If the machine closes the folder to other users, show()
  // makes a new open folder and shows each entry in it.
  bool show(const Shown& shown) {
    const bool isClosed = !shown.isWritable && (modeOf(shown.folder) & 0005) != 0005;
    if (!isClosed) return share(shown.folder, shown.at, !shown.isWritable);
    if (!makeFolder(shown.at, 0755)) return false;
    for (const std::string& name : namesIn(shown.folder)) {
      if (!share(shown.folder + "/" + name, shown.at + "/" + name)) return false;
    }
    return bind(in(shown.at), shown.at) && protect(shown.at);
  }

  // Shows a program of the build. Copies it if some user may not execute it. Skips it if it has not been built.
  bool showProgram(const std::string& name) {
    const std::string path = ownBuild_ + name;
    const std::string at = places::kProgramsInside + name.substr(name.rfind('/'));
    if (!exists(path)) return true;
    if ((modeOf(path) & 0005) == 0005) return share(path, at);
    std::ifstream from(path, std::ios::binary);
    std::ofstream to(in(at), std::ios::binary);
    to << from.rdbuf();
    to.close();
    return must(to.good() && ::chmod(in(at).c_str(), 0755) == 0, "copy " + path);
  }

  // Shows a path of the machine inside. Does nothing if the machine does not have it.
  bool share(const std::string& path, bool readOnly = true) { return share(path, path, readOnly); }

  bool share(const std::string& path, const std::string& at, bool readOnly = true) {
    if (isLink(path)) return must(::symlink(linkTarget(path.c_str()).c_str(), in(at).c_str()) == 0, at);
    if (!exists(path)) return true;
    if (isFolder(path)) {
      makeFolders(in(at));
    } else if (!must(writeText(in(at), ""), at)) {
      return false;
    }
    return bind(path, at) && (!readOnly || protect(at));
  }

  bool bind(const std::string& path, const std::string& at) {
    return must(::mount(path.c_str(), in(at).c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "show " + path);
  }

  bool protect(const std::string& at) {
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    return must(
        ::syscall(SYS_mount_setattr, AT_FDCWD, in(at).c_str(), AT_RECURSIVE, &attributes, sizeof attributes) == 0,
        "protect " + at);
  }

  bool moveIn() {
    if (!must(::chdir(kAssembly) == 0, "enter the new root") ||
        !must(::syscall(SYS_pivot_root, ".", ".") == 0, "change the root") ||
        !must(::umount2(".", MNT_DETACH) == 0, "leave the old root")) {
      return false;
    }
    const std::string folder = PrivateHost::translated(workingFolder_, shown_);
    return (folder != workingFolder_ && ::chdir(folder.c_str()) == 0) || must(::chdir("/") == 0, "enter /");
  }

  static std::string in(const std::string& path) { return kAssembly + path; }

  const uid_t uid_;
  const gid_t gid_;
  const std::string program_;
  const std::string workingFolder_;
  const std::string ownBuild_;
  const bool showsOwnBuild_;
  std::vector<Shown> shown_;
};

// The first process inside sends it to the outer process: why the host could not be built, or how the program ended.
struct Report {
  bool movedIn = false;
  int waitStatus = 0;
  char text[512] = "";
};

// Forks into new namespaces. glibc's fork cannot do that. unshare refuses a user namespace to a process that already
// has a second thread, which every program under ThreadSanitizer has.
pid_t forkIntoNamespaces(bool withUsers) {
  const unsigned long flags = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | (withUsers ? CLONE_NEWUSER : 0) | SIGCHLD;
#ifdef __s390__
  return static_cast<pid_t>(::syscall(SYS_clone, 0, flags, 0, 0, 0));
#else
  return static_cast<pid_t>(::syscall(SYS_clone, flags, 0, 0, 0, 0));
#endif
}

[[noreturn]] void reportAndExit(int fd, const Report& report) {
  ::_exit(::write(fd, &report, sizeof report) == static_cast<ssize_t>(sizeof report) ? 0 : 1);
}

// A stopped process that has its own process group is not a job of the shell outside, so nobody else would wake it.
void goOn(pid_t stopped) {
  if (::getpgid(stopped) == stopped) (void)::kill(-stopped, SIGCONT);
}

// Runs in the child of the first process: starts the program again from its path inside.
[[noreturn]] void goOnInside(Builder* builder) {
  builder->startAgain();
  (void)std::fprintf(stderr, "no private host: start again inside: %s\n", std::strerror(errno));
  ::_exit(125);
}

// Runs in the first process inside: builds the host, starts the program, reaps orphans and reports how the program
// ended. It is not the program itself because the kernel discards most signals to process 1.
[[noreturn]] void runFirstProcess(int reportFd, Builder builder) {
  Report report;
  (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
  pollfd outer{reportFd, 0, 0};
  if (::poll(&outer, 1, 0) != 0) ::_exit(1);  // the outer process died before the prctl call

  const pid_t child = builder.build() ? ::fork() : -1;
  if (child == 0) {
    ::close(reportFd);
    goOnInside(&builder);
  }
  if (child < 0) {
    if (reason.empty()) reason = std::string("no private host: fork: ") + std::strerror(errno);
    std::strncpy(report.text, reason.c_str(), sizeof report.text - 1);
    reportAndExit(reportFd, report);
  }
  report.movedIn = true;
  pid_t ended = 0;
  do {
    ended = ::waitpid(-1, &report.waitStatus, WUNTRACED);
    if (ended > 0 && WIFSTOPPED(report.waitStatus)) goOn(ended);
  } while (ended != child || WIFSTOPPED(report.waitStatus));
  reportAndExit(reportFd, report);
}

// Ends this process in the same way as the program inside.
[[noreturn]] void endLike(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) {
    const rlimit noCore{0, 0};
    (void)::setrlimit(RLIMIT_CORE, &noCore);
    (void)::signal(WTERMSIG(waitStatus), SIG_DFL);
    (void)::raise(WTERMSIG(waitStatus));
    ::_exit(128 + WTERMSIG(waitStatus));
  }
  ::_exit(WEXITSTATUS(waitStatus));
}

// Runs in the outer process. Returns only if the host could not be built.
void waitOutside(pid_t firstProcess, int reportFd) {
  using Handler = void (*)(int);
  // Signals from the keyboard are for the program inside. We end when it ends.
  const Handler oldInterrupt = ::signal(SIGINT, SIG_IGN);
  const Handler oldQuit = ::signal(SIGQUIT, SIG_IGN);
  Report report;
  ssize_t got = 0;
  do {
    got = ::read(reportFd, &report, sizeof report);
  } while (got < 0 && errno == EINTR);
  while (::waitpid(firstProcess, nullptr, 0) < 0 && errno == EINTR) {
  }
  if (got != static_cast<ssize_t>(sizeof report)) ::_exit(125);  // something killed the first process
  if (report.movedIn) endLike(report.waitStatus);
  (void)::signal(SIGINT, oldInterrupt);
  (void)::signal(SIGQUIT, oldQuit);
  report.text[sizeof report.text - 1] = '\0';
  reason = report.text;
}

}  // namespace

bool PrivateHost::enter(const std::vector<Shown>& shown, const std::string& build) {
  reason.clear();
  if (inside()) return true;
  if (std::getenv("RAVCTL_NO_HOST") != nullptr) {
    reason = "no private host: RAVCTL_NO_HOST is set";
    return false;
  }
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    reason = std::string("no private host: pipe: ") + std::strerror(errno);
    return false;
  }
  const uid_t uid = ::geteuid();
  const gid_t gid = ::getegid();
  const pid_t child = forkIntoNamespaces(uid != 0);
  if (child == 0) {
    ::close(ends[0]);
    runFirstProcess(ends[1], Builder(uid, gid, shown, build));
  }
  const int error = errno;
  ::close(ends[1]);
  if (child > 0) {
    waitOutside(child, ends[0]);
  } else {
    reason = std::string("no private host: new namespaces: ") + std::strerror(error);
  }
  ::close(ends[0]);
  return false;
}

bool PrivateHost::inside() {
  static const bool isInside = isRootOurs();
  return isInside;
}

const std::string& PrivateHost::whyNot() { return reason; }

std::string PrivateHost::translated(const std::string& text, const std::vector<Shown>& shown) {
  std::string result;
  for (size_t at = 0; at < text.size();) {
    const bool mayBegin = at == 0 || text[at - 1] == '=' || text[at - 1] == ':';
    const Shown* best = nullptr;
    for (const Shown& candidate : shown) {
      const size_t size = candidate.folder.size();
      const bool fits = size > 1 && text.compare(at, size, candidate.folder) == 0 &&
                        (at + size == text.size() || std::strchr("/:", text[at + size]) != nullptr);
      if (mayBegin && fits && (best == nullptr || size > best->folder.size())) best = &candidate;
    }
    result += best != nullptr ? best->at : std::string(1, text[at]);
    at += best != nullptr ? best->folder.size() : 1;
  }
  return result;
}
