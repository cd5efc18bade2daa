// mutate: makes one mistake in a source tree. A seed chooses the mistake.
//
//   mutate TREE SEED     changes one file below TREE/src and prints "FILE:LINE KIND: `OLD' -> `NEW'"
//   mutate TREE          prints the number of possible mistakes of each kind
//
// Every possible mistake in the sources and headers, except in tests, is equally likely. The exit status is 1 if a file
// cannot be read or written.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "tools/mutation/Mutations.h"

namespace {

struct Source {
  std::string name;
  std::string text;
  std::vector<Mutation> mutations;
};

bool isMutated(const std::string& name) {
  const auto endsWith = [&](const std::string& end) {
    return name.size() > end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
  };
  return !endsWith("_test.cpp") && (endsWith(".cpp") || endsWith(".h"));
}

std::vector<Source> sourcesBelow(const std::filesystem::path& tree) {
  std::vector<Source> sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(tree / "src")) {
    const std::string name = entry.path().lexically_relative(tree).string();
    if (!entry.is_regular_file() || !isMutated(name)) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    std::vector<Mutation> mutations = mutationsIn(text);
    sources.push_back({name, std::move(text), std::move(mutations)});
  }
  std::sort(sources.begin(), sources.end(), [](const Source& a, const Source& b) { return a.name < b.name; });
  return sources;
}

std::string onOneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

bool apply(const std::filesystem::path& tree, const Source& source, const Mutation& mutation) {
  std::string text = source.text;
  const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(mutation.at), '\n');
  std::printf("%s:%d %s: `%s' -> `%s'\n", source.name.c_str(), static_cast<int>(line), mutation.kind,
              onOneLine(text.substr(mutation.at, mutation.length)).c_str(), mutation.replacement.c_str());
  // Keep the line breaks, so that the following lines keep their numbers.
  const std::string old = text.substr(mutation.at, mutation.length);
  const auto breaks = static_cast<std::size_t>(std::count(old.begin(), old.end(), '\n'));
  text.replace(mutation.at, mutation.length, mutation.replacement + std::string(breaks, '\n'));
  std::ofstream file(tree / source.name, std::ios::binary | std::ios::trunc);
  file << text;
  return file.flush().good();
}

void printCounts(const std::vector<Source>& sources) {
  std::map<std::string, int> counts;
  for (const Source& source : sources) {
    for (const Mutation& mutation : source.mutations) ++counts[mutation.kind];
  }
  for (const auto& [kind, count] : counts) std::printf("%s %d\n", kind.c_str(), count);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    (void)std::fputs("Usage: mutate TREE [SEED]\n", stderr);
    return 2;
  }
  const std::filesystem::path tree = argv[1];
  const std::vector<Source> sources = sourcesBelow(tree);
  if (argc == 2) {
    printCounts(sources);
    return 0;
  }
  std::size_t count = 0;
  for (const Source& source : sources) count += source.mutations.size();
  if (count == 0) return 1;
  std::size_t chosen = chosenBy(std::strtoull(argv[2], nullptr, 10), count);
  for (const Source& source : sources) {
    if (chosen < source.mutations.size()) return apply(tree, source, source.mutations[chosen]) ? 0 : 1;
    chosen -= source.mutations.size();
  }
  return 1;
}
