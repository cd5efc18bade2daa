// planted-removal: removes everything that it can reach below "/" on a private host, as a test gone wrong might.
//
// `./dev anywhere` runs it and then compares the machine with what it was; nothing else starts it. It enters no mount
// by intent and spares none: what keeps the machine's files is the host alone.
#include <ftw.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "testing/host/PrivateHost.h"

namespace {

long removed = 0;
long kept = 0;

int removeOne(const char* path, const struct stat*, int, struct FTW*) {
  if (std::strncmp(path, "/proc/", 6) == 0) return 0;
  ++(::remove(path) == 0 ? removed : kept);
  return 0;
}

}  // namespace

int main() {
  if (!PrivateHost::enter()) {
    (void)std::fprintf(stderr, "%s\n", PrivateHost::whyNot().c_str());
    return 1;
  }
  constexpr int kDescriptors = 64;
  (void)::nftw("/", removeOne, kDescriptors, FTW_DEPTH | FTW_PHYS);
  std::printf("planted-removal: %ld entries removed, %ld could not be\n", removed, kept);
  return removed > 0 ? 0 : 1;
}
