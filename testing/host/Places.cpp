#include "testing/host/Places.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>

#include "testing/host/PrivateHost.h"

namespace places {
namespace {

constexpr const char* kMarkOfABuild = "/.build-folder";

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::string ownPath() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
}

std::string withoutLinks(const std::string& path) {
  char real[PATH_MAX];
  return ::realpath(path.c_str(), real) != nullptr ? real : path;
}

std::string buildAbove(const std::string& program) {
  for (std::string folder = folderOf(program); !folder.empty(); folder = folderOf(folder)) {
    if (::access((folder + kMarkOfABuild).c_str(), F_OK) == 0) return folder;
  }
  return "";
}

// On a private host the copy that every user may execute, otherwise the program in the build folder.
std::string program(const char* name, const char* folder) {
  if (PrivateHost::inside()) return std::string(kProgramsInside) + "/" + name;
  return build() + folder + name;
}

}  // namespace

std::string source() {
  if (PrivateHost::inside()) return kSourceInside;
  const std::string buildFolder = build();
  std::ifstream mark(buildFolder + kMarkOfABuild);
  std::string way;
  if (buildFolder.empty() || !std::getline(mark, way)) return "";
  return withoutLinks(buildFolder + "/" + way);
}

std::string build() {
  if (PrivateHost::inside()) return kBuildInside;
  return buildAbove(ownPath());
}

std::string made() {
  if (PrivateHost::inside()) return kMadeInside;
  const char* elsewhere = std::getenv("RAVCTL_MADE");
  return elsewhere != nullptr ? withoutLinks(elsewhere) : build() + "/made";
}

std::string ravctl() { return program("ravctl", "/"); }
std::string hipStandin() { return program("hip-standin", "/testing/"); }
std::string tracee() { return program("tracee", "/testing/"); }
std::string privateHost() { return build() + "/testing/private-host"; }

}  // namespace places
