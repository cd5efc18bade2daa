#include "profiles/store/ConfigControl.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>

#include "base/files/WholeFile.h"
#include "base/text/StringUtils.h"
#include "command/parameters/InputParams.h"
#include "log/front/BasicLog.h"
#include "profiles/store/ConfigLines.h"
#include "profiles/store/ProfileStore.h"

using StringUtils::concatenate;
using StringUtils::startsWith;
using StringUtils::TrimSet;

namespace {

constexpr const char* endboxConfFile = "endbox.conf";
constexpr const char* mapconfigFile = "mapconfig.static";
constexpr const char* deviceIdFile = "device_id";

constexpr const char* interfaceKey = "master_interface";
constexpr const char* deviceIpKey = "device_ip";
constexpr const char* deviceMaskKey = "device_mask";
constexpr const char* invitationKey = "activation_code";
constexpr const char* levelKey = "log_level";
constexpr const char* coreLevelKey = "openhip.log_level";
constexpr const char* helmsorKey = "map_uri";

constexpr std::string_view writtenScheme = "https://";
constexpr std::int32_t lastPort = 65535;

bool isPort(std::int32_t port) { return port >= 1 && port <= lastPort; }

// The level names that setLogLevel accepts, and the names that it writes for them.
struct LevelRow {
  char given[sizeof "warning"];
  char written[sizeof "warning"];
};
constexpr LevelRow levels[] = {{"error", "error"}, {"err", "error"},   {"warning", "warning"}, {"warn", "warning"},
                               {"info", "info"},   {"debug", "debug"}, {"trace", "trace"},     {"fatal", "fatal"}};

bool readValue(std::string_view dirname, const char* file, const char* key, std::string& value) {
  value.clear();
  std::string path;
  return ProfileStore::fileInProfile(dirname, file, path) && ConfigLines::readFirstValue(path, key, value);
}

bool readPlainValue(std::string_view dirname, const char* file, const char* key, std::string& value) {
  const bool found = readValue(dirname, file, key, value);
  value = StringUtils::plainAscii(value);
  return found;
}

// Replaces the address of an existing profile. Unlike for a new profile, a file that cannot be opened is an
// "application error".
Status writeAddress(std::string_view dirname, const std::string& host, std::int32_t port) {
  Status written = ConfigControl::writeNewHelmsor(dirname, host, port);
  return written.code() == status::openError ? Status::of(status::applicationError) : written;
}

}  // namespace

namespace ConfigControl {

bool readInterface(std::string_view dirname, std::string& name) {
  return readValue(dirname, ProfileStore::hipConfFile, interfaceKey, name);
}

bool readDeviceIp(std::string_view dirname, std::string& address) {
  return readPlainValue(dirname, endboxConfFile, deviceIpKey, address);
}

bool readDeviceMask(std::string_view dirname, std::string& mask) {
  return readPlainValue(dirname, endboxConfFile, deviceMaskKey, mask);
}

bool readInvitation(std::string_view dirname, std::string& invitation) {
  return readPlainValue(dirname, endboxConfFile, invitationKey, invitation);
}

bool readLogLevel(std::string_view dirname, std::string& level) {
  return readPlainValue(dirname, endboxConfFile, levelKey, level) ||
         readPlainValue(dirname, endboxConfFile, coreLevelKey, level);
}

bool readDeviceId(std::string_view dirname, std::string& id) {
  id.clear();
  std::string path;
  return dirname != ProfileStore::currentName && ProfileStore::fileInProfile(dirname, deviceIdFile, path) &&
         FileUtils::readFirstLine(path, id).isSuccess() && !id.empty();
}

bool readHelmsor(std::string_view dirname, HelmsorAddress& address) {
  address = HelmsorAddress();
  std::string uri;
  if (!readPlainValue(dirname, mapconfigFile, helmsorKey, uri)) return false;
  std::string_view rest = StringUtils::withoutWebScheme(uri);
  rest = rest.substr(0, rest.find('/'));
  const std::size_t colon = rest.find(':');
  address.host = rest.substr(0, colon);
  address.port = colon == std::string_view::npos ? StringUtils::toString(HelmsorParam::defaultPort)
                                                 : std::string(rest.substr(colon + 1));
  return !address.host.empty();
}

Status setInterface(std::string_view dirname, const std::string& name) {
  std::string path;
  if (name.empty() || !ProfileStore::fileInProfile(dirname, ProfileStore::hipConfFile, path)) {
    return Status::of(status::invalidArgument);
  }
  return ConfigLines::setKeys(path, {{interfaceKey, name}});
}

Status setInvitation(std::string_view dirname, const std::string& invitation) {
  const std::string value(StringUtils::trim(invitation, TrimSet::blanks));
  if (value.empty()) return Status();
  std::string path;
  if (!ProfileStore::fileInProfile(dirname, endboxConfFile, path)) return Status::of(status::invalidArgument);
  return value == clearInvitation ? ConfigLines::removeKey(path, invitationKey)
                                  : ConfigLines::setKeys(path, {{invitationKey, value}});
}

Status writeNewHelmsor(std::string_view dirname, const std::string& host, std::int32_t port) {
  std::string line = concatenate({helmsorKey, "="});
  if (!host.empty()) {
    line += concatenate({writtenScheme, host});
    if (isPort(port)) {
      line += concatenate({":", StringUtils::toString(port)});
    }
  }
  std::string path;
  (void)ProfileStore::fileInProfile(dirname, mapconfigFile, path);  // the writer refuses an empty path
  return FileUtils::writeStoreLine(path, line);
}

Status changeHelmsor(std::string_view dirname, const std::string& host, std::int32_t port) {
  if (!host.empty()) return writeAddress(dirname, host, isPort(port) ? port : HelmsorParam::defaultPort);
  if (!isPort(port)) return Status();
  HelmsorAddress current;
  return readHelmsor(dirname, current) ? writeAddress(dirname, current.host, port)
                                       : Status::of(status::applicationError);
}

Status setLogLevel(std::string_view dirname, const std::string& level) {
  if (level.empty()) return Status();
  std::string path;
  if (!ProfileStore::fileInProfile(dirname, endboxConfFile, path)) return Status::of(status::invalidArgument);
  for (const LevelRow& row : levels) {
    if (StringUtils::equalIgnoreCase(level, row.given)) {
      return ConfigLines::setKeys(path, {{levelKey, row.written}, {coreLevelKey, row.written}});
    }
  }
  return Status::error(status::applicationError, "invalid log_level value", "doModifyProfile");
}

}  // namespace ConfigControl

// --- Interfaces

namespace {

// Excludes the addresses that end in 254.169. A former test meant to exclude 169.254.0.0/16 but compared the bytes in
// the wrong order. Its effect is kept deliberately, since users rely on the interfaces that are listed.
bool isExcluded(const in_addr& address) {
  unsigned char octets[sizeof address.s_addr];
  std::memcpy(octets, &address.s_addr, sizeof octets);
  return octets[2] == 254 && octets[3] == 169;
}

bool canCarryOverlay(const ifaddrs& entry) {
  if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET || startsWith(entry.ifa_name, "tap") ||
      (entry.ifa_flags & IFF_LOOPBACK) != 0) {
    return false;
  }
  sockaddr_in address;
  std::memcpy(&address, entry.ifa_addr, sizeof address);
  return !isExcluded(address.sin_addr);
}

void logNoInterfaces(int returned) {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::ravctlLogger);
  if (log.isEnabled(BasicLog::Level::error)) {
    BasicLog::Entry entry(log, BasicLog::Level::error, "could not getifaddrs", "ConfigControl.cpp", "read_networks");
    entry.addNumber("status", returned);
  }
}

}  // namespace

namespace ConfigControl {

bool read_networks(std::vector<std::string>& list) {
  list.clear();
  ifaddrs* entries = nullptr;
  const int returned = getifaddrs(&entries);
  if (returned != 0 || entries == nullptr) {
    logNoInterfaces(returned);
    return false;
  }
  for (const ifaddrs* entry = entries; entry != nullptr; entry = entry->ifa_next) {
    if (canCarryOverlay(*entry)) list.emplace_back(entry->ifa_name);
  }
  freeifaddrs(entries);
  return true;
}

}  // namespace ConfigControl
