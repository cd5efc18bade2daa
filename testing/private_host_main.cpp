// private-host: runs a command on a private host of its own, with the program of this build and the stand-in daemon.
//
//   private-host [--store DIR] [--visible DIR]... [--writable DIR]... [--] command [argument...]
//
// --store fills /etc/zuv/profiles with a copy of a folder; without it the store is empty. --visible keeps one more
// folder of the machine readable inside, --writable one more writable. The program is /usr/bin/ravctl, the daemon
// /usr/sbin/hip. The exit status is the command's; 125 without a host, 126 or 127 when the command cannot be run.
// Nothing remains afterwards.
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

#include "testing/HostFiles.h"
#include "testing/PrivateHost.h"

namespace {

constexpr const char* kUsage =
    "Usage: private-host [--store DIR] [--visible DIR]... [--writable DIR]... [--] command [argument...]\n";

struct Request {
  std::string store;
  std::vector<std::string> visible;
  std::vector<std::string> writable;
  char** command = nullptr;
};

bool readRequest(int argc, char** argv, Request* request) {
  int at = 1;
  for (; at < argc && argv[at][0] == '-'; ++at) {
    const std::string word = argv[at];
    if (word == "--") {
      ++at;
      break;
    }
    if (at + 1 == argc) return false;
    const std::string folder = std::filesystem::absolute(argv[++at]);
    if (word == "--store") request->store = folder;
    if (word == "--visible" || word == "--store")
      request->visible.push_back(folder);
    else if (word == "--writable")
      request->writable.push_back(folder);
    else
      return false;
  }
  request->command = argv + at;
  return at < argc;
}

void furnish(const std::string& store) {
  host::reset();
  host::installDaemon();
  host::makeLink("/usr/bin/ravctl", RAVCTL_PROGRAM);
  if (!store.empty()) {
    std::filesystem::copy(store, host::kProfiles,
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
  }
  ::setenv("HOME", "/root", 1);
  ::setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
}

// A shell that controls its jobs needs a process group that it can see, in the foreground of the terminal.
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
  if (!PrivateHost::enter(request.visible, request.writable)) {
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
