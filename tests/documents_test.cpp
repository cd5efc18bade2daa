// Every file that a document names must exist in the checkout, and so must every test that SECURITY.md names for a
// promise.
#include <algorithm>
#include <filesystem>
#include <set>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/Matchers.h"
#include "testing/run/Session.h"

namespace {

// --- Files

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

TEST(Documents, AFileThatATextNamesButTheTreeLacksIsReported) {
  EXPECT_EQ(missingFrom("see `docs/architecture.md`, `docs/nothing.md` and `tools/*.sh`", kTree),
            std::vector<std::string>{"docs/nothing.md"});
  EXPECT_EQ(missingFrom("see `host/Places.h` and `host/Nothing.h`", kTree / "testing"),
            std::vector<std::string>{"host/Nothing.h"});
}

// --- The tests of SECURITY.md

// Returns the texts between backticks in the last column of tables.
std::set<std::string> namedForPromises(const std::string& page) {
  std::set<std::string> names;
  for (const std::string& line : linesOf(page)) {
    if (line.empty() || line[0] != '|') continue;
    for (const std::string& name : namesIn(line.substr(line.rfind('|', line.size() - 2)))) names.insert(name);
  }
  return names;
}

std::string allTests() {
  std::string text;
  for (const char* folder : {"src", "tests"}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(kTree / folder)) {
      const std::string name = entry.path().string();
      if (name.size() > 9 && name.compare(name.size() - 9, 9, "_test.cpp") == 0) text += host::readFile(name);
    }
  }
  return text;
}

// A name is the path of a file, or the suite and the name of a test.
bool isThere(const std::string& name, const std::string& tests) {
  if (name.find('/') != std::string::npos) return std::filesystem::exists(kTree / name);
  const size_t dot = name.find('.');
  if (dot == std::string::npos) return false;
  const std::string test = "(" + name.substr(0, dot) + ", " + name.substr(dot + 1) + ")";
  return tests.find("TEST_F" + test) != std::string::npos || tests.find("TEST_P" + test) != std::string::npos;
}

TEST(SecurityPromises, EveryNamedTestExists) {
  const std::set<std::string> names = namedForPromises(host::readFile(kTree / "SECURITY.md"));
  EXPECT_GT(names.size(), 20u);
  const std::string tests = allTests();
  for (const std::string& name : names) EXPECT_TRUE(isThere(name, tests)) << name;
}

TEST(SecurityPromises, AMissingNameIsReported) {
  EXPECT_THAT(namedForPromises("| held | `by` |\n| a `x` | `Suite.Gone`, `tests/gone` |\ntext `y`\n"),
              testing::ElementsAre("Suite.Gone", "by", "tests/gone"));
  for (const char* name : {"Suite.Gone", "by", "tests/gone"}) EXPECT_FALSE(isThere(name, "TEST_F(Suite, There)"));
  EXPECT_TRUE(isThere("Suite.There", "TEST_F(Suite, There)"));
}

}  // namespace
