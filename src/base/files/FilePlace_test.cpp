#include "base/files/FilePlace.h"

#include <fcntl.h>

#include "base/system/UniqueFd.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kFile = "/tmp/folder/file";

class FilePlaceTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    host::writeFile(kFile, "text");
    file_.reset(::open(kFile, O_RDONLY | O_CLOEXEC));
    folder_.reset(::open("/tmp/folder", O_PATH | O_CLOEXEC));
  }

  Place place() const { return placeOf(file_.get(), folder_.get(), "file"); }

  UniqueFd file_;
  UniqueFd folder_;
};

TEST_F(FilePlaceTest, ANameBelongsToTheOpenFileWhereverItsFolderIs) {
  EXPECT_EQ(place(), Place::same);
  EXPECT_EQ(placeOf(file_.get(), AT_FDCWD, kFile), Place::same);
  ASSERT_EQ(::rename("/tmp/folder", "/tmp/moved"), 0);
  EXPECT_EQ(place(), Place::same);
  EXPECT_EQ(placeOf(file_.get(), AT_FDCWD, kFile), Place::another);
}

TEST_F(FilePlaceTest, ANameThatIsMissingOrBelongsToAnotherFileOrToALinkIsAnother) {
  ASSERT_EQ(::rename(kFile, "/tmp/folder/moved"), 0);
  EXPECT_EQ(place(), Place::another);
  host::makeLink(kFile, "moved");
  EXPECT_EQ(place(), Place::another);
  host::remove(kFile);
  host::writeFile(kFile, "text");
  EXPECT_EQ(place(), Place::another);
  EXPECT_EQ(placeOf(file_.get(), folder_.get(), "file/below"), Place::another);
}

TEST_F(FilePlaceTest, ItIsUnknownIfTheSystemCannotTell) {
  for (const char* call : {"fstat", "fstatat"}) {
    const ArmedFaults armed{FaultPlan{1, false, EIO, {call}}};
    EXPECT_EQ(place(), Place::unknown) << call;
  }
}

}  // namespace
