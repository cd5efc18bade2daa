#include "profiles/store/ProfileTexts.h"

#include "testing/run/HostTest.h"

namespace {

TEST(ProfileTexts, ANameLosesBlanksAndControlBytesAtItsEnds) {
  EXPECT_EQ(ProfileTexts::cleanName(" \t\x01lab 1\x7f\r\n"), "lab 1");
  EXPECT_EQ(ProfileTexts::cleanName("a\nb"), "a\nb");
  EXPECT_EQ(ProfileTexts::cleanName(" \n"), "");
}

TEST(ProfileTexts, OnlyTheInvitationIsTrimmedBeforeItsTextIsChecked) {
  EXPECT_THAT(ProfileTexts::checkTexts("", "", ""), HasCode(status::success));
  EXPECT_THAT(ProfileTexts::checkTexts("h\xc3\xa4", "e\xff", "i\x80"), HasCode(status::success));
  EXPECT_THAT(ProfileTexts::checkTexts("h h", "e e", "\n i i\t"), HasCode(status::success));
  EXPECT_THAT(ProfileTexts::checkTexts("h\n", "", ""), HasCode(status::invalidArgument));
  EXPECT_THAT(ProfileTexts::checkTexts("", "e\t", ""), HasCode(status::invalidArgument));
  EXPECT_THAT(ProfileTexts::checkTexts("", "", "i\ti"), HasCode(status::invalidArgument));
}

}  // namespace
