#include "base/system/Leftover.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "testing/run/HostTest.h"

namespace {

using LeftoverTest = HostTest;

std::string make(const std::string& path) {
  host::writeFile(path, "x");
  return path;
}

bool isThere(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

TEST_F(LeftoverTest, MarkedFilesAreRemoved) {
  const std::string a = make("/tmp/a");
  const std::string b = make("/tmp/b");
  Leftover first;
  Leftover second;
  first.mark(a.c_str());
  second.mark(b.c_str());
  removeLeftovers();
  EXPECT_FALSE(isThere(a));
  EXPECT_FALSE(isThere(b));
}

TEST_F(LeftoverTest, AForgottenFileStays) {
  const std::string a = make("/tmp/a");
  const std::string b = make("/tmp/b");
  const std::string c = make("/tmp/c");
  Leftover first;
  Leftover second;
  Leftover third;
  first.mark(a.c_str());
  second.mark(b.c_str());
  third.mark(c.c_str());
  second.forget();
  second.forget();
  removeLeftovers();
  EXPECT_FALSE(isThere(a));
  EXPECT_TRUE(isThere(b));
  EXPECT_FALSE(isThere(c));
}

TEST_F(LeftoverTest, TheDestructorForgetsTheMark) {
  const std::string a = make("/tmp/a");
  {
    Leftover scoped;
    scoped.mark(a.c_str());
  }
  removeLeftovers();
  EXPECT_TRUE(isThere(a));
}

TEST_F(LeftoverTest, ASecondMarkReplacesTheFirst) {
  const std::string a = make("/tmp/a");
  const std::string b = make("/tmp/b");
  Leftover leftover;
  leftover.mark(a.c_str());
  leftover.mark(b.c_str());
  removeLeftovers();
  EXPECT_TRUE(isThere(a));
  EXPECT_FALSE(isThere(b));
}

TEST_F(LeftoverTest, AMarkMayBeForgottenOnAnotherThread) {
  const std::string a = make("/tmp/a");
  Leftover leftover;
  leftover.mark(a.c_str());
  std::thread([&] { leftover.forget(); }).join();
  removeLeftovers();
  EXPECT_TRUE(isThere(a));
}

TEST_F(LeftoverTest, FilesThatAnotherThreadMarkedAreRemoved) {
  const std::string a = make("/tmp/a");
  Leftover leftover;
  std::thread([&] { leftover.mark(a.c_str()); }).join();
  removeLeftovers();
  EXPECT_FALSE(isThere(a));
}

}  // namespace
