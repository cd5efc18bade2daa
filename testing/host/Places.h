// Places: tells the running program where the sources and the build are.
//
//   host::readFile(places::source() + "/README.md");
//   runProgram({places::privateHost(), "--", "/bin/true"});
//
// On a private host (see PrivateHost.h) the results do not depend on the path of the checkout. On the machine the
// program derives the folders from its own path: CMake writes a file `.build-folder` to the top folder of every build,
// and the file holds the relative path from there to the sources. So a copy of a built tree works too.
#pragma once

#include <string>

namespace places {

// Paths on a private host.
constexpr const char* kInside = "/.private-host";
constexpr const char* kSourceInside = "/.private-host/source";
constexpr const char* kBuildInside = "/.private-host/build";
constexpr const char* kMadeInside = "/.private-host/made";
constexpr const char* kProgramsInside = "/.private-host/programs";

// The top folder of the checkout; read-only on a private host. Empty if the program is in no build folder.
std::string source();

// The top folder of the build; read-only on a private host. Empty if the program is in no build folder.
std::string build();

// The only folder in which tests may write files that outlive the private host, such as counts and coverage profiles.
// On the machine it is the folder that the environment variable RAVCTL_MADE names, or else `made` in the build folder.
std::string made();

// Programs of this build. On a private host every user may execute the first three.
std::string ravctl();
std::string hipStandin();
std::string tracee();
std::string privateHost();

}  // namespace places
