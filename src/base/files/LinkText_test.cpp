#include "base/files/LinkText.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <cerrno>

#include "base/system/UniqueFd.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using testing::Eq;
using testing::Optional;

constexpr const char* kLink = "/tmp/links/one";

class LinkTextTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (!IsSkipped()) host::makeDirs("/tmp/links");
  }
};

TEST_F(LinkTextTest, TheTextIsReadByPathFromADirectoryAndFromTheOpenLink) {
  host::makeLink(kLink, "two");
  const UniqueFd directory(::open("/tmp/links", O_PATH | O_CLOEXEC));
  const UniqueFd link(::open(kLink, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  EXPECT_THAT(linkText(AT_FDCWD, kLink), Optional(Eq("two")));
  EXPECT_THAT(linkText(directory.get(), "one"), Optional(Eq("two")));
  EXPECT_THAT(linkText(link.get(), ""), Optional(Eq("two")));
}

TEST_F(LinkTextTest, TheShortestAndTheLongestTextAreWhole) {
  for (const std::size_t length : {1U, 4095U}) {
    SCOPED_TRACE(length);
    const std::string text(length, '/');
    host::remove(kLink);
    host::makeLink(kLink, text);
    EXPECT_THAT(linkText(AT_FDCWD, kLink), Optional(Eq(text)));
  }
}

TEST_F(LinkTextTest, AnEmptyTextAndOneThatMayBeCutCountAsTooLong) {
  host::makeLink(kLink, "two");
  for (const ssize_t length : {0, 4096}) {
    SCOPED_TRACE(length);
    FaultPlan plan{1, false, 0, {"readlinkat"}};
    plan.linkLength = length;
    const ArmedFaults armed{plan};
    errno = 0;
    EXPECT_FALSE(linkText(AT_FDCWD, kLink));
    EXPECT_EQ(errno, ENAMETOOLONG);
  }
}

TEST_F(LinkTextTest, WhatIsNoLinkHasNoText) {
  host::writeFile(kLink, "two");
  errno = 0;
  EXPECT_FALSE(linkText(AT_FDCWD, kLink));
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_FALSE(linkText(AT_FDCWD, "/tmp/links/none"));
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
