#include "Orders.h"

#include <algorithm>
#include <utility>

#include "testing/host/HostFiles.h"

namespace {

// Calls that concern only the program itself, once it has opened a file.
bool isOwn(const TracedCall& call) {
  static const std::set<std::string> own = {"close", "fcntl", "fstat", "lseek", "fsync"};
  return own.count(call.name) != 0;
}

bool isBelow(const std::string& path, const std::string& folder) {
  return path.compare(0, folder.size(), folder) == 0 && (path.size() == folder.size() || path[folder.size()] == '/');
}

// The path without what the tracer and the program add at its end.
std::string plainPath(std::string path) {
  for (const std::string end : {" (deleted)", "/.", "/"}) {
    const bool hasEnd = path.size() > end.size() && path.compare(path.size() - end.size(), end.size(), end) == 0;
    if (hasEnd) path.resize(path.size() - end.size());
  }
  return path;
}

bool meet(const TracedCall& a, const TracedCall& b) {
  const auto changes = [](const TracedCall& call) { return call.changesDisk || call.name == "flock"; };
  if (isOwn(a) || isOwn(b) || (!changes(a) && !changes(b))) return false;
  if (a.path.empty() || b.path.empty()) return true;  // a rename, whose paths are not known
  const std::string one = plainPath(a.path);
  const std::string other = plainPath(b.path);
  return isBelow(one, other) || isBelow(other, one);
}

}  // namespace

std::string describe(const Ending& ending, const std::vector<Turn>& turns) {
  std::string text;
  for (const Turn& turn : turns) {
    if (turn.until == kToItsEnd) continue;
    const std::vector<TracedCall>& calls = ending.run.programs[turn.program].calls;
    text += "\n  program " + std::to_string(turn.program + 1) + " stops before call " + std::to_string(turn.until);
    if (turn.until <= calls.size()) text += ", " + calls[turn.until - 1].name + " " + calls[turn.until - 1].path;
  }
  for (const InterleavedProgram& program : ending.run.programs) text += "\n  answer: " + host::quoted(program.out);
  return text;
}

Orders::Orders(Pair pair, Exceptions* exceptions)
    : pair_(std::move(pair)), exceptions_(*exceptions), serial_(serialOf(pair_)) {}

void Orders::stopBeforeEachCall(std::size_t n, std::size_t from) {
  for (std::size_t k = from; k <= callsOf(0) && !hasEnded_; k += n) {
    run({{0, k}, {1, kToItsEnd}});
    ++stops_;
  }
}

void Orders::comeBack(std::size_t n, std::size_t from) {
  const std::vector<std::vector<Turn>> orders = ordersThatDiffer();
  for (std::size_t i = from - 1; i < orders.size() && !hasEnded_; i += n) {
    run(orders[i]);
    ++returns_;
  }
}

// Many orders have the same result. This takes the one of them in which the first program stops last and the second one
// stops first: the next call of the first program meets a call that the second one has made before, and the last call
// of the second one meets a call that the first one makes afterwards.
std::vector<std::vector<Turn>> Orders::ordersThatDiffer() const {
  const std::vector<TracedCall>& first = tracedCallsOf(0);
  const std::vector<TracedCall>& second = tracedCallsOf(1);
  std::vector<std::vector<Turn>> orders;
  std::vector<std::size_t> lastMeeting(second.size() + 1, 0);
  for (const TracedCall& b : second) {
    for (const TracedCall& a : first) {
      if (meet(a, b)) lastMeeting[b.number] = a.number;
    }
  }
  for (const TracedCall& a : first) {
    const auto met = std::find_if(second.begin(), second.end(), [&](const TracedCall& b) { return meet(a, b); });
    if (met == second.end()) continue;
    for (std::size_t last = met->number; last < second.size(); ++last) {
      if (lastMeeting[last] >= a.number) orders.push_back({{0, a.number}, {1, last + 1}, {0, kToItsEnd}});
    }
  }
  return orders;
}

const Findings& Orders::listingOf(const Tree& found) {
  const auto known = listings_.find(found.nodes());
  return known != listings_.end() ? known->second : listings_[found.nodes()] = findingsOfListing(found);
}

void Orders::run(const std::vector<Turn>& turns) {
  Interleaving plan = planOf(pair_.words);
  plan.turns = turns;
  if (plant_) plan.forge = plant_();
  const Ending ending = perform(pair_.store, plan);
  Findings findings = findingsOf(pair_, serial_, ending);
  for (const Finding& finding : listingOf(ending.found)) findings.push_back(finding);
  for (const Finding& finding : findings) {
    if (exceptions_.allow({pair_.name, pair_.reversedName}, finding) ||
        !seen_.insert(finding.subject + finding.state).second)
      continue;
    const std::string text = finding.subject + " | " + finding.state;
    problems_.push_back(pair_.name + ": " + text + describe(ending, turns));
    hasEnded_ = hasEnded_ || (!wanted_.empty() && text.find(wanted_) != std::string::npos);
  }
}
