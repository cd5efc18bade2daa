#include "service/host/SysImplParam.h"

#include "json/JsonModel.h"
#include "testing/run/HostTest.h"

namespace {

using SysImplParamTest = HostTest;

TEST_F(SysImplParamTest, IsAnOptionalText) {
  const SysImplParam sys;
  EXPECT_EQ(sys.name(), "sys");
  EXPECT_STREQ(sys.typeDescription(), "sys impl name");
  std::string form;
  sys.appendValueForm(form);
  EXPECT_EQ(form, "sys-impl");
  EXPECT_FALSE(sys.isRequired());
  EXPECT_FALSE(sys.isHidden());
  EXPECT_FALSE(sys.isSingleWord());
  EXPECT_TRUE(sys.takesValue());
  EXPECT_EQ(sys.value(), "");
}

TEST_F(SysImplParamTest, ATextIsStoredAsGiven) {
  host::writeFile("/etc/zuv/.systemctl", "");
  for (const char* text : {"initd", "Systemd", " ", "%n", "launchd"}) {
    SysImplParam sys;
    EXPECT_TRUE(sys.setFromText(text));
    EXPECT_EQ(sys.value(), text);
    EXPECT_EQ(sys.resolved(), text);
  }
}

TEST_F(SysImplParamTest, TheEmptyTextStoresTheDetectedInitSystem) {
  SysImplParam none;
  EXPECT_TRUE(none.setFromText(""));
  EXPECT_TRUE(none.hasValue());
  EXPECT_EQ(none.value(), "");
  EXPECT_EQ(none.resolved(), "null");

  host::installScript("/etc/init.d/hip", "exit 0");
  SysImplParam initd;
  EXPECT_TRUE(initd.setFromText(""));
  EXPECT_EQ(initd.value(), "initd");

  host::writeFile("/etc/zuv/.systemctl", "");
  SysImplParam systemd;
  EXPECT_TRUE(systemd.setFromText(""));
  EXPECT_EQ(systemd.value(), "systemd");
}

TEST_F(SysImplParamTest, WithoutAnInitSystemTheEmptyTextKeepsTheEarlierValue) {
  SysImplParam sys;
  EXPECT_TRUE(sys.setFromText("upstart"));
  EXPECT_TRUE(sys.setFromText(""));
  EXPECT_EQ(sys.value(), "upstart");
}

TEST_F(SysImplParamTest, WithoutAValueItResolvesToTheDetectedInitSystem) {
  EXPECT_EQ(SysImplParam().resolved(), "null");
  host::installScript("/etc/init.d/hip", "exit 0");
  EXPECT_EQ(SysImplParam().resolved(), "initd");
  host::writeFile("/etc/zuv/.systemctl", "");
  EXPECT_EQ(SysImplParam().resolved(), "systemd");
}

TEST_F(SysImplParamTest, AcceptsOnlyTexts) {
  SysImplParam sys;
  EXPECT_FALSE(setFromJson(sys, json::makeNull()));
  EXPECT_FALSE(setFromJson(sys, json::makeBoolean(true)));
  EXPECT_FALSE(setFromJson(sys, json::makeNumber(1)));
  EXPECT_FALSE(sys.hasValue());
}

}  // namespace
