// Laws of addresses, for any text. The models below are simple second implementations.
// - A URL is split as in the model. Its scheme, host, port and remainder form the URL again.
// - The Helmsor parameter has the host and the port of the model, and refuses only a text of which nothing remains.
// - A port is never negative, and a number that is too large never wraps to a valid port.
// Input: a text.
#include <cstdint>

#include "base/text/StringUtils.h"
#include "command/parameters/InputParams.h"
#include "fuzz/FuzzTarget.h"
#include "testing/models/AddressModel.h"

namespace {

using fuzz::require;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

struct Url {
  bool isSplit = false;
  std::string scheme, host, port, rest;
};

// The parts before a syntax error stay in the result.
Url modelOf(const std::string& text) {
  Url url;
  std::size_t at = text.find("://");
  if (at == std::string::npos) return url;
  at += 3;
  url.scheme = text.substr(0, at);
  if (at == text.size()) return url;
  if (text[at] == '[') {
    const std::size_t end = text.find(']', at);
    if (end == std::string::npos) return url;
    url.host = text.substr(at + 1, end - at - 1);
    at = end + 1;
  } else {
    std::size_t end = text.find(':', at);
    if (end == std::string::npos) end = text.find('/', at);
    if (end == std::string::npos) end = text.size();
    url.host = text.substr(at, end - at);
    at = end;
  }
  if (url.host.empty()) return url;
  url.isSplit = true;
  if (at < text.size() && text[at] == ':') {
    for (++at; at < text.size() && isDigit(text[at]); ++at) url.port += text[at];
  }
  url.rest = text.substr(at);
  return url;
}

void requireSplit(const std::string& text) {
  const Url expected = modelOf(text);
  std::string scheme = "old", host = "old", port = "old", rest = "old";
  require(StringUtils::splitUrl(text, scheme, host, port, rest) == expected.isSplit,
          "the text is a URL exactly if the model splits it");
  require(scheme == expected.scheme && host == expected.host, "scheme and host");
  require(port == expected.port && rest == expected.rest, "port and rest");
  if (!expected.isSplit) return;
  const bool isBracketed = text[scheme.size()] == '[';
  const std::string shownHost = isBracketed ? "[" + host + "]" : host;
  const std::size_t behindHost = scheme.size() + shownHost.size();
  const bool hasColon = behindHost < text.size() && text[behindHost] == ':';
  require(scheme + shownHost + (hasColon ? ":" : "") + port + rest == text, "the parts form the URL");
}

void requireHelmsor(const std::string& text) {
  HelmsorParam param(Need::required);
  require(param.setFromText("kept:1") && param.port() == 1, "an address is accepted");
  const address_model::Address expected = address_model::addressOf(text);
  require(param.setFromText(text) == expected.isGiven, "every address is accepted but the empty one");
  require(param.host() == expected.host, "the host is the text before the first colon");
  require(param.port() == expected.port, "the port is the number after the first colon");
  require(StringUtils::leadingPort(text) == address_model::portOf(text), "port digits at the start");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::string text(input.rest());
  requireSplit(text);
  requireHelmsor(text);
  return 0;
}
