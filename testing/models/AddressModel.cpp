#include "testing/models/AddressModel.h"

#include <algorithm>

namespace address_model {
namespace {

std::string withoutScheme(const std::string& text) {
  for (const std::string scheme : {"http://", "https://"}) {
    std::string start = text.substr(0, scheme.size());
    for (char& c : start) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (start != scheme) continue;
    const std::string address = text.substr(scheme.size());
    return address.substr(0, address.find('/'));
  }
  return text;
}

}  // namespace

std::int64_t portOf(const std::string& text) {
  std::int64_t port = 0;
  for (std::size_t at = 0; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
    port = std::min<std::int64_t>(port * 10 + (text[at] - '0'), INT32_MAX);
  return port;
}

Address addressOf(const std::string& text) {
  const std::string remaining = withoutScheme(text);
  Address address;
  address.isGiven = !remaining.empty();
  const std::size_t colon = remaining.find(':');
  address.host = remaining.substr(0, colon);
  if (colon != std::string::npos) address.port = portOf(remaining.substr(colon + 1));
  return address;
}

}  // namespace address_model
