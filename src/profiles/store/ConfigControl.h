// ConfigControl: reads and writes the values of a profile's configuration files, and lists the host's interfaces.
//
//   std::string interface;
//   if (ConfigControl::readInterface("profile-123123", interface)) ...
//   Status s = ConfigControl::setInterface("profile-123123", "eth0");
//
//   hip.conf           master_interface=
//   endbox.conf        device_ip= device_mask= activation_code= log_level= openhip.log_level=
//   mapconfig.static   map_uri=https://HOST:PORT
//   device_id          its first line that is not blank
//
// Functions take the name of a profile's directory. An empty name is never joined to a path: readers find nothing, and
// writers return "invalid argument" if they have something to write. changeHelmsor with a port alone has to read the
// old host first; for an empty name it returns "application error".
//
// Readers clear their output first and take the first line that has the key, trimmed (see ConfigLines.h). They return
// false if no line has it. They return values of endbox.conf and mapconfig.static in plain ASCII: every byte of 128 and
// above becomes "?".
//
// setInterface, setInvitation and setLogLevel return the statuses of ConfigLines::setKeys and those documented with
// them. The writers of the Helmsor address replace the whole file and document their own statuses. They do not
// check the host, which must have no control byte (see ProfileTexts.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "command/status/StatusCodes.h"

namespace ConfigControl {

// --- Readers

bool readInterface(std::string_view dirname, std::string& name);
bool readDeviceIp(std::string_view dirname, std::string& address);
bool readDeviceMask(std::string_view dirname, std::string& mask);
bool readInvitation(std::string_view dirname, std::string& invitation);
// Reads "log_level=", or "openhip.log_level=" if the file has no line with "log_level=".
bool readLogLevel(std::string_view dirname, std::string& level);
// Reads the first line of device_id that is not blank. Returns false for the directory name ".current".
bool readDeviceId(std::string_view dirname, std::string& id);

// A Helmsor address as the file has it. The port is text and may be empty.
struct HelmsorAddress {
  std::string host;
  std::string port;
};
// Reads the address without its scheme ("http://" or "https://", in any letter case) and its path. The port is "8096"
// if no ":" follows the host. Returns false if there is no host.
bool readHelmsor(std::string_view dirname, HelmsorAddress& address);

// --- Writers

// Status: "invalid argument" for an empty interface name.
Status setInterface(std::string_view dirname, const std::string& name);

// Trims blanks and control bytes off both ends of the invitation and writes it. If nothing remains, changes nothing.
// "###" is the sentinel by which a user clears the invitation: it removes the line, and does nothing if the file is
// missing.
constexpr std::string_view clearInvitation = "###";
Status setInvitation(std::string_view dirname, const std::string& invitation);

// Writes the Helmsor address of a new profile: host and port if the port lies in 1 to 65535, otherwise the host alone.
// It deliberately does not fill in the default port, unlike changeHelmsor. Without a host the line is "map_uri=".
// Replaces the whole file, mode 0640. Statuses: those of FileUtils::writeStoreLine.
Status writeNewHelmsor(std::string_view dirname, const std::string& host, std::int32_t port);

// Changes the Helmsor address of an existing profile:
//   - with a host, writes it with the given port, or with 8096 if that port does not lie in 1 to 65535;
//   - without a host, but with a port in 1 to 65535, keeps the host that the file has and changes the port;
//   - without a host and without a port in 1 to 65535, changes nothing.
// Replaces the whole file, mode 0640. Statuses: "application error" if the old host cannot be read or the file cannot
// be opened; "file write".
Status changeHelmsor(std::string_view dirname, const std::string& host, std::int32_t port);

// Writes both log levels in one pass. Accepts these names in any letter case: error, err (written as "error"),
// warning, warn (written as "warning"), info, debug, trace, fatal. An empty level changes nothing.
// Status: "application error", details "invalid log_level value", for any other text.
Status setLogLevel(std::string_view dirname, const std::string& level);

// --- The host

// Lists the names of the interfaces that can carry the overlay, in the order of getifaddrs(3), once for each IPv4
// address. An interface that is down is listed. The list leaves out:
//   - loopback interfaces;
//   - interfaces whose names begin with "tap";
//   - addresses whose third octet is 254 and whose fourth is 169, which is deliberate.
// If getifaddrs fails, logs an error, clears the list and returns false.
bool read_networks(std::vector<std::string>& list);

}  // namespace ConfigControl
