// Stated: what docs/reliability.md says may remain of a command that failed or was killed. The tests allow nothing
// else.
#pragma once

#include <set>
#include <string>
#include <vector>

// One row of one of the three tables. Its command is a scene's whole name, or the part before the comma, or "any".
struct StatedRow {
  std::string command;
  std::string subject;           // a path, with * for any part of a name, or the key of a line of output
  std::set<std::string> states;  // what may have become of it
  std::set<std::string> calls;   // which calls have failed then; "any"
  bool isTold = true;            // only with a failure in the status lines
  int line = 0;                  // in the document
};

enum class StatedTable { faultFiles, faultOutput, crashFiles };

class Stated {
 public:
  // Throws std::runtime_error when the document has no such tables, or a row does not read.
  Stated();

  // Whether some row allows it; that row counts as used. `call` is empty for a crash.
  bool allows(StatedTable table, const std::string& scene, const std::string& subject, const std::string& state,
              const std::string& call, bool told);

  // The rows with this scene's whole name that allowed nothing.
  std::vector<std::string> unused(StatedTable table, const std::string& scene) const;

 private:
  std::vector<StatedRow> rows_[3];
  std::set<int> used_;
};
