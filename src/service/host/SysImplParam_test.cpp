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
  EXPECT_EQ(sys.hiddenKey(), "sys-impl");
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

TEST_F(SysImplParamTest, WithoutATextItTakesTheDetectedInitSystem) {
  const struct {
    void (*prepare)();
    const char* stored;    // by the empty text
    const char* replaced;  // by the empty text after "upstart"
    const char* resolved;
  } cases[] = {
      {[] {}, "", "upstart", "null"},
      {[] { host::installScript("/etc/init.d/hip", "exit 0"); }, "initd", "initd", "initd"},
      {[] { host::writeFile("/etc/zuv/.systemctl", ""); }, "systemd", "systemd", "systemd"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.resolved);
    c.prepare();
    EXPECT_EQ(SysImplParam().resolved(), c.resolved);
    SysImplParam sys;
    EXPECT_TRUE(sys.setFromText(""));
    EXPECT_TRUE(sys.hasValue());
    EXPECT_EQ(sys.value(), c.stored);
    EXPECT_EQ(sys.resolved(), c.resolved);
    EXPECT_TRUE(sys.setFromText("upstart"));
    EXPECT_TRUE(sys.setFromText(""));
    EXPECT_EQ(sys.value(), c.replaced);
  }
}

TEST_F(SysImplParamTest, AcceptsOnlyTexts) {
  SysImplParam sys;
  EXPECT_FALSE(setFromJson(sys, json::makeNull()));
  EXPECT_FALSE(setFromJson(sys, json::makeBoolean(true)));
  EXPECT_FALSE(setFromJson(sys, json::makeNumber(1)));
  EXPECT_FALSE(sys.hasValue());
}

}  // namespace
