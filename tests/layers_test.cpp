// Reads src/layers.txt and every include of the product: arrows go down, and the list is complete.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "testing/Places.h"

namespace {

using Files = std::map<std::string, std::string>;  // text by path below src/
using Problems = std::vector<std::string>;

// What stands between the quotes of every #include.
std::vector<std::string> includesOf(const std::string& text) {
  std::vector<std::string> included;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    line.erase(std::remove_if(line.begin(), line.end(), [](char c) { return c == ' ' || c == '\t'; }), line.end());
    const std::string start = "#include\"";
    if (line.compare(0, start.size(), start) == 0)
      included.push_back(line.substr(start.size(), line.rfind('"') - start.size()));
  }
  return included;
}

Problems problemsOf(const Files& files, const std::string& layers) {
  Problems problems;
  std::map<std::string, int> rankOf;
  std::istringstream lines(layers);
  int rank = 0;
  for (std::string line; std::getline(lines, line); ++rank) {
    std::istringstream names(line.substr(0, line.find('#')));
    for (std::string name; names >> name;) {
      if (!rankOf.emplace(name, rank).second) problems.push_back(name + " is listed twice");
      if (files.count(name) == 0) problems.push_back(name + " is listed and not there");
    }
  }
  for (const auto& [name, text] : files) {
    const auto own = rankOf.find(name);
    if (own == rankOf.end()) {
      problems.push_back(name + " is not listed");
      continue;
    }
    for (const std::string& included : includesOf(text)) {
      const auto other = rankOf.find(included);
      if (other == rankOf.end() || other->second >= own->second) {
        problems.push_back(name + " includes " + included + ", which does not lie below it");
      }
    }
  }
  return problems;
}

std::string textOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

Files productFiles() {
  Files files;
  const std::filesystem::path root = places::source() + "/src";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string name = entry.path().lexically_relative(root);
    const std::string extension = entry.path().extension();
    const bool isTest = name.find("_test.") != std::string::npos;
    if ((extension == ".h" || extension == ".cpp") && !isTest) files[name] = textOf(entry.path());
  }
  return files;
}

TEST(Layers, EveryIncludeOfTheProductGoesDownAndEveryFileHasItsRank) {
  const Files files = productFiles();
  EXPECT_FALSE(files.empty());
  for (const std::string& problem : problemsOf(files, textOf(places::source() + "/src/layers.txt")))
    ADD_FAILURE() << problem;
}

TEST(Layers, ADownwardArrowIsFine) {
  EXPECT_EQ(
      problemsOf({{"a.h", ""}, {"a.cpp", "#include \"a.h\"\n#include <string>\n"}}, "# low\na.h # first\n\na.cpp\n"),
      Problems());
}

TEST(Layers, AnUpwardArrowIsSeen) {
  EXPECT_EQ(problemsOf({{"a.h", "// comment\n #  include \"b.h\"\n"}, {"b.h", ""}}, "a.h\nb.h\n"),
            Problems{"a.h includes b.h, which does not lie below it"});
}

TEST(Layers, ACircleIsSeenWhateverTheOrder) {
  const Files circle = {{"a.h", "#include \"b.h\"\n"}, {"b.h", "#include \"a.h\"\n"}};
  for (const char* order : {"a.h\nb.h\n", "b.h\na.h\n"}) EXPECT_EQ(problemsOf(circle, order).size(), 1u) << order;
  EXPECT_EQ(problemsOf(circle, "a.h b.h\n").size(), 2u);
}

TEST(Layers, FilesOfOneLineDoNotSeeEachOther) {
  EXPECT_EQ(problemsOf({{"a.h", "#include \"b.h\"\n"}, {"b.h", ""}}, "b.h a.h\n").size(), 1u);
}

TEST(Layers, AFileOutsideTheListIsNotIncluded) {
  EXPECT_EQ(problemsOf({{"a.h", "#include \"testing/HostTest.h\"\n"}}, "a.h\n"),
            Problems{"a.h includes testing/HostTest.h, which does not lie below it"});
}

TEST(Layers, MissingSuperfluousAndRepeatedNamesAreSeen) {
  EXPECT_EQ(problemsOf({{"a.h", ""}, {"b.h", ""}}, "a.h\nc.h\na.h\n"),
            (Problems{"c.h is listed and not there", "a.h is listed twice", "b.h is not listed"}));
}

}  // namespace
