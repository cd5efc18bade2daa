// ConfigControl: what a profile's configuration files say, and the host's network interfaces.
//
//   std::string interface;
//   if (ConfigControl::readInterface("profile-123123", interface)) ...
//   Status s = ConfigControl::setInterface("profile-123123", "eth0");
//
//   hip.conf           master_interface=
//   endbox.conf        device_ip= device_mask= activation_code= log_level= openhip.log_level=
//   mapconfig.static   map_uri=https://HOST:PORT
//   device_id          its first line
//
// Profiles are named by their directory names; an empty one is never joined to a path: nothing is found, and a writer
// answers "invalid argument" as soon as it has something to write there. Readers take the first line of a key, trimmed
// (see ConfigLines.h), clear their output first, and return false when there is none. Values of endbox.conf and
// mapconfig.static come in plain ASCII: bytes of 128 and above become "?". Writers of lines have the statuses of
// ConfigLines::setKeys, whole-file writers those named with them.
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
// "log_level=", else "openhip.log_level=".
bool readLogLevel(std::string_view dirname, std::string& level);
// The first line of device_id that is not blank. None for the directory name ".current".
bool readDeviceId(std::string_view dirname, std::string& id);

// A Helmsor address as it stands in the file; the port is text, and may be empty.
struct HelmsorAddress {
  std::string host;
  std::string port;
};
// Without its scheme ("http://" or "https://") and path; the port is "8096" where none is given. False without a host.
bool readHelmsor(std::string_view dirname, HelmsorAddress& address);

// --- Writers

// "invalid argument" for an empty name.
Status setInterface(std::string_view dirname, const std::string& name);

// The invitation is trimmed (blanks); an empty one does nothing, and so does removing one where there is no file. "###"
// removes it: the sentinel by which a user clears the invitation.
constexpr std::string_view clearInvitation = "###";
Status setInvitation(std::string_view dirname, const std::string& invitation);

// The Helmsor address of a new profile: host and port when the port lies in 1 to 65535, else the host alone, without
// the default port, which is deliberate; no host at all is "map_uri=". Replaces the file, mode 0640. Statuses: those of
// FileUtils::writeString.
Status writeNewHelmsor(std::string_view dirname, const std::string& host, std::int32_t port);

// The Helmsor address of a profile that is there, rewritten whole (0640). With a host: its port when that lies in 1 to
// 65535, else 8096. Without a host but with such a port: the host of the file with that port. Neither: nothing is done.
// Statuses: "application error" when the host can't be read or the file can't be opened, "file write".
Status changeHelmsor(std::string_view dirname, const std::string& host, std::int32_t port);

// Sets both levels in one pass. Accepted, in any case of letters: error, err (written "error"), warning, warn (written
// "warning"), info, debug, trace, fatal. An empty level does nothing.
// Status: "application error", details "invalid log_level value", for any other text.
Status setLogLevel(std::string_view dirname, const std::string& level);

// --- The host

// The names of the interfaces that can carry the overlay, in the order of getifaddrs(3), once for each IPv4 address.
// Left out are loopback interfaces (not those that are down), names that begin with "tap", and addresses whose third
// octet is 254 and whose fourth is 169, which is deliberate. False, an empty list and an error in the log when
// getifaddrs fails.
bool read_networks(std::vector<std::string>& list);

}  // namespace ConfigControl
