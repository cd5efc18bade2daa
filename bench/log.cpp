// log: writes a daemon log of a given size for the benchmarks.
//
//   log PATH MEBIBYTES lines       writes lines like the daemon's: one in 100,000 is an ERROR, all others are INFO
//   log PATH MEBIBYTES one-line    writes one INFO line that is as long as the file
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

std::string lineOf(std::size_t number) {
  char line[160];
  std::snprintf(line, sizeof line,
                "[%s 2024-03-01 12:%02zu:%02zu.%06zu] peer %zu: received a control packet of %zu bytes\n",
                number % 100000 == 77 ? "ERROR" : "INFO", number / 60 % 60, number % 60, number * 7919 % 1000000,
                number % 97, 40 + number % 1400);
  return line;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: log PATH MEBIBYTES lines|one-line\n", stderr);
    return 2;
  }
  const bool oneLine = std::strcmp(argv[3], "one-line") == 0;
  const std::size_t size = std::strtoul(argv[2], nullptr, 10) << 20;
  std::FILE* file = std::fopen(argv[1], "w");
  if (file == nullptr) fail(argv[1]);
  std::size_t written = 0;
  for (std::size_t number = 0; written < size; ++number) {
    const std::string line = oneLine && number > 0 ? std::string(4096, 'x') : lineOf(number);
    const std::size_t length = oneLine && number == 0 ? line.size() - 1 : line.size();
    if (std::fwrite(line.data(), 1, length, file) != length) fail(argv[1]);
    written += length;
  }
  if (std::fclose(file) != 0) fail(argv[1]);
  return 0;
}
