// Runs a fuzz target without a fuzzer. Its inputs are every file in the folders of the command line, and every prefix
// of these files.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::uint8_t> bytesOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Each input gets a memory block of exactly its size, so that a sanitizer detects an access beyond its end.
void feed(const std::vector<std::uint8_t>& seed) {
  for (std::size_t size = 0; size <= seed.size(); ++size) {
    const std::vector<std::uint8_t> prefix(seed.begin(), seed.begin() + static_cast<std::ptrdiff_t>(size));
    (void)LLVMFuzzerTestOneInput(prefix.data(), prefix.size());
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t seeds = 0;
  for (int at = 1; at < argc; ++at) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[at])) {
      feed(bytesOf(entry.path()));
      ++seeds;
    }
  }
  std::printf("%zu seeds\n", seeds);
  return seeds == 0 ? 1 : 0;  // a run without a seed proves nothing
}
