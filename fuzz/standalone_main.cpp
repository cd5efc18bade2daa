// Runs a fuzz target without a fuzzer. Its inputs are every file in the folders of the command line, every prefix of
// these files, and, if the target has a mutator of its own, a few texts that it makes of each file.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
// What only some targets have.
extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" [[gnu::weak]] std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room,
                                                             unsigned seed);
extern "C" [[gnu::weak]] std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* one, std::size_t sizeOfOne,
                                                               const std::uint8_t* other, std::size_t sizeOfOther,
                                                               std::uint8_t* out, std::size_t room, unsigned seed);

// The mutators of libFuzzer, which the mutators of the targets fall back to, are not there.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room) {
  if (size > 0) data[size / 2] ^= 1U;
  return std::min(size, room);
}

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

// Feeds what the target's own mutators make of a seed, each time of the text that they made last.
void feedMutations(std::vector<std::uint8_t> text) {
  constexpr unsigned mutations = 20;
  const std::vector<std::uint8_t> seed = text;
  const std::size_t room = 2 * seed.size() + 100;
  for (unsigned number = 0; number < mutations; ++number) {
    const std::size_t size = text.size();
    text.resize(room);
    text.resize(LLVMFuzzerCustomMutator(text.data(), std::min(size, room), room, number));
    (void)LLVMFuzzerTestOneInput(text.data(), text.size());
    if (LLVMFuzzerCustomCrossOver == nullptr) continue;
    std::vector<std::uint8_t> mixed(room);
    mixed.resize(
        LLVMFuzzerCustomCrossOver(text.data(), text.size(), seed.data(), seed.size(), mixed.data(), room, number));
    (void)LLVMFuzzerTestOneInput(mixed.data(), mixed.size());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) (void)LLVMFuzzerInitialize(&argc, &argv);
  std::size_t seeds = 0;
  for (int at = 1; at < argc; ++at) {
    // A target may change the working directory.
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::absolute(argv[at]))) {
      const std::vector<std::uint8_t> seed = bytesOf(entry.path());
      feed(seed);
      if (LLVMFuzzerCustomMutator != nullptr) feedMutations(seed);
      ++seeds;
    }
  }
  std::printf("%zu seeds\n", seeds);
  return seeds == 0 ? 1 : 0;  // a run without a seed proves nothing
}
