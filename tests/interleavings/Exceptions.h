// Exceptions: reads the table of docs/interleavings.md, which lists what may differ when two commands run at the same
// time, or a command and an attack. The tests allow nothing else.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "Promises.h"

class Exceptions {
 public:
  // Throws std::runtime_error if the document lacks the table or a row cannot be parsed.
  Exceptions();

  // Returns true if a row of one of these names allows the finding, and marks that row as used.
  bool allow(const std::vector<std::string>& names, const Finding& finding);

  // Returns a message for each row of exactly this name that allowed nothing.
  std::vector<std::string> unused(const std::string& name) const;

 private:
  struct Row {
    // Patterns, with * for any text.
    std::string name;
    std::string subject;
    std::string state;
    int line = 0;
  };
  std::vector<Row> rows_;
  std::set<int> used_;
};
