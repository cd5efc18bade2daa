#include "Stated.h"

#include <fnmatch.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"

namespace {

// The heading row of each table, which identifies it.
constexpr const char* kHeadings[] = {
    "| command | file | may be | when | told | why |",
    "| command | line | may be | when | told | why |",
    "| command | file | may be | at | why |",
};

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(' ');
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(trimmed(part));
  return parts;
}

std::string withoutTicks(const std::string& text) {
  std::string plain;
  for (const char c : text) {
    if (c != '`') plain += c;
  }
  return plain;
}

std::set<std::string> setOf(const std::string& cell) {
  const std::vector<std::string> parts = split(withoutTicks(cell), ',');
  return {parts.begin(), parts.end()};
}

// In the tables "reading" means all calls that read.
std::set<std::string> callsOf(const std::string& cell) {
  std::set<std::string> calls = setOf(cell);
  if (calls.count("reading") != 0)
    calls.insert({"openat", "openat2", "read", "pread64", "newfstatat", "getdents64", "readlinkat"});
  return calls;
}

StatedRow parse(const std::string& text, int line, bool hasReported) {
  std::vector<std::string> cells = split(text, '|');
  if (!cells.empty()) cells.erase(cells.begin());  // before the first bar
  if (cells.size() != (hasReported ? 6 : 5))
    throw std::runtime_error("docs/reliability.md:" + std::to_string(line) + ": the row has a wrong number of cells");
  StatedRow row;
  row.command = withoutTicks(cells[0]);
  row.subject = withoutTicks(cells[1]);
  row.states = setOf(cells[2]);
  row.calls = callsOf(cells[3]);
  row.isReported = !hasReported || cells[4] == "yes";
  row.line = line;
  return row;
}

bool isOf(const StatedRow& row, const std::string& scene) {
  return row.command == "any" || row.command == scene || row.command == scene.substr(0, scene.find(','));
}

bool holds(const std::set<std::string>& words, const std::string& word) {
  return words.count(word) != 0 || words.count("any") != 0;
}

}  // namespace

Stated::Stated() {
  std::istringstream document(host::readFile(places::source() + "/docs/reliability.md"));
  int table = -1;
  int line = 0;
  for (std::string text; std::getline(document, text);) {
    ++line;
    if (text.empty() || text[0] != '|') {
      table = -1;
      continue;
    }
    for (int i = 0; i < 3; ++i) {
      if (text == kHeadings[i]) table = i;
    }
    const bool isHeading = table >= 0 && text == kHeadings[table];
    if (table < 0 || isHeading || text.compare(0, 2, "|-") == 0) continue;
    rows_[table].push_back(parse(text, line, table < 2));
  }
  for (int i = 0; i < 3; ++i) {
    if (rows_[i].empty()) throw std::runtime_error(std::string("docs/reliability.md has no table ") + kHeadings[i]);
  }
}

bool Stated::allows(StatedTable table, const std::string& scene, const std::string& subject, const std::string& state,
                    const std::string& call, bool reported) {
  for (const StatedRow& row : rows_[static_cast<int>(table)]) {
    if (isOf(row, scene) && holds(row.states, state[0] == '"' && row.states.count("other") != 0 ? "other" : state) &&
        holds(row.calls, call) && (reported || !row.isReported) &&
        ::fnmatch(row.subject.c_str(), subject.c_str(), 0) == 0) {
      used_.insert(row.line);
      return true;
    }
  }
  return false;
}

std::vector<std::string> Stated::unused(StatedTable table, const std::string& scene) const {
  std::vector<std::string> lines;
  for (const StatedRow& row : rows_[static_cast<int>(table)]) {
    if (row.command == scene && used_.count(row.line) == 0) {
      lines.push_back("docs/reliability.md:" + std::to_string(row.line) + ": never seen: " + row.subject);
    }
  }
  return lines;
}
