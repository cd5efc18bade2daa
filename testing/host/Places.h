// Places: where the sources and the build lie for the running program.
//
//   host::readFile(places::source() + "/README.md");
//   runProgram({places::privateHost(), "--", "/bin/true"});
//
// On a private host (see PrivateHost.h) the answers are always the same, whatever the path of the checkout. On the
// machine the program finds the folders from its own path: CMake leaves a file `.build-folder` in the top folder of
// every build, and the file holds the path from there to the sources. So a tree that was built and then copied
// elsewhere goes on working.
#pragma once

#include <string>

namespace places {

// Where things lie on a private host.
constexpr const char* kInside = "/.private-host";
constexpr const char* kSourceInside = "/.private-host/source";
constexpr const char* kBuildInside = "/.private-host/build";
constexpr const char* kMadeInside = "/.private-host/made";
constexpr const char* kProgramsInside = "/.private-host/programs";

// The top folder of the checkout, readable only on a private host. Empty when the program lies in no build folder.
std::string source();

// The top folder of the build, readable only on a private host. Empty when the program lies in no build folder.
std::string build();

// The one folder that tests may write in and that outlives a private host: for counts, profiles and the like. On the
// machine it is the folder that RAVCTL_MADE names, else `made` in the build folder.
std::string made();

// Programs of this build. On a private host every user may execute the first three.
std::string ravctl();
std::string hipStandin();
std::string tracee();
std::string privateHost();

}  // namespace places
