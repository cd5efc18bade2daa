// The documents name files of the tree; each of them must be there.
#include <gtest/gtest.h>

#include <filesystem>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"

namespace {

const std::filesystem::path kTree = places::source();

// The pieces of a text between backticks.
std::vector<std::string> namesIn(const std::string& text) {
  std::vector<std::string> names;
  for (std::size_t from = text.find('`'); from != std::string::npos;) {
    const std::size_t to = text.find('`', from + 1);
    if (to == std::string::npos) break;
    names.push_back(text.substr(from + 1, to - from - 1));
    from = text.find('`', to + 1);
  }
  return names;
}

// Whether a name is meant as a path in the tree: its first folder is one of ours, and it is no pattern.
bool isPath(const std::string& name) {
  const std::size_t slash = name.find('/');
  return slash != std::string::npos && slash != 0 && name.find_first_of(" *<>{}$") == std::string::npos &&
         name.compare(0, 6, "build/") != 0 && std::filesystem::is_directory(kTree / name.substr(0, slash));
}

// What a document names and the tree lacks.
std::vector<std::string> missingFrom(const std::string& text) {
  std::vector<std::string> missing;
  for (const std::string& name : namesIn(text)) {
    if (isPath(name) && !std::filesystem::exists(kTree / name)) missing.push_back(name);
  }
  return missing;
}

TEST(Documents, NameOnlyFilesThatAreThere) {
  int count = 0;
  for (const char* folder : {".", "docs"}) {
    for (const auto& entry : std::filesystem::directory_iterator(kTree / folder)) {
      if (entry.path().extension() != ".md") continue;
      ++count;
      EXPECT_EQ(missingFrom(host::readFile(entry.path().string())), std::vector<std::string>()) << entry.path();
    }
  }
  EXPECT_GE(count, 6);
}

TEST(Documents, AMissingFileIsNoticed) {
  EXPECT_EQ(missingFrom("see `docs/architecture.md`, `docs/nothing.md` and `tools/*.sh`"),
            std::vector<std::string>{"docs/nothing.md"});
}

}  // namespace
