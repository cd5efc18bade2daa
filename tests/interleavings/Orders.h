// Orders: runs one pair of commands in many orders, and counts the runs and the problems.
//
//   Orders orders(pair, &exceptions);
//   orders.stopBeforeEachCall(1);
//   for (const std::string& problem : orders.problems()) ADD_FAILURE() << problem;
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Exceptions.h"
#include "Promises.h"

// Names the calls before which the programs stopped, and the answers.
std::string describe(const Ending& ending, const std::vector<Turn>& turns);

class Orders {
 public:
  using Forge = decltype(Interleaving::forge);

  Orders(Pair pair, Exceptions* exceptions);

  // From now on each run forges calls with a function that `plant` makes for it.
  void plant(std::function<Forge()> plant) { plant_ = std::move(plant); }
  // Ends the search at the first problem that contains this text.
  void endAt(std::string text) { wanted_ = std::move(text); }
  bool hasEnded() const { return hasEnded_; }

  // The first program stops before each n-th of its calls, from the call `from` on; the second one runs to its end, and
  // then the first one.
  void stopBeforeEachCall(std::size_t n, std::size_t from = 1);
  // The turn also comes back: the second program stops, too, the first one runs to its end, and then the second one.
  // Takes each n-th of the orders that differ. Two orders do not differ if one comes from the other by exchanging
  // calls that do not meet. Two calls meet if one of them changes or locks something at the path of the other one,
  // above it or below it. This is judged by the calls that each program makes alone.
  void comeBack(std::size_t n, std::size_t from = 1);

  const Pair& pair() const { return pair_; }
  // The number of calls on the store that a program makes if it runs alone.
  std::size_t callsOf(std::size_t program) const { return tracedCallsOf(program).size(); }
  std::size_t stops() const { return stops_; }
  std::size_t returns() const { return returns_; }
  // A text for each distinct problem, with the first order that had it.
  const std::vector<std::string>& problems() const { return problems_; }

 private:
  const std::vector<TracedCall>& tracedCallsOf(std::size_t program) const {
    return serial_.alone[program].run.programs[0].calls;
  }
  std::vector<std::vector<Turn>> ordersThatDiffer() const;
  void run(const std::vector<Turn>& turns);
  const Findings& listingOf(const Tree& found);

  const Pair pair_;
  Exceptions& exceptions_;
  const Serial serial_;
  std::function<Forge()> plant_;
  std::string wanted_;
  bool hasEnded_ = false;
  std::size_t stops_ = 0;
  std::size_t returns_ = 0;
  std::set<std::string> seen_;
  std::vector<std::string> problems_;
  std::map<Tree::Nodes, Findings> listings_;  // by the files that a run has left: most runs leave the same
};
