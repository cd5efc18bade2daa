// planted-removal: removes every file that it can reach below "/" on a private host, as a faulty test could.
//
// `./dev anywhere` runs it and then checks that the machine's files are unchanged. Nothing else starts it. It does not
// spare mounts, so only the private host protects the files of the machine.
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
