// Stage: the store and the commands of the interleavings, and what the commands do one after the other.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Interleaver.h"
#include "testing/run/HostTest.h"
#include "tests/torture/Tree.h"

// Returns why no programs can run in turns here; empty if they can.
std::string whyNoTurns();

// A test that runs programs in turns. It is skipped where that cannot be done.
class Interleavings : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!whyNoTurns().empty()) GTEST_SKIP() << whyNoTurns();
  }
};

// A command in two forms. The programs of a pair write different texts, so that a mixture shows.
struct Command {
  std::string name;  // as in the catalogue; after a comma, what is special
  std::vector<std::string> first;
  std::vector<std::string> second;
};

// Returns the eight commands of the pairs, in a fixed order.
const std::vector<Command>& allCommands();

// The store on which all commands work. Three profiles; the commands change the second one. Anybody may write in the
// lock directory.
Tree soundStore();
// The same, but nobody else may write in the lock directory.
Tree storeWithOwnLocks();
// The same, but two profiles have one name and one has none.
Tree storeToRepair();

struct Pair {
  std::string name;                             // the commands with " + " between them; after a comma, what is special
  std::string reversedName;                     // the same with the commands exchanged
  std::vector<std::vector<std::string>> words;  // of the two commands
  Tree store;
};

// Returns the pairs of a command of allCommands() with every command, and its pairs on the other stores.
std::vector<Pair> pairsOf(const Command& first);

// The plan of a pair, without turns. The words of the programs begin with the path of ravctl.
Interleaving planOf(const std::vector<std::vector<std::string>>& commands);

// A run and the files that it has left.
struct Ending {
  Interleaved run;
  Tree found;
};

// Runs a plan on a store.
Ending perform(const Tree& store, const Interleaving& plan);

// The endings without any interleaving.
struct Serial {
  Tree before;
  std::vector<Ending> both;   // the first command, then the second one; and the other way round
  std::vector<Ending> alone;  // one of the commands alone
};
Serial serialOf(const Pair& pair);
