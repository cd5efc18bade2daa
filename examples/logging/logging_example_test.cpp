// Runs the logging example, and checks that docs/logging.md shows the same code.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <numeric>
#include <sstream>

#include "base/files/DirectoryListing.h"
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using LoggingExampleTest = HostTest;

constexpr char kLogs[] = "/tmp/example";
const std::string kExample = places::build() + "/examples/logging-example";

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Returns the number of the field "name=number".
int fieldOf(const std::string& line, const std::string& name) {
  return std::atoi(line.substr(line.find(name + "=") + name.size() + 1).c_str());
}

// Returns the steps that each worker reported, in the order of the lines. Expects that every line is such a report.
std::map<int, std::vector<int>> stepsOf(const std::string& text) {
  static constexpr char report[] =
      R"(\[INFO [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{6}\] step done: worker=[1-4] step=[0-9]+)";
  std::map<int, std::vector<int>> steps;
  for (const std::string& line : linesOf(text)) {
    if (line.find("AsyncTask") != std::string::npos) continue;  // the actors log when they start and stop
    EXPECT_THAT(line, testing::MatchesRegex(report));
    steps[fieldOf(line, "worker")].push_back(fieldOf(line, "step"));
  }
  return steps;
}

void expectAllSteps(const std::string& text) {
  const auto steps = stepsOf(text);
  EXPECT_EQ(steps.size(), 4U);
  for (const auto& [worker, numbers] : steps) {
    std::vector<int> expected(numbers.size());
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(numbers, expected) << "worker " << worker;
  }
}

// Returns the concatenated files, in the order of their names, which is also the order of their times.
std::string allFiles(std::size_t* count) {
  std::vector<std::string> names = FileUtils::listDirectory(kLogs).files;
  std::sort(names.begin(), names.end());
  std::string all;
  for (const std::string& file : names) {
    EXPECT_THAT(file, testing::MatchesRegex(R"(example-[0-9]{8}-[0-9]{6}\.log)"));
    all += host::readFile(std::string(kLogs) + "/" + file);
  }
  *count = names.size();
  return all;
}

TEST_F(LoggingExampleTest, EveryOutputReceivesEveryEntryOnceAndFilesRotate) {
  // The first and the last entry are usually a second apart, but less if the machine is slow to start a thread.
  std::size_t files = 0;
  for (int run = 0; run < 5 && files < 2; ++run) {
    host::remove(kLogs);
    const Outcome outcome = runProgram({kExample, kLogs, "1"});
    EXPECT_EQ(outcome.exitStatus, 0);
    const std::string written = allFiles(&files);
    expectAllSteps(written);
    EXPECT_EQ(outcome.out, written);
    EXPECT_EQ(outcome.err, written);
  }
  EXPECT_GE(files, 2U);
}

TEST_F(LoggingExampleTest, SigtermStopsTheProgramCleanly) {
  const pid_t child = ::fork();
  if (child == 0) {
    const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nothing, 1);
    ::dup2(nothing, 2);
    ::execl(kExample.c_str(), "logging-example", kLogs, "60", nullptr);
    ::_exit(127);
  }
  // The log directory exists when the program has written its first entry.
  for (int i = 0; i < 1'000 && !host::exists(kLogs); ++i) ::usleep(10'000);
  ::kill(child, SIGTERM);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  std::size_t files = 0;
  expectAllSteps(allFiles(&files));
}

TEST_F(LoggingExampleTest, WithoutADirectoryTheProgramExitsWithTwo) { EXPECT_EQ(runProgram({kExample}).exitStatus, 2); }

// --- The page

const std::string kSource = places::source() + "/examples/logging/logging_example.cpp";
const std::string kPage = places::source() + "/docs/logging.md";

// Returns the texts between lines that begin with `begin` and lines that begin with `end`, blanks aside.
std::vector<std::string> piecesBetween(const std::string& text, const std::string& begin, const std::string& end) {
  std::vector<std::string> pieces;
  bool isInside = false;
  for (const std::string& line : linesOf(text)) {
    const std::size_t first = std::min(line.find_first_not_of(' '), line.size());
    const auto isMark = [&](const std::string& mark) { return line.compare(first, mark.size(), mark) == 0; };
    if (!isInside && isMark(begin)) {
      isInside = true;
      pieces.emplace_back();
    } else if (isInside && isMark(end)) {
      isInside = false;
    } else if (isInside) {
      pieces.back() += line + "\n";
    }
  }
  EXPECT_FALSE(isInside);
  return pieces;
}

TEST(LoggingPage, PageShowsAllMarkedCodeOfTheExampleAndNoOther) {
  const auto shown = piecesBetween(host::readFile(kPage), "```cpp", "```");
  const auto marked = piecesBetween(host::readFile(kSource), "// begin: ", "// end: ");
  EXPECT_FALSE(shown.empty());
  EXPECT_THAT(shown, testing::UnorderedElementsAreArray(marked));
}

}  // namespace
