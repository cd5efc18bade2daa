// private-host: runs a command on a new private host that has the program of this build and the stand-in daemon.
//
//   private-host [--store DIR] [--build DIR] [--visible DIR]... [--writable DIR]... [--] command [argument...]
//
// --store DIR      fills /etc/zuv/profiles with a copy of DIR; otherwise the store is empty
// --build DIR      shows another build folder than that of this program, for example one for another kind of machine
// --visible DIR    makes one more folder of the machine readable
// --writable DIR   makes one more folder of the machine writable
//
// The folders of --visible and --writable are /.private-host/shown/1, /.private-host/shown/2 and so on inside. The
// program is /usr/bin/ravctl, and the daemon is /usr/sbin/hip. In the arguments, paths of the checkout and of these
// folders are replaced by their paths inside (see PrivateHost.h). The exit status is that of the command, or 125 if
// there is no private host, 126 if the command cannot be executed, 127 if it does not exist. Nothing remains
// afterwards.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/host/PrivateHost.h"

namespace {

constexpr const char* kUsage =
    "Usage: private-host [--store DIR] [--build DIR] [--visible DIR]... [--writable DIR]... [--] command "
    "[argument...]\n";
constexpr const char* kStoreInside = "/.private-host/store";
constexpr const char* kShownInside = "/.private-host/shown/";

struct Request {
  std::string store;
  std::string build;
  std::vector<PrivateHost::Shown> shown;
  char** command = nullptr;
};

bool readRequest(int argc, char** argv, Request* request) {
  int at = 1;
  int extra = 0;
  for (; at < argc && argv[at][0] == '-'; ++at) {
    const std::string word = argv[at];
    if (word == "--") {
      ++at;
      break;
    }
    if (at + 1 == argc) return false;
    const std::string folder = std::filesystem::absolute(argv[++at]);
    if (word == "--store") {
      request->store = folder;
      request->shown.push_back({folder, kStoreInside});
    } else if (word == "--build") {
      request->build = folder;
    } else if (word == "--visible" || word == "--writable") {
      request->shown.push_back({folder, kShownInside + std::to_string(++extra), word == "--writable"});
    } else {
      return false;
    }
  }
  request->command = argv + at;
  return at < argc;
}

void furnish(const std::string& store) {
  host::reset();
  host::installDaemon();
  host::makeLink("/usr/bin/ravctl", places::ravctl());
  if (!store.empty()) {
    std::filesystem::copy(host::exists(kStoreInside) ? kStoreInside : store, host::kProfiles,
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
  }
  ::setenv("HOME", "/root", 1);
  ::setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
}

// A shell with job control needs a process group of its own namespace in the foreground of the terminal.
void takeTerminal() {
  if (::isatty(0) == 0 || ::setpgid(0, 0) != 0) return;
  (void)::signal(SIGTTOU, SIG_IGN);
  (void)::tcsetpgrp(0, ::getpid());
  (void)::signal(SIGTTOU, SIG_DFL);
}

}  // namespace

int main(int argc, char** argv) {
  Request request;
  if (!readRequest(argc, argv, &request)) {
    (void)std::fputs(kUsage, stderr);
    return 125;
  }
  if (!PrivateHost::enter(request.shown, request.build)) {
    (void)std::fprintf(stderr, "private-host: %s\n", PrivateHost::whyNot().c_str());
    return 125;
  }
  try {
    furnish(request.store);
  } catch (const std::exception& problem) {
    (void)std::fprintf(stderr, "private-host: %s\n", problem.what());
    return 125;
  }
  takeTerminal();
  ::execvp(request.command[0], request.command);
  (void)std::fprintf(stderr, "private-host: %s: %s\n", request.command[0], std::strerror(errno));
  return errno == ENOENT ? 127 : 126;
}
