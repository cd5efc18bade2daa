// Two commands run on one store in many orders of their system calls, and a command runs beside somebody who changes
// the store at one of its calls. docs/interleavings.md lists what is not promised then; anything else fails the test.
//
// Every pair of commands runs, but not in every order. With RAVCTL_INTERLEAVINGS=more there are more orders, and with
// RAVCTL_INTERLEAVINGS=whole or RAVCTL_LONG all.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <ostream>
#include <set>
#include <stdexcept>

#include "Attacks.h"
#include "Orders.h"
#include "testing/run/HostTest.h"

namespace {

// One run of n is taken. Every number is prime, so that the orders that are taken spread over all calls.
struct Extent {
  std::size_t stops;
  std::size_t returns;
  std::size_t attacks;
};
constexpr Extent kPart = {17, 499, 37};
constexpr Extent kMore = {1, 31, 5};
constexpr Extent kWhole = {1, 1, 1};

const Extent& extent() {
  const char* form = std::getenv("RAVCTL_INTERLEAVINGS");
  const std::string text = form != nullptr ? form : "";
  if (text == "whole" || std::getenv("RAVCTL_LONG") != nullptr) return kWhole;
  return text == "more" ? kMore : kPart;
}

// RAVCTL_INTERLEAVINGS_ONLY limits the test to the pairs and attacks whose names begin with it.
bool isWanted(const std::string& name) {
  const char* start = std::getenv("RAVCTL_INTERLEAVINGS_ONLY");
  return start == nullptr || name.compare(0, std::string(start).size(), start) == 0;
}

// Prints a line of the figures in docs/interleavings.md. Also appends it to the file that RAVCTL_INTERLEAVINGS_FIGURES
// names.
void tell(const std::string& kind, const std::string& name, std::initializer_list<std::size_t> figures) {
  std::string line = kind + " | " + name;
  for (const std::size_t figure : figures) line += " | " + std::to_string(figure);
  std::printf("%s\n", line.c_str());
  if (const char* path = std::getenv("RAVCTL_INTERLEAVINGS_FIGURES")) {
    std::ofstream(std::string(path), std::ios::app) << line + "\n";
  }
}

// --- Two commands

class InterleavingsOf : public Interleavings, public testing::WithParamInterface<std::size_t> {};

std::string nameOf(const testing::TestParamInfo<std::size_t>& info) {
  std::string name = allCommands()[info.param].name;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

TEST_P(InterleavingsOf, TwoCommandsKeepTheirPromisesInEveryOrder) {
  Exceptions exceptions;
  std::size_t number = GetParam();
  for (const Pair& pair : pairsOf(allCommands()[GetParam()])) {
    if (!isWanted(pair.name)) continue;
    Orders orders(pair, &exceptions);
    orders.stopBeforeEachCall(extent().stops, 1 + number % extent().stops);
    orders.comeBack(extent().returns, 1 + number * 13 % extent().returns);
    number += 3;
    for (const std::string& problem : orders.problems()) ADD_FAILURE() << problem;
    EXPECT_GT(orders.stops(), 0u) << pair.name;
    if (extent().stops == 1) {
      for (const std::string& row : exceptions.unused(pair.name)) ADD_FAILURE() << row;
    }
    tell("pair", pair.name, {orders.callsOf(0), orders.callsOf(1), orders.stops(), orders.returns()});
  }
}

INSTANTIATE_TEST_SUITE_P(Commands, InterleavingsOf, testing::Range(std::size_t{0}, std::size_t{8}), nameOf);

// --- Attacks

class AttacksOn : public InterleavingsOf {};

TEST_P(AttacksOn, ACommandTellsNoSecretAndSpoilsNoFileWhateverSomebodyElseDoes) {
  SKIP_WITHOUT_OTHER_USERS();
  const Command& command = allCommands()[GetParam()];
  const Peace peace = peaceOf(command.first);
  const std::size_t calls = peace.after.run.programs[0].calls.size();
  // The store is on a small disk of its own, for the attack that fills it.
  const host::SmallDisk disk("/etc/zuv", std::size_t{1} << 20);
  Exceptions exceptions;
  std::size_t from = GetParam();
  std::size_t runs = 0;
  std::set<std::string> seen;
  for (const Attack& attack : allAttacks()) {
    if (!isWanted(command.name + ", " + attack.name)) continue;
    for (std::size_t k = 1 + from++ % extent().attacks; k <= calls; k += extent().attacks) {
      const Ending ending = attackAt(attack, command.first, k);
      EXPECT_EQ(ending.run.turnsReached, 1u) << command.name << " made another number of calls";
      ++runs;
      for (const Finding& finding : findingsOfAttack(attack, peace, ending)) {
        if (exceptions.allow({command.name + ", " + attack.name}, finding)) continue;
        if (!seen.insert(attack.name + finding.subject + finding.state).second) continue;
        ADD_FAILURE() << command.name << ", " << attack.name << ": " << finding.subject << " | " << finding.state
                      << describe(ending, {{0, k}});
      }
    }
  }
  tell("attacks", command.name, {calls, runs});
}

INSTANTIATE_TEST_SUITE_P(Commands, AttacksOn, testing::Range(std::size_t{0}, std::size_t{8}), nameOf);

// --- Planted flaws

const Command& commandOf(const std::string& name) {
  for (const Command& command : allCommands()) {
    if (command.name == name) return command;
  }
  throw std::runtime_error("no command " + name);
}

Pair pairOf(const std::string& first, const std::string& second) {
  for (const Pair& pair : pairsOf(commandOf(first))) {
    if (pair.name == first + " + " + second) return pair;
  }
  throw std::runtime_error("no pair " + first + " + " + second);
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The listing locks no name file, and does not see what the file holds by the time of the repair.
Orders::Forge repairWithoutLock() {
  return [isRepairing = false](std::size_t program, const TracedCall& call) mutable -> std::optional<long> {
    if (program != 1 || !endsWith(call.path, "/profile_name")) return std::nullopt;
    isRepairing = call.name == "flock" || (isRepairing && call.name != "close");
    return isRepairing && (call.name == "flock" || call.name == "read") ? std::optional<long>(0) : std::nullopt;
  };
}

Orders::Forge editWithoutLock() {
  return [](std::size_t, const TracedCall& call) -> std::optional<long> {
    return call.name == "flock" && endsWith(call.path, ".temp") ? std::optional<long>(0) : std::nullopt;
  };
}

Orders::Forge deleteWithoutRename() {
  return [](std::size_t, const TracedCall& call) -> std::optional<long> {
    return call.name == "renameat2" ? std::optional<long>(-EINVAL) : std::nullopt;
  };
}

struct Flaw {
  const char* name;
  const char* first;
  const char* second;
  Orders::Forge (*plant)();
  bool comesBack;
  const char* finding;
};

// GoogleTest calls it to print a flaw.
void PrintTo(const Flaw& flaw, std::ostream* out) { *out << flaw.name; }

class PlantedFlaw : public Interleavings, public testing::WithParamInterface<Flaw> {};

TEST_P(PlantedFlaw, IsFound) {
  Exceptions exceptions;
  Orders orders(pairOf(GetParam().first, GetParam().second), &exceptions);
  orders.plant(GetParam().plant);
  orders.endAt(GetParam().finding);
  if (GetParam().comesBack) {
    orders.comeBack(1);
  } else {
    orders.stopBeforeEachCall(1);
  }
  EXPECT_TRUE(orders.hasEnded());
  tell("flaw", GetParam().name, {orders.stops() + orders.returns(), orders.problems().size()});
}

const Flaw kFlaws[] = {{"RepairWithoutLock", "profile create", "list profiles", repairWithoutLock, true,
                        R"(name told by profile create | "profile\n")"},
                       {"EditWithoutLock", "profile modify", "profile modify", editWithoutLock, false,
                        "answer of profile modify | status_text: stdlib error: rename"},
                       {"DeleteWithoutRename", "profile delete", "list profiles", deleteWithoutRename, false,
                        R"(profile-2/profile_name | "profile\n")"}};

std::string nameOfFlaw(const testing::TestParamInfo<Flaw>& flaw) { return flaw.param.name; }

INSTANTIATE_TEST_SUITE_P(Flaws, PlantedFlaw, testing::ValuesIn(kFlaws), nameOfFlaw);

}  // namespace
