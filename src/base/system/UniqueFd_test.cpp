#include "base/system/UniqueFd.h"

#include <fcntl.h>

#include <type_traits>
#include <utility>

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using UniqueFdTest = HostTest;

UniqueFd openNull() { return UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }
bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) >= 0; }

TEST_F(UniqueFdTest, TheDestructorCloses) {
  int fd = -1;
  {
    const UniqueFd owner = openNull();
    fd = owner.get();
    EXPECT_TRUE(owner.isOpen());
    EXPECT_TRUE(isOpen(fd));
  }
  EXPECT_FALSE(isOpen(fd));
}

TEST_F(UniqueFdTest, AMoveClosesTheDescriptorOfTheTargetAndEmptiesTheSource) {
  UniqueFd one = openNull();
  const int fd = one.get();
  UniqueFd two = std::move(one);
  EXPECT_FALSE(one.isOpen());  // NOLINT: the use after the move is the test
  EXPECT_EQ(two.get(), fd);
  UniqueFd three = openNull();
  const int dropped = three.get();
  three = std::move(two);
  EXPECT_EQ(three.get(), fd);
  EXPECT_FALSE(isOpen(dropped));
  UniqueFd& same = three;
  three = std::move(same);
  EXPECT_EQ(three.get(), fd) << "an owner moved to itself keeps its descriptor";
  EXPECT_TRUE(isOpen(fd));
}

TEST_F(UniqueFdTest, AReleasedDescriptorStaysOpen) {
  UniqueFd owner = openNull();
  const int fd = owner.release();
  EXPECT_FALSE(owner.isOpen());
  EXPECT_TRUE(isOpen(fd));
  ::close(fd);
}

TEST_F(UniqueFdTest, AFailedCloseIsReportedAndNotRetried) {
  UniqueFd owner = openNull();
  const ArmedFaults armed{FaultPlan{1, false, EIO, {"close"}, false}};
  EXPECT_FALSE(owner.close());
  EXPECT_FALSE(owner.isOpen());
  EXPECT_TRUE(owner.close());
  EXPECT_EQ(armed.count(), 1u);
}

TEST_F(UniqueFdTest, DescriptorZeroIsADescriptor) {
  const UniqueFd input(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  UniqueFd zero(STDIN_FILENO);
  EXPECT_TRUE(zero.isOpen());
  EXPECT_TRUE(zero.close());
  EXPECT_FALSE(isOpen(STDIN_FILENO));
  ASSERT_EQ(::dup2(input.get(), STDIN_FILENO), STDIN_FILENO);
}

TEST_F(UniqueFdTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<UniqueFd>);
  EXPECT_FALSE(std::is_copy_assignable_v<UniqueFd>);
}

TEST_F(UniqueFdTest, ANegativeDescriptorMeansNone) {
  UniqueFd none(-1);
  EXPECT_FALSE(none.isOpen());
  EXPECT_TRUE(none.close());
  EXPECT_FALSE(UniqueFd().isOpen());
}

}  // namespace
