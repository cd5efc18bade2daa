#include "base/files/FileAttributes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "base/system/UniqueFd.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/AccessLists.h"
#include "testing/run/HostTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Attributes = std::map<std::string, std::string>;

constexpr const char* kFrom = "/tmp/from";
constexpr const char* kTo = "/tmp/to";

Attributes attributesOf(const char* path) {
  std::string names(65536, '\0');
  std::string value(65536, '\0');
  const ssize_t length = ::listxattr(path, names.data(), names.size());
  EXPECT_GE(length, 0);
  names.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  Attributes all;
  for (std::size_t at = 0; at < names.size();) {
    const std::string name = names.c_str() + at;
    at += name.size() + 1;
    if (name.compare(0, 9, "security.") == 0) continue;  // a label that the machine gives every file
    const ssize_t size = ::getxattr(path, name.c_str(), value.data(), value.size());
    EXPECT_GE(size, 0);
    all[name] = value.substr(0, static_cast<std::size_t>(size));
  }
  return all;
}

class FileAttributesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    host::writeFile(kFrom, "old", 0640);
    host::writeFile(kTo, "new", 0600);
  }
};

bool copy(bool isOwnerKept = true) {
  const UniqueFd from(::open(kFrom, O_RDONLY | O_CLOEXEC));
  const UniqueFd to(::open(kTo, O_WRONLY | O_CLOEXEC));
  return copyFileAttributes(from.get(), to.get(), isOwnerKept);
}

TEST_F(FileAttributesTest, AFileGetsTheAccessListOfTheOtherAndLosesAnInheritedOne) {
  const std::string empty;
  const std::string small = accessList({4, 4, 0});
  const std::string large = accessList({7, 6, 7});
  for (const std::string& wanted : {empty, small, large}) {
    for (const std::string& inherited : {empty, small, large}) {
      SCOPED_TRACE(host::quoted(wanted) + " over " + host::quoted(inherited));
      host::writeFile(kFrom, "old", 0640);
      host::writeFile(kTo, "new", 0600);
      if (!wanted.empty()) setAttribute(kFrom, kAccessList, wanted);
      if (!inherited.empty()) setAttribute(kTo, kAccessList, inherited);
      EXPECT_TRUE(copy());
      EXPECT_EQ(attributesOf(kTo), attributesOf(kFrom));
      EXPECT_EQ(attributesOf(kTo).count(kAccessList), wanted.empty() ? 0u : 1u);
      if (!wanted.empty()) {
        EXPECT_EQ(host::modeOf(kTo), host::modeOf(kFrom));
      }
      host::remove(kFrom);
      host::remove(kTo);
    }
  }
}

TEST_F(FileAttributesTest, AFileGetsExactlyTheOtherAttributesOfTheOther) {
  SKIP_WITHOUT_OTHER_USERS();
  setAttribute(kFrom, kNote, std::string("a\0b", 3));
  setAttribute(kFrom, "trusted.empty", "");
  setAttribute(kFrom, "trusted.large", std::string(65536, 'x'));
  setAttribute(kTo, kNote, "another value");
  setAttribute(kTo, "trusted.other", "to be removed");
  EXPECT_TRUE(copy());
  EXPECT_THAT(attributesOf(kTo), ElementsAre(Pair("trusted.empty", ""), Pair("trusted.large", std::string(65536, 'x')),
                                             Pair(kNote, std::string("a\0b", 3))));
}

TEST_F(FileAttributesTest, TheAccessListIsSetAfterAllOtherAttributes) {
  SKIP_WITHOUT_OTHER_USERS();
  setAttribute(kFrom, kNote, "note");
  setAttribute(kFrom, kAccessList, accessList({4, 4, 0}));
  FaultPlan plan;
  plan.calls = {"fsetxattr"};
  plan.before = [](std::size_t call) {
    EXPECT_THAT(attributesOf(kTo), testing::SizeIs(call - 1));
    EXPECT_EQ(attributesOf(kTo).count(kAccessList), 0u);
    EXPECT_EQ(host::modeOf(kTo), 0600u);
  };
  const ArmedFaults armed(plan);
  EXPECT_TRUE(copy());
  EXPECT_EQ(armed.count(), 2u);
}

TEST_F(FileAttributesTest, WithoutTheOwnerTheListGrantsNothingToAnybodyElse) {
  setAttribute(kFrom, kAccessList, accessList({7, 6, 4}));
  EXPECT_TRUE(copy(false));
  EXPECT_EQ(attributeOf(kTo, kAccessList), accessList({7, 0, 0})) << "the mask and others";
  EXPECT_EQ(host::modeOf(kTo), 0600u);
}

TEST_F(FileAttributesTest, AFileGetsNoCapabilities) {
  SKIP_WITHOUT_OTHER_USERS();
  constexpr const char* capability = "security.capability";
  const std::string netRaw("\x01\0\0\x02\0\x20\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20);
  setAttribute(kFrom, capability, netRaw);
  EXPECT_EQ(attributeOf(kFrom, capability), netRaw);
  EXPECT_TRUE(copy());
  EXPECT_EQ(attributeOf(kTo, capability), "(none)");
}

TEST_F(FileAttributesTest, AFileSystemWithoutAttributesIsNoFailure) {
  const ArmedFaults armed(FaultPlan{1, true, ENOTSUP, {"flistxattr"}});
  EXPECT_TRUE(copy());
  EXPECT_EQ(armed.count(), 2u);
}

TEST_F(FileAttributesTest, AttributesThatCannotBeListedMayHoldAnAccessList) {
  setAttribute(kTo, kAccessList, accessList({4, 4, 0}));
  for (const std::size_t at : {1u, 2u}) {
    for (const int error : {E2BIG, EPERM, ENOSYS}) {
      const ArmedFaults armed(FaultPlan{at, false, error, {"flistxattr"}});
      EXPECT_FALSE(copy());
    }
  }
}

TEST_F(FileAttributesTest, AnAttributeThatIsRemovedMeanwhileIsMissing) {
  setAttribute(kFrom, kAccessList, accessList({4, 4, 0}));
  setAttribute(kTo, kAccessList, accessList({7, 7, 0}));
  FaultPlan plan;
  plan.calls = {"fgetxattr"};
  plan.before = [](std::size_t) { ASSERT_EQ(::removexattr(kFrom, kAccessList), 0); };
  const ArmedFaults armed(plan);
  EXPECT_TRUE(copy());
  EXPECT_THAT(attributesOf(kTo), IsEmpty());
}

TEST_F(FileAttributesTest, AFaultFailsTheCopyOnlyIfItConcernsTheAccessList) {
  SKIP_WITHOUT_OTHER_USERS();
  const FaultLoop loop{[] {
                         host::remove(kTo);
                         host::remove(kFrom);
                         host::writeFile(kFrom, "old", 0640);
                         host::writeFile(kTo, "new", 0600);
                         setAttribute(kFrom, kNote, "note");
                         setAttribute(kFrom, kAccessList, accessList({4, 4, 0}));
                         setAttribute(kTo, "trusted.other", "to be removed");
                       },
                       {"flistxattr", "fgetxattr", "fsetxattr", "fremovexattr"}};
  const std::size_t steps = forEachFault(
      loop, [] { return copy(); },
      [](bool isListKept, const Fault& fault) {
        EXPECT_EQ(isListKept, attributesOf(kTo).count(kAccessList) == 1);
        // List both files, remove one attribute, read and set the note; then the access list.
        const bool concernsNotes = fault.step >= 3 && fault.step <= 5 && !fault.fromThereOn;
        EXPECT_EQ(isListKept, !fault || concernsNotes);
        const bool isNoteKept = fault.step > 5 || (fault.step == 3 && !fault.fromThereOn) || !fault;
        EXPECT_EQ(attributesOf(kTo).count(kNote), isNoteKept ? 1u : 0u);
      });
  EXPECT_EQ(steps, 7u);
}

TEST_F(FileAttributesTest, AnInheritedListGoesEvenIfTheOtherCannotBeSet) {
  setAttribute(kFrom, kAccessList, accessList({4, 4, 0}));
  setAttribute(kTo, kAccessList, accessList({7, 7, 0}));
  const ArmedFaults armed(FaultPlan{1, false, ENOSPC, {"fsetxattr"}});
  EXPECT_FALSE(copy());
  EXPECT_THAT(attributesOf(kTo), IsEmpty());
}

TEST_F(FileAttributesTest, AnInheritedListThatCannotBeRemovedIsAFailureUnlessItIsMissing) {
  for (const bool isMissing : {false, true}) {
    SCOPED_TRACE(isMissing);
    setAttribute(kTo, kAccessList, accessList({7, 7, 0}));
    const ArmedFaults armed(FaultPlan{1, false, isMissing ? ENODATA : EIO, {"fremovexattr"}});
    EXPECT_EQ(copy(), isMissing);
    EXPECT_EQ(armed.count(), 1u);
  }
}

TEST_F(FileAttributesTest, AnInheritedListThatCannotBeRemovedIsAFailureEvenIfTheOtherIsRemovedMeanwhile) {
  setAttribute(kFrom, kAccessList, accessList({4, 4, 0}));
  setAttribute(kTo, kAccessList, accessList({7, 7, 0}));
  FaultPlan plan{2, false, EIO, {"fgetxattr", "fremovexattr"}};
  plan.before = [](std::size_t call) {
    if (call == 1) {
      ASSERT_EQ(::removexattr(kFrom, kAccessList), 0);
    }
  };
  const ArmedFaults armed(plan);
  EXPECT_FALSE(copy());
  EXPECT_EQ(armed.calls(), (std::vector<std::string>{"fgetxattr", "fremovexattr"}));
}

TEST_F(FileAttributesTest, WithoutTheOwnerAttributesOtherThanTheListAreCopiedWhole) {
  SKIP_WITHOUT_OTHER_USERS();
  setAttribute(kFrom, kNote, "note");
  EXPECT_TRUE(copy(false));
  EXPECT_EQ(attributeOf(kTo, kNote), "note");
}

}  // namespace
