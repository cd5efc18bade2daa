#include "profiles/store/ProfileTexts.h"

#include "base/text/StringUtils.h"

using StringUtils::hasControlByte;
using StringUtils::TrimSet;

namespace ProfileTexts {

std::string cleanName(const std::string& requested) {
  return std::string(StringUtils::trim(requested, TrimSet::blanks));
}

Status checkTexts(const std::string& host, const std::string& network, const std::string& invitation) {
  const bool broken =
      hasControlByte(host) || hasControlByte(network) || hasControlByte(StringUtils::trim(invitation, TrimSet::blanks));
  return broken ? Status::of(status::invalidArgument) : Status();
}

}  // namespace ProfileTexts
