#include "base/system/OpenAt2.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/openat2.h>

#include <cerrno>

#include "base/system/UniqueFd.h"
#include "testing/run/HostTest.h"

namespace {

using testing::AnyOf;

class OpenAt2Test : public HostTest {};

// A system without openat2, and one that filters it, refuse every call.
TEST_F(OpenAt2Test, ALinkOnTheWayIsRefused) {
  host::writeFile("/tmp/folder/file", "x");
  host::makeLink("/tmp/link", "folder");
  const UniqueFd folder(::open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC));
  errno = 0;
  const UniqueFd plain(openAt2(folder.get(), "folder/file", O_RDONLY | O_CLOEXEC, 0, RESOLVE_NO_SYMLINKS));
  EXPECT_THAT(plain.isOpen() ? 0 : errno, AnyOf(0, ENOSYS, EPERM));
  const UniqueFd linked(openAt2(folder.get(), "link/file", O_RDONLY | O_CLOEXEC, 0, RESOLVE_NO_SYMLINKS));
  EXPECT_EQ(linked.get(), -1);
  EXPECT_THAT(errno, AnyOf(ELOOP, ENOSYS, EPERM));
  const UniqueFd made(openAt2(folder.get(), "made", O_WRONLY | O_CREAT | O_CLOEXEC, 0600, 0));
  EXPECT_EQ(made.isOpen(), plain.isOpen());
  EXPECT_EQ(host::exists("/tmp/made"), plain.isOpen());
  EXPECT_EQ(made.isOpen() ? host::modeOf("/tmp/made") : 0600u, 0600u);
}

}  // namespace
