#include "Exceptions.h"

#include <fnmatch.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"

namespace {

constexpr const char* kDocument = "docs/interleavings.md";
constexpr const char* kHeading = "| together | what | may be | why |";

// Splits a row at its bars and takes blanks and ticks away.
std::vector<std::string> cellsOf(const std::string& row) {
  std::vector<std::string> cells;
  std::istringstream stream(row.substr(1));
  for (std::string cell; std::getline(stream, cell, '|');) {
    std::string plain;
    for (const char c : cell) {
      if (c != '`') plain += c;
    }
    const std::size_t begin = plain.find_first_not_of(' ');
    cells.push_back(begin == std::string::npos ? "" : plain.substr(begin, plain.find_last_not_of(' ') - begin + 1));
  }
  return cells;
}

bool matches(const std::string& pattern, const std::string& text) {
  return ::fnmatch(pattern.c_str(), text.c_str(), FNM_NOESCAPE) == 0;
}

}  // namespace

Exceptions::Exceptions() {
  std::istringstream document(host::readFile(places::source() + "/" + kDocument));
  bool isInTable = false;
  int line = 0;
  for (std::string text; std::getline(document, text);) {
    ++line;
    const bool isHeading = text == kHeading;
    isInTable = isHeading || (isInTable && !text.empty() && text[0] == '|');
    if (!isInTable || isHeading || text.compare(0, 2, "|-") == 0) continue;
    const std::vector<std::string> cells = cellsOf(text);
    if (cells.size() != 4) throw std::runtime_error(std::string(kDocument) + ":" + std::to_string(line) + ": bad row");
    rows_.push_back({cells[0], cells[1], cells[2], line});
  }
  if (rows_.empty()) throw std::runtime_error(std::string(kDocument) + " has no table " + kHeading);
}

bool Exceptions::allow(const std::vector<std::string>& names, const Finding& finding) {
  for (const Row& row : rows_) {
    const bool isOfName =
        std::any_of(names.begin(), names.end(), [&](const auto& name) { return matches(row.name, name); });
    if (!isOfName || !matches(row.subject, finding.subject) || !matches(row.state, finding.state)) continue;
    used_.insert(row.line);
    return true;
  }
  return false;
}

std::vector<std::string> Exceptions::unused(const std::string& name) const {
  std::vector<std::string> messages;
  for (const Row& row : rows_) {
    if (row.name != name || used_.count(row.line) != 0) continue;
    messages.push_back(std::string(kDocument) + ":" + std::to_string(row.line) + ": never seen: " + row.subject);
  }
  return messages;
}
