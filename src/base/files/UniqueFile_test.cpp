#include "base/files/UniqueFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <memory>

#include "base/files/FileUtils.h"
#include "log/front/BasicLog.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"
#include "testing/run/LogLines.h"

namespace {

using testing::MatchesRegex;
using testing::SizeIs;
using Texts = std::vector<std::string>;

struct CloseStream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

class UniqueFileTest : public HostTest {
 protected:
  LoggedLines log_;
};

TEST_F(UniqueFileTest, AUniqueFileIsNewOpenForReadingAndWritingAndMode0644) {
  std::string path = "old";
  const Stream stream(FileUtils::makeUniqueFile("/tmp/bundle", path));
  ASSERT_NE(stream, nullptr);
  EXPECT_THAT(path, MatchesRegex("/tmp/bundle\\.[a-zA-Z0-9]{6}"));
  EXPECT_EQ(host::modeOf(path), 0644u);
  std::fputs("text", stream.get());
  std::rewind(stream.get());
  char text[8] = {};
  EXPECT_STREQ(std::fgets(text, sizeof text, stream.get()), "text");
  EXPECT_EQ(::fcntl(::fileno(stream.get()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(UniqueFileTest, AUniqueFileIsSubjectToTheUmaskAndASecondOneHasAnotherName) {
  ::umask(077);
  std::string one;
  std::string two;
  const Stream first(FileUtils::makeUniqueFile("/tmp/bundle", one));
  const Stream second(FileUtils::makeUniqueFile("/tmp/bundle", two));
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(host::modeOf(one), 0600u);
  EXPECT_NE(one, two);
}

TEST_F(UniqueFileTest, ElevenNamesAreTriedAndEachFailureIsLogged) {
  std::string path = "old";
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/missing/bundle", path), nullptr);
  EXPECT_EQ(path, "old");
  EXPECT_EQ(
      log_.lines,
      Texts(11, "[ERROR] basiclib FileUtils.cpp makeUniqueFile failed to open file: error=No such file or directory"));
}

TEST_F(UniqueFileTest, AFailureIsNotLoggedIfErrorsAreNotLogged) {
  BasicLog::Logger& logger = BasicLog::getLogger(BasicLog::basiclibLogger);
  const BasicLog::Level before = logger.threshold();
  std::string path = "old";
  logger.setThreshold(BasicLog::Level::fatal);
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/missing/bundle", path), nullptr);
  logger.setThreshold(before);
  EXPECT_THAT(log_.lines, SizeIs(0));
}

TEST_F(UniqueFileTest, TheEleventhNameMayStillSucceed) {
  for (const std::size_t failures : {0U, 1U, 9U, 10U}) {
    SCOPED_TRACE(failures);
    host::remove("/tmp/late");
    log_.lines.clear();
    FaultPlan plan;
    plan.calls = {"open"};
    plan.before = [failures](std::size_t call) {
      if (call == failures + 1) host::makeDirs("/tmp/late");
    };
    const ArmedFaults armed{plan};
    std::string path;
    const Stream stream(FileUtils::makeUniqueFile("/tmp/late/bundle", path));
    EXPECT_NE(stream, nullptr);
    EXPECT_THAT(log_.lines, SizeIs(failures));
  }
}

TEST_F(UniqueFileTest, AUniquePathBeyond4095BytesIsRefusedWithoutLogging) {
  std::string path = "old";
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/" + std::string(4084, 'x'), path), nullptr);  // 4,096 bytes with the suffix
  EXPECT_THAT(log_.lines, SizeIs(0));
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/" + std::string(4083, 'x'), path),
            nullptr);  // 4,095 bytes, but a component that is too long
  EXPECT_THAT(log_.lines, SizeIs(11));
  EXPECT_EQ(path, "old");
}

TEST_F(UniqueFileTest, AFailureToMakeTheStreamLeavesNoFile) {
  const ArmedFaults armed{FaultPlan{1, false, EIO, {"fdopen"}}};
  std::string path = "old";
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/bundle", path), nullptr);
  EXPECT_EQ(path, "old");
  EXPECT_EQ(host::tree("/tmp"), "d 1777 lock\n");
}

}  // namespace
