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

TEST_F(ConfigReaderTest, TheFirstLineOfTheKeyIsReadAndOnlyTheEndsOfTheLineAreTrimmed) {
  const struct {
    const char* why;
    std::string content;  // "@" stands for the key and "="
    bool found;
    std::string value;
  } cases[] = {
      {"an empty file", "", false, ""},
      {"a comment, an empty line and another key first", "# comment\n\nother=1\n@10.0.0.1\n", true, "10.0.0.1"},
      {"the first of two lines", "@first\n@second\n", true, "first"},
      {"no newline", "@x", true, "x"},
      {"only the ends of the line are trimmed", "  \t@ x  'y'=#z \t\r\n", true, " x  'y'=#z"},
      {"a high byte behind the value is trimmed, not replaced", "@x\xff\n", true, "x"},
      {"an empty value", "@\n", true, ""},
      {"a comment", "  #@x\n", false, ""},
      {"the end of a longer key", "a@x\n", false, ""},
      {"a line begins behind 7999 bytes", std::string(7999, '-') + "@x\n", true, "x"},
      {"no line begins behind 7998 bytes", std::string(7998, '-') + "@x\n", false, ""},
  };
  for (const ReaderRow& row : kReaders) {
    SCOPED_TRACE(row.why);
    host::remove(kDir);
    EXPECT_EQ(valueRead(row.read, false), "") << "no directory";
    host::makeDirs(kDir);
    EXPECT_EQ(valueRead(row.read, false), "") << "no file";
    for (const auto& c : cases) {
      SCOPED_TRACE(c.why);
      std::string content = c.content;
      for (std::size_t at; (at = content.find('@')) != std::string::npos;) content.replace(at, 1, row.key);
      host::writeFile(row.file, content);
      EXPECT_EQ(valueRead(row.read, c.found), c.value);
    }
  }
}

TEST_F(ConfigReaderTest, ValuesOfEndboxConfAreMadePlainAsciiAndTheInterfaceIsNot) {
  for (const ReaderRow& row : kReaders) {
    SCOPED_TRACE(row.why);
    host::writeFile(row.file, row.key + "a\x80z\xc3\xa4 \xff!\n"s);
    EXPECT_EQ(valueRead(row.read), row.isMadePlain ? "a?z?? ?!" : "a\x80z\xc3\xa4 \xff!");
  }
}

TEST_F(ConfigReaderTest, TheKeyOpenhipLogLevelIsReadOnlyIfThereIsNoKeyLogLevel) {
  host::writeFile(kEndbox, "openhip.log_level=debug\nlog_level=info\n");
  EXPECT_EQ(valueRead(ConfigControl::readLogLevel), "info");
  host::writeFile(kEndbox, "openhip.log_level=debug\n");
  EXPECT_EQ(valueRead(ConfigControl::readLogLevel), "debug");
  host::writeFile(kEndbox, "openhip.log_level=debug\nlog_level=\n");
  EXPECT_EQ(valueRead(ConfigControl::readLogLevel), "") << "an empty value is a value";
}

TEST_F(ConfigReaderTest, OnlyAReadableRegularFileOrALinkToOneIsRead) {
  const struct {
    const char* why;
    void (*put)(const char* path);
    const char* value;  // null: none is found
  } cases[] = {
      {"a FIFO", [](const char* path) { host::makeFifo(path); }, nullptr},
      {"a directory", [](const char* path) { host::makeDirs(path); }, nullptr},
      {"a link to the null device", [](const char* path) { host::makeLink(path, "/dev/null"); }, nullptr},
      {"a link to a device", [](const char* path) { host::makeLink(path, "/dev/zero"); }, nullptr},
      {"a link to an unreadable file", [](const char* path) { host::makeLink(path, "/tmp/unreadable"); }, nullptr},
      {"a link to a file", [](const char* path) { host::makeLink(path, "/tmp/readable"); }, "x"},
  };
  std::vector<ReaderRow> readers(std::begin(kReaders), std::end(kReaders));
  readers.push_back({"device identifier", ConfigControl::readDeviceId, kDeviceId, "", false});
  for (const ReaderRow& row : readers) {
    SCOPED_TRACE(row.why);
    host::writeFile("/tmp/unreadable", row.key + "x\n"s, 0);
    host::writeFile("/tmp/readable", row.key + "x\n"s);
    for (const auto& c : cases) {
      SCOPED_TRACE(c.why);
      host::remove(row.file);
      c.put(row.file);
      const host::BoundByModes bound;
      EXPECT_EQ(valueRead(row.read, c.value != nullptr), c.value != nullptr ? c.value : "");
    }
  }
}

TEST_F(ConfigReaderTest, NothingIsReadForAnEmptyDirectoryName) {
  host::writeFile("/etc/zuv/profiles/hip.conf", "master_interface=eth0\n");
  host::writeFile("/etc/zuv/profiles/endbox.conf",
                  "device_ip=1\ndevice_mask=1\nactivation_code=1\nlog_level=1\nopenhip.log_level=1\n");
  host::writeFile("/etc/zuv/profiles/device_id", "1\n");
  host::writeFile("/etc/zuv/profiles/mapconfig.static", "map_uri=https://h\n");
  ConfigControl::HelmsorAddress address;
  EXPECT_FALSE(ConfigControl::readHelmsor("", address));
  for (const Reader read : {ConfigControl::readInterface, ConfigControl::readDeviceIp, ConfigControl::readDeviceMask,
                            ConfigControl::readInvitation, ConfigControl::readLogLevel, ConfigControl::readDeviceId}) {
    std::string value = "left over";
    EXPECT_FALSE(read("", value));
    EXPECT_EQ(value, "");
  }
}

// --- The device identifier

TEST_F(ConfigReaderTest, TheDeviceIdIsTheFirstLineThatIsNotBlank) {
  const struct {
    const char* content;
    const char* id;  // null: none is found
  } cases[] = {{"", nullptr},
               {"\n \n\t\n", nullptr},
               {"\x80\n", nullptr},
               {"\n  00:11:22 \r\nsecond\n", "00:11:22"},
               {"a\xc3\xa4z\n", "a\xc3\xa4z"}};
  EXPECT_EQ(valueRead(ConfigControl::readDeviceId, false), "") << "no file";
  for (const auto& c : cases) {
    SCOPED_TRACE(host::quoted(c.content));
    host::writeFile(kDeviceId, c.content);
    EXPECT_EQ(valueRead(ConfigControl::readDeviceId, c.id != nullptr), c.id != nullptr ? c.id : "");
  }
}

TEST_F(ConfigReaderTest, TheDirectoryNameDotCurrentHasNoDeviceId) {
  host::writeFile("/etc/zuv/profiles/.current/device_id", "1\n");
  std::string id = "left over";
  EXPECT_FALSE(ConfigControl::readDeviceId(".current", id));
  EXPECT_EQ(id, "");
}

// --- The Helmsor address

// Lines with a Helmsor address, and what they are split into.
const struct {
  const char* line;
  bool found;
  const char* host;
  const char* port;
} kAddressLines[] = {
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
    {"map_uri=HTTP://h", true, "h", "8096"},
    {"map_uri=hTTps://h:1/x", true, "h", "1"},
    {"map_uri=HTTPS:///x", false, "", "8096"},
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

TEST_F(ConfigReaderTest, TheHelmsorAddressIsSplitIntoHostAndPort) {
  ConfigControl::HelmsorAddress address{"left", "over"};
  EXPECT_FALSE(ConfigControl::readHelmsor("profile-1", address)) << "no file";
  EXPECT_EQ(address.host + address.port, "");
  EXPECT_FALSE(ConfigControl::readHelmsor("", address)) << "no profile";
  for (const auto& c : kAddressLines) {
    SCOPED_TRACE(c.line);
    host::writeFile(kMapconfig, "\n"s + c.line + (c.found ? "\nmap_uri=https://second\n" : "\n"));
    address = {"left", "over"};
    EXPECT_EQ(ConfigControl::readHelmsor("profile-1", address), c.found);
    EXPECT_EQ(address.host, c.host);
    if (c.found) {
      EXPECT_EQ(address.port, c.port);
    }
  }
}

// --- Writing lines

using ConfigControl::setInterface;
using ConfigControl::setInvitation;
using ConfigControl::setLogLevel;
using ConfigWriterTest = ConfigControlTest;

// What each writer of lines makes of its file.
const struct {
  const char* why;
  Status (*write)(std::string_view dirname, const std::string& value);
  const char* value;
  const char* before;  // empty: no file
  const char* after;
} kChanges[] = {
    {"every line of the interface is replaced", setInterface, "wlan0",
     "# master_interface=no\n\nmaster_interface=eth0\n  master_interface=eth1\nx=1\nmaster_interface=\n",
     "# master_interface=no\n\nmaster_interface=wlan0\n  master_interface=eth1\nx=1\nmaster_interface=wlan0\n"},
    {"a missing file is created", setInterface, "eth0", "", "master_interface=eth0\n"},
    {"a last line gets its newline", setInterface, "eth0", "x=1", "x=1\nmaster_interface=eth0\n"},
    {"every line of the invitation is replaced", setInvitation, "new",
     "a=1\nactivation_code=old\nb=2\nactivation_code=older\n", "a=1\nactivation_code=new\nb=2\nactivation_code=new\n"},
    {"an invitation without blanks", setInvitation, "abc", "", "activation_code=abc\n"},
    {"an invitation is trimmed", setInvitation, " \t\r\nabc\x7f ", "", "activation_code=abc\n"},
    {"blanks inside an invitation stay", setInvitation, "a b", "", "activation_code=a b\n"},
    {"high bytes of an invitation stay", setInvitation, "\xc3\xa4", "", "activation_code=\xc3\xa4\n"},
    {"two hash signs are an invitation", setInvitation, "##", "", "activation_code=##\n"},
    {"four hash signs are an invitation", setInvitation, "####", "", "activation_code=####\n"},
    {"three and more text are an invitation", setInvitation, "###x", "", "activation_code=###x\n"},
    {"an empty invitation does nothing", setInvitation, "", "", ""},
    {"a blank invitation does nothing", setInvitation, " \t\n", "", ""},
    {"three hash signs clear the invitation", setInvitation, "###",
     "a=1\nactivation_code=old\n activation_code=kept\nactivation_code=\nb=2", "a=1\n activation_code=kept\nb=2"},
    {"clearing ignores blanks and a missing line", setInvitation, " ### ", "a=1\nb=2", "a=1\nb=2"},
    {"clearing creates no file", setInvitation, "###", "", ""},
    {"a level is replaced in place and appended", setLogLevel, "trace", "openhip.log_level=x\nactivation_code=a\n",
     "openhip.log_level=trace\nactivation_code=a\nlog_level=trace\n"},
    {"an empty level does nothing", setLogLevel, "", "", ""},
};

TEST_F(ConfigWriterTest, AWriterChangesTheLinesOfItsKeyAndKeepsAllOthers) {
  for (const auto& c : kChanges) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::makeDirs(kDir);
    const std::string file = c.write == setInterface ? "hip.conf" : "endbox.conf";
    if (*c.before != '\0') host::writeFile(kDir + "/"s + file, c.before, 0600);
    EXPECT_THAT(c.write("profile-1", c.value), HasCode(status::success));
    const std::string mode = *c.before != '\0' ? "0600" : "0644";
    EXPECT_EQ(host::tree(kDir), *c.after == '\0' ? "" : "f " + mode + " " + file + " " + host::quoted(c.after) + "\n");
  }
}

TEST_F(ConfigWriterTest, AnInterfaceBehindBlanksIsReadButASecondLineIsWritten) {
  host::writeFile(kHipConf, "  master_interface=eth0\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface), "eth0");
  EXPECT_THAT(ConfigControl::setInterface("profile-1", "eth1"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kHipConf), "  master_interface=eth0\nmaster_interface=eth1\n");
  EXPECT_EQ(valueRead(ConfigControl::readInterface), "eth0");
}

TEST_F(ConfigWriterTest, AWriterNeedsAProfileOnceItHasSomethingToWrite) {
  EXPECT_THAT(ConfigControl::setInterface("profile-1", ""), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::setInterface("", "eth0"), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::setInvitation("", ""), HasCode(status::success));
  EXPECT_THAT(ConfigControl::setInvitation("", "abc"), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::setInvitation("", "###"), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::setLogLevel("", "info"), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::writeNewHelmsor("", "h", 1), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::changeHelmsor("", "h", 1), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigControl::changeHelmsor("", "", 1), HasCode(status::applicationError));
  EXPECT_THAT(ConfigControl::changeHelmsor("", "", 0), HasCode(status::success));
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

// --- Writing the Helmsor address

TEST_F(ConfigWriterTest, ANewAddressMayHaveNoPortButAChangedHostAlwaysGetsOne) {
  const struct {
    const char* why;
    std::int32_t port;
    const char* written;
    const char* changed;
  } cases[] = {
      {"a port", 443, "map_uri=https://h:443\n", "map_uri=https://h:443\n"},
      {"the first port", 1, "map_uri=https://h:1\n", "map_uri=https://h:1\n"},
      {"the last port", 65535, "map_uri=https://h:65535\n", "map_uri=https://h:65535\n"},
      {"no port", 0, "map_uri=https://h\n", "map_uri=https://h:8096\n"},
      {"a negative port", -1, "map_uri=https://h\n", "map_uri=https://h:8096\n"},
      {"a port too large", 65536, "map_uri=https://h\n", "map_uri=https://h:8096\n"},
      {"a huge port", 2147483647, "map_uri=https://h\n", "map_uri=https://h:8096\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", "h", c.port), HasCode(status::success));
    EXPECT_EQ(host::tree(kDir), "f 0640 mapconfig.static " + host::quoted(c.written) + "\n");
    EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "h", c.port), HasCode(status::success));
    EXPECT_EQ(host::tree(kDir), "f 0640 mapconfig.static " + host::quoted(c.changed) + "\n");
  }
  for (const std::int32_t port : {443, 0}) {
    EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", "", port), HasCode(status::success));
    EXPECT_EQ(host::tree(kDir), "f 0640 mapconfig.static \"map_uri=\\n\"\n") << "no host, port " << port;
  }
}

TEST_F(ConfigWriterTest, AnAddressReplacesTheWholeFileWithMode0640WhateverTheUmask) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    for (const char* old : {"", "# a comment\nmap_uri=https://old.example.com:1234/path\nother=1\n"}) {
      SCOPED_TRACE(old);
      host::remove(kMapconfig);
      if (*old != '\0') host::writeFile(kMapconfig, old, 0644);
      ::umask(mask);
      EXPECT_THAT(ConfigControl::writeNewHelmsor("profile-1", "h", 1), HasCode(status::success));
      ::umask(022);
      EXPECT_EQ(host::tree(kDir), "f 0640 mapconfig.static \"map_uri=https://h:1\\n\"\n");
    }
  }
}

TEST_F(ConfigWriterTest, AChangeWithoutAHostChangesOnlyAValidPort) {
  const struct {
    const char* why;
    const char* before;  // empty: no file
    std::int32_t port;
    StatusCode code;
    std::string after;
  } cases[] = {
      {"the host is kept", "map_uri=http://old.example:1/path\n", 443, status::success,
       "f 0640 mapconfig.static \"map_uri=https://old.example:443\\n\"\n"},
      {"no file", "", 443, status::applicationError, ""},
      {"no old host", "map_uri=\n", 443, status::applicationError, "f 0600 mapconfig.static \"map_uri=\\n\"\n"},
      {"no port", "map_uri=http://old:1/p\n", 0, status::success,
       "f 0600 mapconfig.static \"map_uri=http://old:1/p\\n\"\n"},
      {"a negative port", "map_uri=http://old:1/p\n", -1, status::success,
       "f 0600 mapconfig.static \"map_uri=http://old:1/p\\n\"\n"},
      {"a port too large", "map_uri=http://old:1/p\n", 65536, status::success,
       "f 0600 mapconfig.static \"map_uri=http://old:1/p\\n\"\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kMapconfig);
    if (*c.before != '\0') host::writeFile(kMapconfig, c.before, 0600);
    EXPECT_THAT(ConfigControl::changeHelmsor("profile-1", "", c.port), HasCode(c.code));
    EXPECT_EQ(host::tree(kDir), c.after);
  }
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

// --- Under faults: the status says whether the file is the old one or the new one

TEST_F(ConfigWriterTest, AFaultAnywhereLeavesTheOldFileOrTheNewOne) {
  const struct {
    const char* why;
    Status (*write)(std::string_view dirname, const std::string& value);
    const char* value;
    const char* before;
    const char* after;
  } cases[] = {
      {"interface", setInterface, "eth1", "a=1\nmaster_interface=eth0\n", "a=1\nmaster_interface=eth1\n"},
      {"invitation", setInvitation, "new", "a=1\nactivation_code=old\n", "a=1\nactivation_code=new\n"},
      {"cleared invitation", setInvitation, "###", "a=1\nactivation_code=old\n", "a=1\n"},
      {"level", setLogLevel, "err", "log_level=debug\nopenhip.log_level=debug\n",
       "log_level=error\nopenhip.log_level=error\n"},
  };
  (void)FileUtils::lockDir();  // created once in a process, so not in the middle of a fault loop
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const std::string file = c.write == setInterface ? "hip.conf" : "endbox.conf";
    const FaultLoop loop{[&] {
      host::reset();
      host::writeFile(kDir + "/"s + file, c.before, 0640);
    }};
    const auto write = [&c] { return c.write("profile-1", c.value); };
    forEachFault(loop, write, [&](const Status& written, const Fault& fault) {
      if (!fault) {
        EXPECT_THAT(written, HasCode(status::success));
      }
      EXPECT_EQ(host::readFile(kDir + "/"s + file), written.isSuccess() ? c.after : c.before);
    });
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
          if (!fault.fromThereOn) {  // where every later call fails, the old address cannot be put back
            EXPECT_EQ(content, "map_uri=https://10.0.0.1:443\n");
          }
        }
      });
  EXPECT_EQ(steps, 11u);  // openat, fstat, flock, fstat, fstatat, pread, write, fchmod, fstat, close, close
}

}  // namespace
