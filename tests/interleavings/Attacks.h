// Attacks: what another user, or a full disk, does to the store while a command runs.
//
//   for (const Attack& attack : allAttacks()) {
//     const Ending ending = attackAt(attack, words, 7);     // before the seventh call of the command on the store
//     for (const Finding& finding : findingsOfAttack(attack, serial, ending)) ...
//   }
//
// The second profile and the lock directory belong to the other user, and `.current` is open to everybody. Root has
// two secrets: a file that nobody else can read, and a file that everybody could read, in a directory that is closed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Promises.h"

struct Attack {
  std::string name;
  std::function<void()> act;
  std::vector<std::string> own = {};  // the paths that the other user changes; they may hold anything but a secret
};

const std::vector<Attack>& allAttacks();

// The endings of a command without an attack.
struct Peace {
  Tree before;
  Ending after;
};
Peace peaceOf(const std::vector<std::string>& words);

// Runs a command and attacks it before its k-th call on the store.
Ending attackAt(const Attack& attack, const std::vector<std::string>& words, std::size_t k);

// The checks, of which the last runs the next listing:
//   - The command ends by itself, with status 0, and waits for eleven seconds at most.
//   - No answer and no file of the store holds a secret, and the secrets are as they were.
//   - Every file that the other user did not change is as before or as after the command, or missing if it is missing
//     before or after. Nothing else is left.
//   - The next listing succeeds, shows each name once, and tells no secret either. It shows the other profiles under
//     their names.
Findings findingsOfAttack(const Attack& attack, const Peace& peace, const Ending& ending);
