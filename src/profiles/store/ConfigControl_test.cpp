// Tests of the readers and writers of a profile's configuration files. HostReports_test.cpp tests the host's
// interfaces.
#include "profiles/store/ConfigControl.h"

#include <sys/stat.h>
#include <unistd.h>

#include "base/files/ProgramDirectories.h"
#include "command/status/AppStatusCodes.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using testing::AnyOf;
using testing::ElementsAreArray;

constexpr const char* kDir = "/etc/zuv/profiles/profile-1";
constexpr const char* kHipConf = "/etc/zuv/profiles/profile-1/hip.conf";
constexpr const char* kEndbox = "/etc/zuv/profiles/profile-1/endbox.conf";
constexpr const char* kMapconfig = "/etc/zuv/profiles/profile-1/mapconfig.static";
constexpr const char* kDeviceId = "/etc/zuv/profiles/profile-1/device_id";

class ConfigControlTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    host::makeDirs(kDir);
  }
};

using Reader = bool (*)(std::string_view dirname, std::string& value);

struct ReaderRow {
  const char* why;
  Reader read;
  const char* file;
  const char* key;
  bool isMadePlain;
};
constexpr ReaderRow kReaders[] = {
    {"interface", ConfigControl::readInterface, kHipConf, "master_interface=", false},
    {"device address", ConfigControl::readDeviceIp, kEndbox, "device_ip=", true},
    {"device mask", ConfigControl::readDeviceMask, kEndbox, "device_mask=", true},
    {"invitation", ConfigControl::readInvitation, kEndbox, "activation_code=", true},
    {"level", ConfigControl::readLogLevel, kEndbox, "log_level=", true},
    {"level of the core", ConfigControl::readLogLevel, kEndbox, "openhip.log_level=", true},
};

std::string valueRead(Reader read, bool expected = true) {
  std::string value = "left over";
  EXPECT_EQ(read("profile-1", value), expected);
  return value;
}

// --- Readers of lines

using ConfigReaderTest = ConfigControlTest;

TEST_F(ConfigReaderTest, EachKeyIsReadFromItsFile) {
  for (const ReaderRow& row : kReaders) {
    SCOPED_TRACE(row.why);
    host::remove(kDir);
    EXPECT_EQ(valueRead(row.read, false), "") << "no directory";
    host::makeDirs(kDir);
    EXPECT_EQ(valueRead(row.read, false), "") << "no file";
    host::writeFile(row.file, "");
    EXPECT_EQ(valueRead(row.read, false), "") << "no line";
    host::writeFile(row.file, "# comment\n\nother=1\n"s + row.key + "10.0.0.1\n");
    EXPECT_EQ(valueRead(row.read), "10.0.0.1");
  }
}

TEST_F(ConfigReaderTest, TheValueIsThatOfTheFirstLineOfTheKeyTrimmedButVerbatim) {
  const struct {
    const char* why;
    std::string before;  // the text before the key
    std::string after;   // the text behind the key and "="
    bool found;
    std::string value;
  } cases[] = {
      {"a value and a newline", "", "x\n", true, "x"},
      {"no newline", "", "x", true, "x"},
      {"blanks before the key", "  \t", "x\n", true, "x"},
      {"blanks behind the value", "", "x \t\r\n", true, "x"},
      {"blanks inside the value", "", "x  y\n", true, "x  y"},
      {"a blank before the value stays", "", " x\n", true, " x"},
      {"quotes are part of the value", "", "\"x\"\n", true, "\"x\""},
      {"another equals sign", "", "x=y=z\n", true, "x=y=z"},
      {"a hash sign in the value", "", "x#y\n", true, "x#y"},
      {"an empty value", "", "\n", true, ""},
      {"a comment", "#", "x\n", false, ""},
      {"a comment behind blanks", "  #", "x\n", false, ""},
      {"the end of a longer key", "a", "x\n", false, ""},
  };
  for (const ReaderRow& row : kReaders) {
    SCOPED_TRACE(row.why);
    for (const auto& c : cases) {
      SCOPED_TRACE(c.why);
      host::writeFile(row.file, c.before + row.key + c.after);
      EXPECT_EQ(valueRead(row.read, c.found), c.value);
    }
    host::writeFile(row.file, row.key + "first\n"s + row.key + "second\n");
    EXPECT_EQ(valueRead(row.read), "first");
  }
}

TEST_F(ConfigReaderTest, KeysAreComparedExactly) {
  host::writeFile(kHipConf, "Master_Interface=a\nmaster_interface =b\nmaster_interfac=c\nmaster_interface\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface, false), "");
}

TEST_F(ConfigReaderTest, EveryValueExceptTheInterfaceIsMadePlainAscii) {
  for (const ReaderRow& row : kReaders) {
    SCOPED_TRACE(row.why);
    host::writeFile(row.file, row.key + "a\x80z\xc3\xa4 \xff!\n"s);
    EXPECT_EQ(valueRead(row.read), row.isMadePlain ? "a?z?? ?!" : "a\x80z\xc3\xa4 \xff!");
  }
}

TEST_F(ConfigReaderTest, HighBytesAtTheEndsAreTrimmedNotReplaced) {
  host::writeFile(kEndbox, "activation_code=abc\xff\n");
  EXPECT_EQ(valueRead(ConfigControl::readInvitation), "abc");
}

TEST_F(ConfigReaderTest, TheLevelOfTheCoreIsReadOnlyIfThereIsNoOther) {
  host::writeFile(kEndbox, "openhip.log_level=debug\nlog_level=info\n");
  EXPECT_EQ(valueRead(ConfigControl::readLogLevel), "info");
  host::writeFile(kEndbox, "openhip.log_level=debug\n");
  EXPECT_EQ(valueRead(ConfigControl::readLogLevel), "debug");
  host::writeFile(kEndbox, "openhip.log_level=debug\nlog_level=\n");
  EXPECT_EQ(valueRead(ConfigControl::readLogLevel), "") << "an empty value is a value";
}

TEST_F(ConfigReaderTest, ALineOfMoreThan7999BytesIsReadAsSeveralLines) {
  const std::string filler(7999, '-');
  host::writeFile(kHipConf, filler + "master_interface=eth0\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface), "eth0");
  host::writeFile(kHipConf, filler.substr(1) + "master_interface=eth0\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface, false), "");
  host::writeFile(kHipConf, "master_interface=" + filler + "\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface), filler.substr(std::string("master_interface=").size()));
}

TEST_F(ConfigReaderTest, OnlyAReadableRegularFileIsRead) {
  for (const ReaderRow& row : kReaders) {
    SCOPED_TRACE(row.why);
    host::remove(row.file);
    host::makeFifo(row.file);
    EXPECT_EQ(valueRead(row.read, false), "");
    host::remove(row.file);
    host::makeDirs(row.file);
    EXPECT_EQ(valueRead(row.read, false), "");
    host::remove(row.file);
    host::makeLink(row.file, "/dev/null");
    EXPECT_EQ(valueRead(row.read, false), "");
    host::remove(row.file);
    host::makeLink(row.file, "/dev/zero");
    EXPECT_EQ(valueRead(row.read, false), "");
    host::remove(row.file);
    host::writeFile(row.file, row.key + "x\n"s, 0);
    const host::BoundByModes bound;
    EXPECT_EQ(valueRead(row.read, false), "");
  }
}

TEST_F(ConfigReaderTest, ALinkedFileIsRead) {
  host::writeFile("/tmp/conf", "master_interface=eth0\n");
  host::makeLink(kHipConf, "/tmp/conf");
  EXPECT_EQ(valueRead(ConfigControl::readInterface), "eth0");
}

TEST_F(ConfigReaderTest, NothingIsReadForAnEmptyDirectoryName) {
  host::writeFile("/etc/zuv/profiles/hip.conf", "master_interface=eth0\n");
  host::writeFile("/etc/zuv/profiles/endbox.conf",
                  "device_ip=1\ndevice_mask=1\nactivation_code=1\nlog_level=1\nopenhip.log_level=1\n");
  host::writeFile("/etc/zuv/profiles/device_id", "1\n");
  for (const Reader read : {ConfigControl::readInterface, ConfigControl::readDeviceIp, ConfigControl::readDeviceMask,
                            ConfigControl::readInvitation, ConfigControl::readLogLevel, ConfigControl::readDeviceId}) {
    std::string value = "left over";
    EXPECT_FALSE(read("", value));
    EXPECT_EQ(value, "");
  }
}

// --- The device identifier

TEST_F(ConfigReaderTest, TheDeviceIdIsTheFirstLineThatIsNotBlank) {
  EXPECT_EQ(valueRead(ConfigControl::readDeviceId, false), "");
  for (const char* content : {"", "\n \n\t\n", "\x80\n"}) {
    host::writeFile(kDeviceId, content);
    EXPECT_EQ(valueRead(ConfigControl::readDeviceId, false), "");
  }
  host::writeFile(kDeviceId, "\n  00:11:22 \r\nsecond\n");
  EXPECT_EQ(valueRead(ConfigControl::readDeviceId), "00:11:22");
  host::writeFile(kDeviceId, "a\xc3\xa4z\n");
  EXPECT_EQ(valueRead(ConfigControl::readDeviceId), "a\xc3\xa4z");
}

TEST_F(ConfigReaderTest, ADeviceIdThatCannotBeReadIsNotFound) {
  host::writeFile(kDeviceId, "00:11:22\n", 0);
  {
    const host::BoundByModes bound;
    EXPECT_EQ(valueRead(ConfigControl::readDeviceId, false), "");
  }
  host::remove(kDeviceId);
  host::makeFifo(kDeviceId);
  EXPECT_EQ(valueRead(ConfigControl::readDeviceId, false), "");
}

TEST_F(ConfigReaderTest, TheDirectoryNameDotCurrentHasNoDeviceId) {
  host::writeFile("/etc/zuv/profiles/.current/device_id", "1\n");
  std::string id = "left over";
  EXPECT_FALSE(ConfigControl::readDeviceId(".current", id));
  EXPECT_EQ(id, "");
}

// --- The Helmsor address

TEST_F(ConfigReaderTest, TheHelmsorAddressIsSplitIntoHostAndPort) {
  const struct {
    const char* line;
    bool found;
    const char* host;
    const char* port;
  } cases[] = {
      {"map_uri=https://10.0.0.5:9000", true, "10.0.0.5", "9000"},
      {"map_uri=http://10.0.0.5:9000/some/path", true, "10.0.0.5", "9000"},
      {"map_uri=https://h.example", true, "h.example", "8096"},
      {"map_uri=h.example:1", true, "h.example", "1"},
      {"map_uri=h", true, "h", "8096"},
      {"map_uri=h/", true, "h", "8096"},
      {"map_uri=h/a:b", true, "h", "8096"},
      {"map_uri=h:", true, "h", ""},
      {"map_uri=h:/", true, "h", ""},
      {"map_uri=h:x", true, "h", "x"},
      {"map_uri=h:1:2", true, "h", "1:2"},
      {"map_uri=h:99999999999", true, "h", "99999999999"},
      {"map_uri=HTTP://h", true, "HTTP", ""},
      {"map_uri=ftp://h", true, "ftp", ""},
      {"map_uri=http://https://h", true, "https", ""},
      {"map_uri=h\xc3\xa4:1", true, "h??", "1"},
      {"map_uri=", false, "", "8096"},
      {"map_uri=https://", false, "", "8096"},
      {"map_uri=https:///path", false, "", "8096"},
      {"map_uri=:443", false, "", "443"},
      {"map_url=h", false, "", ""},
      {"#map_uri=h", false, "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    host::writeFile(kMapconfig, "\n"s + c.line + "\nmap_uri=https://second\n");
    if (!c.found) host::writeFile(kMapconfig, c.line + "\n"s);  // no second line to find
    ConfigControl::HelmsorAddress address{"left", "over"};
    EXPECT_EQ(ConfigControl::readHelmsor("profile-1", address), c.found);
    EXPECT_EQ(address.host, c.host);
    if (c.found) {
      EXPECT_EQ(address.port, c.port);
    }
  }
}

TEST_F(ConfigReaderTest, WithoutAFileThereIsNoHelmsorAddress) {
  ConfigControl::HelmsorAddress address{"left", "over"};
  EXPECT_FALSE(ConfigControl::readHelmsor("profile-1", address));
  EXPECT_EQ(address.host, "");
  EXPECT_EQ(address.port, "");
  EXPECT_FALSE(ConfigControl::readHelmsor("", address));
}

// --- Writing lines

using ConfigWriterTest = ConfigControlTest;

TEST_F(ConfigWriterTest, SettingTheInterfaceReplacesItsLinesAndKeepsAllOthers) {
  host::writeFile(kHipConf,
                  "# master_interface=no\n\nmaster_interface=eth0\n  master_interface=eth1\nx=1\nmaster_interface=\n",
                  0600);
  EXPECT_THAT(ConfigControl::setInterface("profile-1", "wlan0"), HasCode(status::success));
  EXPECT_EQ(host::tree(kDir),
            "f 0600 hip.conf \"# master_interface=no\\n\\nmaster_interface=wlan0\\n  master_interface=eth1\\nx=1\\n"
            "master_interface=wlan0\\n\"\n");
}

TEST_F(ConfigWriterTest, AnInterfaceBehindBlanksIsReadButASecondLineIsWritten) {
  host::writeFile(kHipConf, "  master_interface=eth0\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface), "eth0");
  EXPECT_THAT(ConfigControl::setInterface("profile-1", "eth1"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kHipConf), "  master_interface=eth0\nmaster_interface=eth1\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface), "eth0");
}

TEST_F(ConfigWriterTest, AMissingFileIsCreatedAndALastLineWithoutNewlineGetsOne) {
  EXPECT_THAT(ConfigControl::setInterface("profile-1", "eth0"), HasCode(status::success));
  EXPECT_EQ(host::tree(kDir), "f 0644 hip.conf \"master_interface=eth0\\n\"\n");
  host::writeFile(kHipConf, "x=1");
  EXPECT_THAT(ConfigControl::setInterface("profile-1", "eth0"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kHipConf), "x=1\nmaster_interface=eth0\n");
}

TEST_F(ConfigWriterTest, AnInterfaceNeedsANameAndAProfile) {
  EXPECT_THAT(ConfigControl::setInterface("profile-1", ""), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::setInterface("", "eth0"), HasCode(status::invalidArgument));
  EXPECT_EQ(host::tree(host::kProfiles), "d 0755 profile-1\n");
}

TEST_F(ConfigWriterTest, AnInvitationReplacesItsLines) {
  host::writeFile(kEndbox, "a=1\nactivation_code=old\nb=2\nactivation_code=older\n");
  EXPECT_THAT(ConfigControl::setInvitation("profile-1", "new"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kEndbox), "a=1\nactivation_code=new\nb=2\nactivation_code=new\n");
}

TEST_F(ConfigWriterTest, AnInvitationIsTrimmedAndAnEmptyOneDoesNothing) {
  const struct {
    const char* why;
    std::string invitation;
    std::string expected;
  } cases[] = {
      {"without blanks", "abc", "activation_code=abc\n"},
      {"blanks around", " \t\r\nabc\x7f ", "activation_code=abc\n"},
      {"blanks inside", "a b", "activation_code=a b\n"},
      {"high bytes stay", "\xc3\xa4", "activation_code=\xc3\xa4\n"},
      {"two hash signs", "##", "activation_code=##\n"},
      {"four hash signs", "####", "activation_code=####\n"},
      {"three hash signs and more text", "###x", "activation_code=###x\n"},
      {"empty", "", ""},
      {"blank", " \t\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kEndbox);
    EXPECT_THAT(ConfigControl::setInvitation("profile-1", c.invitation), HasCode(status::success));
    EXPECT_EQ(host::exists(kEndbox) ? host::readFile(kEndbox) : "", c.expected);
  }
}

TEST_F(ConfigWriterTest, ThreeHashSignsClearTheInvitationAndASecondTimeIsHarmless) {
  host::writeFile(kEndbox, "a=1\nactivation_code=old\n activation_code=kept\nactivation_code=\nb=2");
  for (const char* signs : {"###", " ### "}) {
    EXPECT_THAT(ConfigControl::setInvitation("profile-1", signs), HasCode(status::success));
    EXPECT_EQ(host::readFile(kEndbox), "a=1\n activation_code=kept\nb=2");
  }
}

TEST_F(ConfigWriterTest, ClearingTheInvitationCreatesNoFile) {
  EXPECT_THAT(ConfigControl::setInvitation("profile-1", "###"), HasCode(status::success));
  EXPECT_EQ(host::tree(kDir), "");
}

TEST_F(ConfigWriterTest, AnEmptyInvitationNeedsNoProfileAndEveryOtherNeedsOne) {
  EXPECT_THAT(ConfigControl::setInvitation("", ""), HasCode(status::success));
  EXPECT_THAT(ConfigControl::setInvitation("", "abc"), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::setInvitation("", "###"), HasCode(status::invalidArgument));
  EXPECT_EQ(host::tree(host::kProfiles), "d 0755 profile-1\n");
}

TEST_F(ConfigWriterTest, EveryAcceptedLevelIsWrittenToBothKeysUnderItsFullName) {
  const struct {
    const char* given;
    const char* written;
  } cases[] = {{"error", "error"},  {"err", "error"},   {"warning", "warning"}, {"warn", "warning"},
               {"info", "info"},    {"debug", "debug"}, {"trace", "trace"},     {"fatal", "fatal"},
               {"Warn", "warning"}, {"ERR", "error"},   {"DEBUG", "debug"},     {"FaTaL", "fatal"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.given);
    host::remove(kEndbox);
    EXPECT_THAT(ConfigControl::setLogLevel("profile-1", c.given), HasCode(status::success));
    EXPECT_EQ(host::readFile(kEndbox), "log_level="s + c.written + "\nopenhip.log_level=" + c.written + "\n");
  }
}

TEST_F(ConfigWriterTest, BothLevelsAreReplacedInPlaceAndTheMissingOneIsAppended) {
  host::writeFile(kEndbox, "openhip.log_level=x\nactivation_code=a\n");
  EXPECT_THAT(ConfigControl::setLogLevel("profile-1", "trace"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kEndbox), "openhip.log_level=trace\nactivation_code=a\nlog_level=trace\n");
}

TEST_F(ConfigWriterTest, OtherLevelsAreRefusedAndNothingIsChanged) {
  host::writeFile(kEndbox, "log_level=info\n");
  for (const char* level : {"verbose", "notice", "none", " ", "info ", " info", "inf", "infos", "0", "warn\n", "#"}) {
    SCOPED_TRACE(level);
    const Status refused = ConfigControl::setLogLevel("profile-1", level);
    EXPECT_THAT(refused, HasCode(status::applicationError));
    EXPECT_EQ(refused.details(), "invalid log_level value");
    EXPECT_EQ(refused.context(), "doModifyProfile");
  }
  EXPECT_EQ(host::tree(kDir), "f 0644 endbox.conf \"log_level=info\\n\"\n");
}

TEST_F(ConfigWriterTest, AnEmptyLevelDoesNothing) {
  EXPECT_THAT(ConfigControl::setLogLevel("profile-1", ""), HasCode(status::success));
  EXPECT_EQ(host::tree(kDir), "");
}

TEST_F(ConfigWriterTest, ALevelNeedsAProfile) {
  EXPECT_THAT(ConfigControl::setLogLevel("", "info"), HasCode(status::invalidArgument));
}

// --- Writing the Helmsor address

TEST_F(ConfigWriterTest, ANewProfileGetsHostAndPortOrTheHostAloneOrNothing) {
  const struct {
    const char* why;
    const char* host;
    std::int32_t port;
    const char* line;
  } cases[] = {
      {"host and port", "10.0.0.1", 443, "map_uri=https://10.0.0.1:443\n"},
      {"the first port", "h", 1, "map_uri=https://h:1\n"},
      {"the last port", "h", 65535, "map_uri=https://h:65535\n"},
      {"no port", "h", 0, "map_uri=https://h\n"},
      {"a negative port", "h", -1, "map_uri=https://h\n"},
      {"a port too large", "h", 65536, "map_uri=https://h\n"},
      {"a huge port", "h", 2147483647, "map_uri=https://h\n"},
      {"no host", "", 443, "map_uri=\n"},
      {"neither", "", 0, "map_uri=\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", c.host, c.port), HasCode(status::success));
    EXPECT_EQ(host::tree(kDir), "f 0640 mapconfig.static " + host::quoted(c.line) + "\n");
  }
}

TEST_F(ConfigWriterTest, AnAddressReplacesTheWholeFile) {
  host::writeFile(kMapconfig, "# a comment\nmap_uri=https://old.example.com:1234/path\nother=1\n", 0644);
  EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", "h", 1), HasCode(status::success));
  EXPECT_EQ(host::tree(kDir), "f 0640 mapconfig.static \"map_uri=https://h:1\\n\"\n");
}

TEST_F(ConfigWriterTest, TheAddressFileHasMode0640WhateverTheUmask) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    host::remove(kMapconfig);
    ::umask(mask);
    EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", "h", 1), HasCode(status::success));
    ::umask(022);
    EXPECT_EQ(host::modeOf(kMapconfig), 0640u);
  }
}

TEST_F(ConfigWriterTest, AChangedHostAlwaysGetsAPort) {
  const struct {
    std::int32_t port;
    const char* line;
  } cases[] = {{443, "map_uri=https://h:443\n"},        {1, "map_uri=https://h:1\n"},
               {65535, "map_uri=https://h:65535\n"},    {0, "map_uri=https://h:8096\n"},
               {-1, "map_uri=https://h:8096\n"},        {65536, "map_uri=https://h:8096\n"},
               {2147483647, "map_uri=https://h:8096\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.port);
    EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "h", c.port), HasCode(status::success));
    EXPECT_EQ(host::tree(kDir), "f 0640 mapconfig.static " + host::quoted(c.line) + "\n");
  }
}

TEST_F(ConfigWriterTest, APortAloneKeepsTheHost) {
  host::writeFile(kMapconfig, "map_uri=http://old.example:1/path\n");
  EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "", 443), HasCode(status::success));
  EXPECT_EQ(host::readFile(kMapconfig), "map_uri=https://old.example:443\n");
}

TEST_F(ConfigWriterTest, APortAloneNeedsAHostThatCanBeRead) {
  EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "", 443), HasCode(status::applicationError));
  EXPECT_EQ(host::tree(kDir), "");
  host::writeFile(kMapconfig, "map_uri=\n");
  EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "", 443), HasCode(status::applicationError));
  EXPECT_EQ(host::readFile(kMapconfig), "map_uri=\n");
}

TEST_F(ConfigWriterTest, NeitherHostNorPortLeavesTheFileAlone) {
  host::writeFile(kMapconfig, "map_uri=http://old.example:1/path\n", 0600);
  const std::string before = host::tree(kDir);
  for (const std::int32_t port : {0, -1, 65536}) {
    EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "", port), HasCode(status::success));
  }
  EXPECT_EQ(host::tree(kDir), before);
}

TEST_F(ConfigWriterTest, AFileThatCannotBeOpenedIsAnApplicationErrorForAChangeAndAnOpenErrorForANewProfile) {
  const struct {
    const char* why;
    void (*put)();
  } cases[] = {
      {"a FIFO", [] { host::makeFifo(kMapconfig); }},
      {"a directory", [] { host::makeDirs(kMapconfig); }},
      {"a link to a directory", [] { host::makeLink(kMapconfig, "/tmp"); }},
      {"a read-only file", [] { host::writeFile(kMapconfig, "map_uri=https://old:1\n", 0444); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kMapconfig);
    c.put();
    const std::string before = host::tree(kDir);
    {
      const host::BoundByModes bound;
      EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "h", 1), HasCode(status::applicationError));
      EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", "h", 1), HasCode(status::openError));
    }
    EXPECT_EQ(host::tree(kDir), before);
  }
}

TEST_F(ConfigWriterTest, AFailedWriteOfTheAddressIsAWriteErrorForChangeAndNewProfile) {
  const host::SmallDisk disk(kDir, 4096);
  host::writeFile(kMapconfig, "map_uri=https://old:1\n");
  const std::string longHost(5000, 'h');
  EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", longHost, 1), HasCode(status::writeError));
  EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", longHost, 1), HasCode(status::writeError));
  EXPECT_EQ(host::readFile(kMapconfig), "map_uri=https://old:1\n");
}

TEST_F(ConfigWriterTest, AnAddressNeedsAProfile) {
  EXPECT_THAT(ConfigControl::writeNewHelmsor("", "h", 1), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::changeHelmsor("", "h", 1), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::changeHelmsor("", "", 1), HasCode(status::applicationError));
  EXPECT_THAT(ConfigControl::changeHelmsor("", "", 0), HasCode(status::success));
  EXPECT_EQ(host::tree(host::kProfiles), "d 0755 profile-1\n");
}

TEST_F(ConfigWriterTest, EveryWrittenValueIsReadBack) {
  EXPECT_THAT(ConfigControl::setInterface("profile-1", "eth0"), HasCode(status::success));
  EXPECT_THAT(ConfigControl::setInvitation("profile-1", "abc"), HasCode(status::success));
  EXPECT_THAT(ConfigControl::setLogLevel("profile-1", "warn"), HasCode(status::success));
  EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", "h", 9), HasCode(status::success));
  EXPECT_EQ(valueRead(ConfigControl::readInterface), "eth0");
  EXPECT_EQ(valueRead(ConfigControl::readInvitation), "abc");
  EXPECT_EQ(valueRead(ConfigControl::readLogLevel), "warning");
  ConfigControl::HelmsorAddress address;
  EXPECT_TRUE(ConfigControl::readHelmsor("profile-1", address));
  EXPECT_EQ(address.host, "h");
  EXPECT_EQ(address.port, "9");
}

// --- Under faults: the status says whether the file is the old one or the new one, and no other file is left

struct WriterRow {
  const char* why;
  Status (*write)();
  const char* file;
  const char* before;
  const char* after;
};

TEST_F(ConfigWriterTest, AFaultAnywhereLeavesTheOldFileOrTheNewOne) {
  const WriterRow rows[] = {
      {"interface", [] { return ConfigControl::setInterface("profile-1", "eth1"); }, "hip.conf",
       "a=1\nmaster_interface=eth0\n", "a=1\nmaster_interface=eth1\n"},
      {"invitation", [] { return ConfigControl::setInvitation("profile-1", "new"); }, "endbox.conf",
       "a=1\nactivation_code=old\n", "a=1\nactivation_code=new\n"},
      {"cleared invitation", [] { return ConfigControl::setInvitation("profile-1", "###"); }, "endbox.conf",
       "a=1\nactivation_code=old\n", "a=1\n"},
      {"level", [] { return ConfigControl::setLogLevel("profile-1", "err"); }, "endbox.conf",
       "log_level=debug\nopenhip.log_level=debug\n", "log_level=error\nopenhip.log_level=error\n"},
  };
  (void)FileUtils::lockDir();  // created once in a process, so not in the middle of a fault loop
  for (const WriterRow& row : rows) {
    SCOPED_TRACE(row.why);
    const FaultLoop loop{[&row] {
      host::reset();
      host::writeFile(kDir + "/"s + row.file, row.before, 0640);
    }};
    forEachFault(
        loop, [&row] { return row.write(); },
        [&row](const Status& written, const Fault& fault) {
          const std::string path = kDir + "/"s + row.file;
          if (!fault) {
            EXPECT_THAT(written, HasCode(status::success));
          }
          EXPECT_EQ(host::readFile(path), written.isSuccess() ? row.after : row.before);
          if (!fault.fromThereOn) {  // where every later call fails, the temporary file cannot be removed
            EXPECT_EQ(host::tree(kDir), "f 0640 " + std::string(row.file) + " " +
                                            host::quoted(written.isSuccess() ? row.after : row.before) + "\n");
          }
        });
    EXPECT_THAT(fault_loop::run(loop, {}, row.write),
                ElementsAreArray({
                    "open",   "openat", "fstat",   "flock",    "fstat",  "fstatat",           // take the lock
                    "openat", "fstat",  "read",                                               // read the old file
                    "unlink", "open",   "write",   "fchown",   "fchmod", "fsync",   "close",  // write the new file
                    "rename", "open",   "fsync",   "close",                                   // replace the old one
                    "close",  "fstat",  "fstatat", "unlinkat", "close",  "close",  // close it, release the lock
                }));
  }
}

TEST_F(ConfigWriterTest, AFaultAnywhereNeverEmptiesTheAddress) {
  const FaultLoop loop{[] {
    host::reset();
    host::writeFile(kMapconfig, "map_uri=https://10.0.0.1:443\n", 0640);
  }};
  const std::size_t steps = forEachFault(
      loop, [] { return ConfigControl::changeHelmsor("profile-1", "10.0.0.2", 443); },
      [](const Status& written, const Fault& fault) {
        const std::string content = host::readFile(kMapconfig);
        if (!fault || written.isSuccess()) {
          EXPECT_THAT(written, HasCode(status::success));
          EXPECT_EQ(content, "map_uri=https://10.0.0.2:443\n");
        } else {
          EXPECT_THAT(written, AnyOf(HasCode(status::applicationError), HasCode(status::writeError)));
          EXPECT_THAT(content, AnyOf("map_uri=https://10.0.0.1:443\n", "map_uri=https://10.0.0.2:443\n"));
        }
      });
  EXPECT_EQ(steps, 7u);  // open, flock, fstat, write, fchmod, ftruncate, close
}

}  // namespace
