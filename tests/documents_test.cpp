// Every file that a document names must exist in the checkout.
#include <gtest/gtest.h>

#include <filesystem>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"

namespace {

const std::filesystem::path kTree = places::source();

// Returns the parts of a text that are between backticks.
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

// Returns true if the name means a path: its first folder exists in the checkout or beside the document, and it is no
// pattern.
bool isPath(const std::string& name, const std::filesystem::path& folder) {
  const std::size_t slash = name.find('/');
  return slash != std::string::npos && slash != 0 && name.find_first_of(" *<>{}$") == std::string::npos &&
         name.compare(0, 6, "build/") != 0 &&
         (std::filesystem::is_directory(kTree / name.substr(0, slash)) ||
          std::filesystem::is_directory(folder / name.substr(0, slash)));
}

// Returns the paths that a document names and that exist neither in the checkout nor beside the document.
std::vector<std::string> missingFrom(const std::string& text, const std::filesystem::path& folder) {
  std::vector<std::string> missing;
  for (const std::string& name : namesIn(text)) {
    if (isPath(name, folder) && !std::filesystem::exists(kTree / name) && !std::filesystem::exists(folder / name))
      missing.push_back(name);
  }
  return missing;
}

TEST(Documents, NameOnlyExistingFiles) {
  int count = 0;
  for (const char* folder : {".", "docs", "testing", "tests/transcripts"}) {
    for (const auto& entry : std::filesystem::directory_iterator(kTree / folder)) {
      if (entry.path().extension() != ".md") continue;
      ++count;
      EXPECT_EQ(missingFrom(host::readFile(entry.path().string()), entry.path().parent_path()),
                std::vector<std::string>())
          << entry.path();
    }
  }
  EXPECT_GE(count, 8);
}

TEST(Documents, AMissingFileIsReported) {
  EXPECT_EQ(missingFrom("see `docs/architecture.md`, `docs/nothing.md` and `tools/*.sh`", kTree),
            std::vector<std::string>{"docs/nothing.md"});
  EXPECT_EQ(missingFrom("see `host/Places.h` and `host/Nothing.h`", kTree / "testing"),
            std::vector<std::string>{"host/Nothing.h"});
}

}  // namespace
