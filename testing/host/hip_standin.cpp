// hip-standin: stands in for the daemon. It does only what the product can observe: every second it rewrites the
// heartbeat file hipvars.txt of the active profile and appends lines to hip.log there. SIGTERM ends it, and it leaves
// its files behind.
//
//   hip-standin [--dir DIR] [--peers N] [--stop-delay SECONDS] [--once] [--daemon]
//
// It must be a program and not a script: tests install it as /usr/sbin/hip, and killall compares the executed file.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

constexpr const char* kUsage =
    "Usage: hip-standin [--dir DIR] [--peers N] [--stop-delay SECONDS] [--once] [--daemon]\n";

struct Settings {
  std::string folder;
  std::string peers = "1";
  unsigned stopDelay = 0;
  bool once = false;
  bool daemon = false;
};

volatile std::sig_atomic_t toldToStop = 0;
void noteStop(int) { toldToStop = 1; }

bool readSettings(int argc, char** argv, Settings* settings) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const bool hasNext = i + 1 < argc;
    if (word == "--once") {
      settings->once = true;
    } else if (word == "--daemon") {
      settings->daemon = true;
    } else if (word == "--dir" && hasNext) {
      settings->folder = argv[++i];
    } else if (word == "--peers" && hasNext) {
      settings->peers = argv[++i];
    } else if (word == "--stop-delay" && hasNext) {
      settings->stopDelay = static_cast<unsigned>(std::atoi(argv[++i]));
    } else {
      return false;
    }
  }
  return true;
}

std::string folderOfActiveProfile() {
  char name[256] = "";
  std::FILE* file = std::fopen("/etc/zuv/profiles/.current", "re");
  if (file == nullptr) return "";
  if (std::fgets(name, sizeof name, file) == nullptr) name[0] = '\0';
  std::fclose(file);
  name[std::strcspn(name, "\n")] = '\0';
  return name[0] == '\0' ? "" : std::string("/etc/zuv/profiles/") + name;
}

bool writeAll(const std::string& path, int flags, const std::string& text) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644);
  if (fd < 0) return false;
  const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return ::close(fd) == 0 && written;
}

// Writes a second file and renames it, so that a reader never finds an incomplete heartbeat.
bool beat(const Settings& settings, std::time_t started) {
  const std::string path = settings.folder + "/hipvars.txt";
  const std::string text = "uptime.now=" + std::to_string(std::time(nullptr)) +
                           "\nuptime.started=" + std::to_string(started) +
                           "\nhipd_state=running\npeers.count=" + settings.peers + "\nhelmsor.up=true\n";
  return writeAll(path + ".new", O_TRUNC, text) && std::rename((path + ".new").c_str(), path.c_str()) == 0;
}

void log(const Settings& settings, const char* level, const std::string& message) {
  timeval now{};
  ::gettimeofday(&now, nullptr);
  std::tm parts{};
  ::gmtime_r(&now.tv_sec, &parts);
  char stamp[64];
  const size_t length = std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &parts);
  std::snprintf(stamp + length, sizeof stamp - length, ".%06ld", static_cast<long>(now.tv_usec));
  // A log that cannot be written must not keep the daemon from running.
  (void)writeAll(settings.folder + "/hip.log", O_APPEND,
                 std::string("[") + level + " " + stamp + "] " + message + "\n");
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  if (!readSettings(argc, argv, &settings)) {
    (void)std::fputs(kUsage, stderr);
    return 2;
  }
  if (settings.folder.empty()) settings.folder = folderOfActiveProfile();
  const std::time_t started = std::time(nullptr);
  (void)std::signal(SIGTERM, noteStop);
  if (!beat(settings, started)) {
    (void)std::fprintf(stderr, "hip: no active profile, or it cannot be written: '%s'\n", settings.folder.c_str());
    return 1;
  }
  if (settings.once) std::_Exit(0);  // at once: a sanitizer would look for leaks first
  // The first heartbeat exists before the caller gets control back.
  if (settings.daemon && ::daemon(0, 0) != 0) return 1;

  log(settings, "INFO", "hip: started");
  for (int beats = 1; toldToStop == 0; ++beats) {
    log(settings, "DEBUG", "hip: heartbeat " + std::to_string(beats));
    ::sleep(1);
    (void)beat(settings, started);  // if somebody removes the profile, the daemon goes on
  }
  log(settings, "WARNING", "hip: told to stop");
  if (settings.stopDelay > 0) ::sleep(settings.stopDelay);
  log(settings, "INFO", "hip: ended");
  return 0;
}
