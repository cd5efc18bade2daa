// ProfileTexts: what becomes of the texts that users give for a profile before they are stored.
//
//   const std::string name = ProfileTexts::cleanName(" lab\n");      // "lab"
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

namespace ProfileTexts {

// A requested display name as it is stored: without blanks and control bytes at its ends.
std::string cleanName(const std::string& requested);

// Whether the texts can stand in a line of a configuration file: "invalid argument" for a byte below 32, or 127, in one
// of them; the invitation is trimmed first.
Status checkTexts(const std::string& host, const std::string& network, const std::string& invitation);

}  // namespace ProfileTexts
