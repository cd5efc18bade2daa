#include "base/files/OldBytes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/system/RawWrite.h"
#include "base/system/UniqueFd.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kFile = "/tmp/file";

class OldBytesTest : public HostTest {
 protected:
  // Keeps what a write of `length` bytes overwrites in a file of this text.
  void keep(const std::string& text, std::size_t length) {
    host::writeFile(kFile, text);
    fd_.reset(::open(kFile, O_RDWR | O_CLOEXEC));
    old_.keep(fd_.get(), static_cast<off_t>(text.size()), length);
  }

  UniqueFd fd_;
  OldBytes old_;
};

TEST_F(OldBytesTest, AFileGetsItsBytesAndItsLengthBackWhateverWasWritten) {
  for (const char* old : {"", "old", "a longer text"}) {
    for (const char* text : {"", "new", "text of a different length"}) {
      SCOPED_TRACE(std::string(text) + " over " + old);
      keep(old, std::char_traits<char>::length(text));
      EXPECT_TRUE(old_.isKept());
      EXPECT_TRUE(writeFully(fd_.get(), text));
      old_.noteCut();
      old_.putBack(fd_.get());
      EXPECT_EQ(host::readFile(kFile), old);
      EXPECT_FALSE(old_.isKept());
    }
  }
}

TEST_F(OldBytesTest, AFileThatHasBeenCutIsPutBackOnlyIfAllOfItIsKept) {
  const std::string text = "new";
  for (const std::size_t more : {4096u, 4097u}) {
    SCOPED_TRACE(more);
    const std::string old(text.size() + more, 'x');
    keep(old, text.size());
    EXPECT_TRUE(writeFully(fd_.get(), text));
    ASSERT_EQ(::ftruncate(fd_.get(), static_cast<off_t>(text.size())), 0);
    old_.noteCut();
    old_.putBack(fd_.get());
    EXPECT_EQ(host::readFile(kFile), more == 4096 ? old : text);
  }
}

// Where a size_t has 32 bits, the size of this file must not be cut to 10.
TEST_F(OldBytesTest, OnlyTheBeginningOfAFileOfMoreThan4GibIsKept) {
  const off_t size = (off_t{4} << 30) + 10;
  host::writeFile(kFile, "the old text");
  ASSERT_EQ(::truncate(kFile, size), 0);
  fd_.reset(::open(kFile, O_RDWR | O_CLOEXEC));
  old_.keep(fd_.get(), size, 7);
  EXPECT_TRUE(writeFully(fd_.get(), "written"));
  old_.putBack(fd_.get());
  EXPECT_EQ(::lseek(fd_.get(), 0, SEEK_END), size);
  char text[12];
  ASSERT_EQ(::pread(fd_.get(), text, sizeof text, 0), 12);
  EXPECT_EQ(std::string(text, sizeof text), "the old text");
}

TEST_F(OldBytesTest, AFileThatEndsEarlierThanItsSizeSaidIsKeptAsItIs) {
  host::writeFile(kFile, "old");
  fd_.reset(::open(kFile, O_RDWR | O_CLOEXEC));
  old_.keep(fd_.get(), 1000, 10);
  EXPECT_TRUE(writeFully(fd_.get(), "0123456789"));
  old_.putBack(fd_.get());
  EXPECT_EQ(host::readFile(kFile), "old");
}

TEST_F(OldBytesTest, AFileThatGrowsWhileItIsReadIsKeptOnlyUpToItsReportedSize) {
  host::writeFile(kFile, "ab");
  fd_.reset(::open(kFile, O_RDWR | O_CLOEXEC));
  FaultPlan plan;
  plan.calls = {"pread"};
  plan.before = [&](std::size_t call) {
    if (call != 2) return;
    const std::string more(1000, 'x');
    EXPECT_EQ(::pwrite(fd_.get(), more.data(), more.size(), 2), 1000);
  };
  {
    const ArmedFaults armed(plan);
    old_.keep(fd_.get(), 100, 10);
  }
  old_.putBack(fd_.get());
  EXPECT_EQ(host::readFile(kFile), "ab" + std::string(98, 'x'));
}

TEST_F(OldBytesTest, NothingIsKeptOfAFileThatCannotBeRead) {
  const ArmedFaults armed(FaultPlan{1, false, EIO, {"pread"}});
  keep("old", 3);
  EXPECT_FALSE(old_.isKept());
  EXPECT_TRUE(writeFully(fd_.get(), "new"));
  old_.putBack(fd_.get());
  EXPECT_EQ(host::readFile(kFile), "new");
}

TEST_F(OldBytesTest, TheNewEndIsCutOffEvenIfTheLengthCannotBeLearned) {
  keep("old", 10);
  EXPECT_TRUE(writeFully(fd_.get(), "0123456789"));
  const ArmedFaults armed(FaultPlan{1, true, EIO, {"fstat"}});
  old_.putBack(fd_.get());
  EXPECT_EQ(host::readFile(kFile), "old");
}

TEST_F(OldBytesTest, AFileOfTheSameLengthIsWrittenOnceAndNotCut) {
  keep("old", 3);
  EXPECT_TRUE(writeFully(fd_.get(), "new"));
  const ArmedFaults counted{FaultPlan{}};
  old_.putBack(fd_.get());
  EXPECT_THAT(counted.calls(), testing::ElementsAre("pwrite", "fstat"));
}

TEST_F(OldBytesTest, ADeviceThatAcceptsNoByteEndsThePuttingBack) {
  keep("old", 3);
  const ArmedFaults armed(FaultPlan{1, true, 0, {"pwrite"}});
  old_.putBack(fd_.get());
  EXPECT_EQ(armed.count(), 1u);
}

TEST_F(OldBytesTest, ForgottenBytesAreNotPutBack) {
  keep("old", 3);
  old_.forget();
  EXPECT_TRUE(writeFully(fd_.get(), "new"));
  old_.putBack(fd_.get());
  EXPECT_EQ(host::readFile(kFile), "new");
}

}  // namespace
