// Reads src/layers.txt and every include of the product. Includes between folders go only to lower folders, no includes
// form a circle, and the list of folders is complete. Every source has a header of the same name beside it, and a
// folder that has folders below it holds headers alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "testing/host/Places.h"

namespace {

using Files = std::map<std::string, std::string>;  // text of each file by its path below src/
using Problems = std::vector<std::string>;

// The sources of the program itself.
const std::set<std::string> kWithoutHeader = {"command/entry/main.cpp", "command/entry/OwnAssertFail.cpp"};

std::string folderOf(const std::string& name) {
  const std::size_t slash = name.rfind('/');
  return slash == std::string::npos ? "" : name.substr(0, slash);
}

// Returns the text between the quotes of each #include.
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

// Returns the rank of each folder of the list, and adds mistakes of the list to `problems`.
std::map<std::string, int> ranksOf(const Files& files, const std::string& layers, Problems& problems) {
  std::set<std::string> there;
  for (const auto& file : files) there.insert(folderOf(file.first));
  std::map<std::string, int> rankOf;
  std::istringstream lines(layers);
  int rank = 0;
  for (std::string line; std::getline(lines, line); ++rank) {
    std::istringstream folders(line.substr(0, line.find('#')));
    for (std::string folder; folders >> folder;) {
      if (!rankOf.emplace(folder, rank).second) problems.push_back(folder + " is listed twice");
      if (there.count(folder) == 0) problems.push_back(folder + " is listed but holds no file");
    }
  }
  return rankOf;
}

// Returns true if a folder of the list is below this one.
bool hasFoldersBelow(const std::string& folder, const std::map<std::string, int>& rankOf) {
  const std::string start = folder + "/";
  const auto first = rankOf.lower_bound(start);
  return first != rankOf.end() && first->first.compare(0, start.size(), start) == 0;
}

// Returns true if includes between files of one folder lead from one file to the other.
bool leadsTo(const Files& files, const std::string& from, const std::string& to, std::set<std::string>& seen) {
  const auto file = files.find(from);
  if (file == files.end()) return false;
  for (const std::string& included : includesOf(file->second)) {
    if (folderOf(included) != folderOf(from)) continue;
    if (included == to || (seen.insert(included).second && leadsTo(files, included, to, seen))) return true;
  }
  return false;
}

Problems problemsOf(const Files& files, const std::string& layers) {
  Problems problems;
  const std::map<std::string, int> rankOf = ranksOf(files, layers, problems);
  for (const auto& [name, text] : files) {
    const auto own = rankOf.find(folderOf(name));
    if (own == rankOf.end()) {
      problems.push_back(name + " is in no folder of the list");
      continue;
    }
    for (const std::string& included : includesOf(text)) {
      const auto other = rankOf.find(folderOf(included));
      const bool isBelow = other != rankOf.end() && (other == own || other->second < own->second);
      if (!isBelow) problems.push_back(name + " includes " + included + ", which is not below it");
    }
    const std::size_t ending = name.rfind(".cpp");
    if (ending != std::string::npos && kWithoutHeader.count(name) == 0 &&
        files.count(name.substr(0, ending) + ".h") == 0)
      problems.push_back(name + " has no header of its name");
    if (ending != std::string::npos && hasFoldersBelow(folderOf(name), rankOf))
      problems.push_back(name + " is in a folder that has folders below it and holds headers alone");
    std::set<std::string> seen;
    if (leadsTo(files, name, name, seen)) problems.push_back(name + " is on a circle of includes");
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

// The files of testing/ by path below the checkout. Of their includes only those of testing/ are kept; the programs,
// which have no header, are left out.
Files testingFiles() {
  Files files;
  const std::filesystem::path root = places::source();
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "testing")) {
    const std::string name = entry.path().lexically_relative(root);
    const std::string extension = entry.path().extension();
    const bool isTest = name.find("_test.") != std::string::npos;
    if ((extension != ".h" && extension != ".cpp") || isTest || folderOf(name) == "testing") continue;
    const std::string text = textOf(entry.path());
    if (text.find("\nint main(") != std::string::npos) continue;
    for (const std::string& included : includesOf(text)) {
      const bool isShared = included.compare(0, 8, "testing/") == 0;
      if (isShared || folderOf(name) == "testing/host") files[name] += "#include \"" + included + "\"\n";
    }
    files[name] += "\n";
  }
  return files;
}

TEST(Layers, EveryIncludeOfTheProductAndOfTestingStaysInItsFolderOrGoesToALowerOne) {
  const std::pair<Files, std::string> trees[] = {
      {productFiles(), textOf(places::source() + "/src/layers.txt")},
      {testingFiles(), "testing/host\ntesting/run\ntesting/faults testing/models\n"},
  };
  for (const auto& [files, layers] : trees) {
    EXPECT_FALSE(files.empty());
    for (const std::string& problem : problemsOf(files, layers)) ADD_FAILURE() << problem;
  }
}

// Makes files from words such as "a/a.h>a/b.h>b/b.h": a name, and the names of the files that it includes.
Files filesOf(const std::string& words) {
  Files files;
  std::istringstream stream(words);
  for (std::string word; stream >> word;) {
    std::istringstream names(word);
    std::string name;
    std::getline(names, name, '>');
    std::string& text = files[name];
    for (std::string included; std::getline(names, included, '>');) text += "#include \"" + included + "\"\n";
  }
  return files;
}

struct Case {
  const char* why;
  const char* files;  // see filesOf
  const char* layers;
  Problems problems;
};

const Problems kNotBelow = {"a/a.h includes b/b.h, which is not below it"};
constexpr const char* kCircle = "a/a.h>b/b.h b/b.h b/c.h>a/a.h";  // a circle of folders, but not of files
const Case kCases[] = {
    {"includes of lower folders and of the same folder are allowed",
     "low/a.h low/b.h>low/a.h mid/c.h top/d/d.h>mid/c.h>low/b.h top/d/d.cpp>top/d/d.h>low/a.h",
     "# low\nlow # first\n\nmid\ntop/d\n",
     {}},
    {"an include of a higher folder", "a/a.h>b/b.h b/b.h", "a\nb\n", kNotBelow},
    {"an include of a folder of the same rank", "a/a.h>b/b.h b/b.h", "b a\n", kNotBelow},
    {"folders that include each other", kCircle, "a\nb\n", kNotBelow},
    {"the same in another order", kCircle, "b\na\n", {"b/c.h includes a/a.h, which is not below it"}},
    {"the same in one rank", kCircle, "a b\n", {kNotBelow[0], "b/c.h includes a/a.h, which is not below it"}},
    {"a circle of includes in a folder",
     "a/a.h>a/b.h a/b.h>a/c.h a/c.h>a/a.h a/d.h>a/a.h a/e.h",
     "a\n",
     {"a/a.h is on a circle of includes", "a/b.h is on a circle of includes", "a/c.h is on a circle of includes"}},
    {"a header that includes itself", "a/a.h>a/a.h", "a\n", {"a/a.h is on a circle of includes"}},
    {"a source without a header of its name, unless it has the main function",
     "a/a.h a/a.cpp a/b.cpp b/b.h command/entry/main.cpp",
     "a\nb\ncommand/entry\n",
     {"a/b.cpp has no header of its name"}},
    {"includes of files outside the list",
     "a/a.h>testing/HostTest.h a/b.h>a.h",
     "a\n",
     {"a/a.h includes testing/HostTest.h, which is not below it", "a/b.h includes a.h, which is not below it"}},
    {"missing, superfluous and repeated folders",
     "a/a.h b/b.h main.cpp",
     "a\nc\na\n",
     {"c is listed but holds no file", "a is listed twice", "b/b.h is in no folder of the list",
      "main.cpp is in no folder of the list"}},
    {"a folder that has folders below it may hold headers, such as one that includes all of theirs",
     "a/b/b.h a/b/b.cpp a/bc/c.h a/a.h>a/b/b.h>a/bc/c.h ab/d.h ab/d.cpp",
     "a/b a/bc\na\nab\n",
     {}},
    {"a source in a folder that has folders below it, however deep",
     "a/b/c/c.h a/a.h a/a.cpp>a/a.h",
     "a/b/c\na\n",
     {"a/a.cpp is in a folder that has folders below it and holds headers alone"}},
};

TEST(Layers, EveryMistakeIsReportedAndNothingElse) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(problemsOf(filesOf(c.files), c.layers), c.problems);
  }
}

TEST(Layers, AnIncludeMayHaveBlanksAndOtherLinesAreIgnored) {
  EXPECT_EQ(includesOf("// #include \"a\"\n #  include \"b/b.h\"\n#include <string>\nint a;\n"),
            std::vector<std::string>{"b/b.h"});
}

}  // namespace
