// ProfileTexts: cleans and checks the texts that users give for a profile, before they are stored.
//
//   const std::string name = ProfileTexts::cleanName(" lab\n");      // "lab"
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

namespace ProfileTexts {

// Returns a requested display name in its stored form: without blanks and control bytes at its ends.
std::string cleanName(const std::string& requested);

// Checks that each text fits in one line of a configuration file. Status: "invalid argument" if a text has a byte below
// 32 or a byte 127; the invitation is trimmed before it is checked.
Status checkTexts(const std::string& host, const std::string& network, const std::string& invitation);

}  // namespace ProfileTexts
