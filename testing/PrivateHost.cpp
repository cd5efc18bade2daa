#include "testing/PrivateHost.h"

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
#include <cstdlib>
#include <cstring>

namespace {

// Inside, this folder tells that we are inside; it holds the upper halves of the overlays.
constexpr const char* kMarker = "/.private-host";
// The new root is put together here: a folder that every machine has, and in which no checkout can lie.
constexpr const char* kAssembly = "/proc";

// Folders of programs: used as they are on the machine, changed without the machine noticing.
constexpr const char* kProgramFolders[] = {"/usr/bin", "/usr/sbin", "/bin", "/sbin"};
// What must not be there unless a test has put it there.
constexpr const char* kHiddenPrograms[] = {"systemctl", "initctl", "hip", "ravctl", "zuv-sendbundle.sh"};
constexpr const char* kSharedFolders[] = {"/usr", "/lib", "/lib32", "/lib64", "/libx32", "/opt", "/nix"};
// Of /etc the machine's programs need only these to run.
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

bool isWithin(const std::string& path, const std::string& folder) {
  return path.compare(0, folder.size(), folder) == 0 && (path.size() == folder.size() || path[folder.size()] == '/');
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

bool writeText(const std::string& path, const std::string& text) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return ::close(fd) == 0 && written;
}

void makeFolders(const std::string& path) {
  for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    (void)::mkdir(path.substr(0, end).c_str(), 0755);
  }
  (void)::mkdir(path.c_str(), 0755);  // a folder that is not there fails at its first use
}

// Puts the new root together and moves into it; runs as the first process of the new namespaces.
class Builder {
 public:
  Builder(uid_t uid, gid_t gid, std::vector<std::string> alsoVisible, std::vector<std::string> alsoWritable)
      : uid_(uid),
        gid_(gid),
        alsoVisible_(std::move(alsoVisible)),
        alsoWritable_(std::move(alsoWritable)),
        program_(linkTarget("/proc/self/exe")),
        workingFolder_(workingFolder()) {}

  bool build() {
    const mode_t callersMask = ::umask(0);
    const bool built = becomeRoot() && startRoot() && fillWithOwn() && shareMachine() && overlayPrograms() &&
                       makeDevices() && showCheckout() && moveIn();
    ::umask(callersMask);
    return built;
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
           must(::mount("private-host", kAssembly, "tmpfs", MS_NOSUID, "mode=755") == 0, "mount a root in memory");
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
        // /bin is a link into /usr on most machines, and inside it is the same link.
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
      // A device 0/0 in the upper half hides what lies below.
      if (exists(folder + "/" + program) &&
          !must(::mknod((upper + "/" + program).c_str(), S_IFCHR, ::makedev(0, 0)) == 0,
                "hide " + folder + "/" + program)) {
        return false;
      }
    }
    const std::string options =
        "lowerdir=" + folder + ",upperdir=" + upper + ",workdir=" + work + (uid_ == 0 ? "" : ",userxattr");
    makeFolders(in(folder));
    return must(::mount("private-host", in(folder).c_str(), "overlay", 0, options.c_str()) == 0,
                "mount an overlay on " + folder);
  }

  // A node of our own, so that not even a changed mode reaches the machine. Only the machine's root can make one.
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
    // A kernel without pseudo-terminals makes no poorer host: nothing of ours needs them.
    (void)::mount("devpts", in("/dev/pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=620");
    return true;
  }

  bool showCheckout() {
    if (!showFolder(RAVCTL_SOURCE_DIR, true) || !showFolder(RAVCTL_BUILD_DIR, false)) return false;
    if (!isWithin(program_, RAVCTL_BUILD_DIR) && !showFolder(program_.substr(0, program_.rfind('/')), false))
      return false;
    for (const std::string& folder : alsoVisible_) {
      if (!showFolder(folder, true)) return false;
    }
    for (const std::string& folder : alsoWritable_) {
      if (!showFolder(folder, false)) return false;
    }
    return true;
  }

  // At the path by which it was named, and at the one without links, since both are used.
  bool showFolder(const std::string& folder, bool readOnly) {
    char real[PATH_MAX];
    if (folder.empty() || ::realpath(folder.c_str(), real) == nullptr || isWithin(real, "/usr")) return true;
    return share(folder, readOnly) && (folder == real || share(real, readOnly));
  }

  // Shows a path of the machine inside, if the machine has it.
  bool share(const std::string& path, bool readOnly = true) {
    if (isLink(path)) return must(::symlink(linkTarget(path.c_str()).c_str(), in(path).c_str()) == 0, path);
    if (!exists(path)) return true;
    if (isFolder(path)) {
      makeFolders(in(path));
    } else if (!must(writeText(in(path), ""), path)) {
      return false;
    }
    if (!must(::mount(path.c_str(), in(path).c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "show " + path))
      return false;
    if (!readOnly) return true;
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    return must(
        ::syscall(SYS_mount_setattr, AT_FDCWD, in(path).c_str(), AT_RECURSIVE, &attributes, sizeof attributes) == 0,
        "protect " + path);
  }

  bool moveIn() {
    if (!must(::chdir(kAssembly) == 0, "enter the new root") ||
        !must(::syscall(SYS_pivot_root, ".", ".") == 0, "change the root") ||
        !must(::umount2(".", MNT_DETACH) == 0, "leave the old root")) {
      return false;
    }
    return ::chdir(workingFolder_.c_str()) == 0 || must(::chdir("/") == 0, "enter /");
  }

  static std::string in(const std::string& path) { return kAssembly + path; }

  const uid_t uid_;
  const gid_t gid_;
  const std::vector<std::string> alsoVisible_;
  const std::vector<std::string> alsoWritable_;
  const std::string program_;
  const std::string workingFolder_;
};

// What the first process inside has to say to the outer one: that it failed, and why, or how the process inside ended.
struct Report {
  bool moved_in = false;
  int wait_status = 0;
  char text[512] = "";
};

// A fork into new namespaces. glibc's fork cannot do it, and unshare refuses a user namespace to a program that has a
// thread already, as every program under ThreadSanitizer.
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

// One that took the terminal for itself has no shell outside that could wake it after a stop.
void goOn(pid_t stopped) {
  if (::getpgid(stopped) == stopped) (void)::kill(-stopped, SIGCONT);
}

// The first process inside: builds the host, starts the process that goes on, collects orphans, tells how it ended.
// Returns in the process that goes on. It stays behind as process 1 because the kernel spares process 1 most signals.
void runFirstProcess(int reportFd, Builder builder) {
  Report report;
  (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
  pollfd outer{reportFd, 0, 0};
  if (::poll(&outer, 1, 0) != 0) ::_exit(1);  // the outer process died before we asked to be told

  const pid_t child = builder.build() ? ::fork() : -1;
  if (child == 0) {
    ::close(reportFd);
    return;
  }
  if (child < 0) {
    if (reason.empty()) reason = std::string("no private host: fork: ") + std::strerror(errno);
    std::strncpy(report.text, reason.c_str(), sizeof report.text - 1);
    reportAndExit(reportFd, report);
  }
  report.moved_in = true;
  pid_t ended = 0;
  do {
    ended = ::waitpid(-1, &report.wait_status, WUNTRACED);
    if (ended > 0 && WIFSTOPPED(report.wait_status)) goOn(ended);
  } while (ended != child || WIFSTOPPED(report.wait_status));
  reportAndExit(reportFd, report);
}

// Ends this process the way the one inside ended.
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

// The outer process: comes back only when nobody moved in.
void waitOutside(pid_t firstProcess, int reportFd) {
  using Handler = void (*)(int);
  // Keys of the terminal are for the process inside; we end when it ends.
  const Handler oldInterrupt = ::signal(SIGINT, SIG_IGN);
  const Handler oldQuit = ::signal(SIGQUIT, SIG_IGN);
  Report report;
  ssize_t got = 0;
  do {
    got = ::read(reportFd, &report, sizeof report);
  } while (got < 0 && errno == EINTR);
  while (::waitpid(firstProcess, nullptr, 0) < 0 && errno == EINTR) {
  }
  if (got != static_cast<ssize_t>(sizeof report)) ::_exit(125);  // killed from outside
  if (report.moved_in) endLike(report.wait_status);
  (void)::signal(SIGINT, oldInterrupt);
  (void)::signal(SIGQUIT, oldQuit);
  report.text[sizeof report.text - 1] = '\0';
  reason = report.text;
}

}  // namespace

bool PrivateHost::enter(const std::vector<std::string>& alsoVisible, const std::vector<std::string>& alsoWritable) {
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
    runFirstProcess(ends[1], Builder(uid, gid, alsoVisible, alsoWritable));
    return true;
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

bool PrivateHost::inside() { return isFolder(kMarker); }

const std::string& PrivateHost::whyNot() { return reason; }
