// store: creates a profile store for the benchmarks, or restores one.
//
//   store DIR COUNT           DIR/profiles with profile-1 .. profile-COUNT, each with a different name, in no order
//   store DIR COUNT equal     the same, but all profiles have one name
//
// It overwrites existing name files, which restores a store whose names the program has repaired. `.current` names
// profile-1, which has a hip.conf, so the program need not elect an active profile. `.factory` holds a
// firmware_revision.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "store: %s: %s\n", what.c_str(), std::strerror(errno));
  std::exit(1);
}

void makeDirectory(const std::string& path) {
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) fail(path);
}

void writeFile(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
  if (fd < 0) fail(path);
  if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) fail(path);
  if (close(fd) != 0) fail(path);
}

// Uses multiples of a prime modulo a larger prime, which are all different and in no order.
std::string scatteredName(unsigned long number) {
  constexpr unsigned long step = 611953, names = 999983;
  return "site-" + std::to_string(number * step % names);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "Usage: %s DIR COUNT [equal]\n", argv[0]);
    return 2;
  }
  const std::string base = argv[1];
  const std::string root = base + "/profiles";
  const unsigned long count = std::strtoul(argv[2], nullptr, 10);
  const bool equal = argc > 3 && std::strcmp(argv[3], "equal") == 0;

  makeDirectory(base);
  makeDirectory(root);
  for (unsigned long n = 1; n <= count; ++n) {
    const std::string profile = root + "/profile-" + std::to_string(n);
    makeDirectory(profile);
    writeFile(profile + "/profile_name", (equal ? "lab" : scatteredName(n)) + "\n");
  }
  writeFile(root + "/profile-1/hip.conf", "master_interface=eth0\n");
  writeFile(root + "/.current", "profile-1\n");
  makeDirectory(root + "/.factory");
  writeFile(root + "/.factory/firmware_revision", "4.1.7\n");
  return 0;
}
