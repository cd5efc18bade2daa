// Every test and every file that SECURITY.md names for a promise must exist.
#include <algorithm>
#include <filesystem>
#include <set>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/Matchers.h"

namespace {

namespace fs = std::filesystem;

const std::string kSource = places::source() + "/";

// Returns the texts between backticks in the rows of tables.
std::set<std::string> namedIn(const std::string& page) {
  std::set<std::string> names;
  for (size_t from = 0; from < page.size();) {
    const size_t end = std::min(page.find('\n', from), page.size());
    const std::string line = page.substr(from, end - from);
    from = end + 1;
    if (line.empty() || line[0] != '|') continue;
    const std::string tests = line.substr(line.rfind('|', line.size() - 2));
    for (size_t open = tests.find('`'); open != std::string::npos;) {
      const size_t close = tests.find('`', open + 1);
      if (close == std::string::npos) break;
      names.insert(tests.substr(open + 1, close - open - 1));
      open = tests.find('`', close + 1);
    }
  }
  return names;
}

std::string allTests() {
  std::string text;
  for (const char* folder : {"src", "tests"}) {
    for (const auto& entry : fs::recursive_directory_iterator(kSource + folder)) {
      const std::string name = entry.path().string();
      if (name.size() > 9 && name.compare(name.size() - 9, 9, "_test.cpp") == 0) text += host::readFile(name);
    }
  }
  return text;
}

bool isThere(const std::string& name, const std::string& tests) {
  if (name.find('/') != std::string::npos) return fs::exists(kSource + name);
  const size_t dot = name.find('.');
  if (dot == std::string::npos) return false;
  return tests.find("TEST_F(" + name.substr(0, dot) + ", " + name.substr(dot + 1) + ")") != std::string::npos;
}

TEST(SecurityPromises, EveryNamedTestExists) {
  const std::set<std::string> names = namedIn(host::readFile(kSource + "SECURITY.md"));
  EXPECT_GT(names.size(), 20u);
  const std::string tests = allTests();
  for (const std::string& name : names) EXPECT_TRUE(isThere(name, tests)) << name;
}

TEST(SecurityPromises, AMissingNameIsReported) {
  EXPECT_THAT(namedIn("| held | `by` |\n| a `x` | `Suite.Gone`, `tests/gone` |\ntext `y`\n"),
              testing::ElementsAre("Suite.Gone", "by", "tests/gone"));
  for (const char* name : {"Suite.Gone", "by", "tests/gone"}) EXPECT_FALSE(isThere(name, "TEST_F(Suite, There)"));
  EXPECT_TRUE(isThere("Suite.There", "TEST_F(Suite, There)"));
}

}  // namespace
