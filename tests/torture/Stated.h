// Stated: reads the tables of docs/reliability.md, which list the states that a failed or killed command may leave
// behind. The tests allow no other state.
#pragma once

#include <set>
#include <string>
#include <vector>

// One row of one of the three tables. Its command is the whole name of a scene, or the part before the comma, or "any".
struct StatedRow {
  std::string command;
  std::string subject;           // a path, with * for any part of a name, or the key of a line of output
  std::set<std::string> states;  // the states that it may have (see stateOf)
  std::set<std::string> calls;   // the failed calls after which it may have them, or "any"
  bool isReported = true;        // allowed only if the status lines report a failure
  int line = 0;                  // line number in the document
};

enum class StatedTable { faultFiles, faultOutput, crashFiles };

class Stated {
 public:
  // Throws std::runtime_error if the document lacks a table or a row cannot be parsed.
  Stated();

  // Returns true if a row allows this state, and marks that row as used. For a crash `call` is "kill" or "next".
  bool allows(StatedTable table, const std::string& scene, const std::string& subject, const std::string& state,
              const std::string& call, bool reported);

  // Returns a message for each unused row with the whole name of this scene.
  std::vector<std::string> unused(StatedTable table, const std::string& scene) const;

 private:
  std::vector<StatedRow> rows_[3];
  std::set<int> used_;
};
