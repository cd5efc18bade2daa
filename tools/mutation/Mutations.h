// Mutations: finds the places of a C++ source where a small mistake can be made. Mutation testing makes one mistake at
// a time and checks if a test fails.
//
//   for (const Mutation& m : mutationsIn(source)) source.replace(m.at, m.length, m.replacement);  // one at a time
//
// Kinds of mistakes: a relational, arithmetic or logical operator is replaced by a similar one, a whole number is one
// too large, true and false are exchanged, a statement that consists of one call is removed. Comments, text literals
// and preprocessor lines do not change. The sources must be formatted by clang-format: a binary operator has blanks
// around it, and the brackets of a template have none. Some mutants do not compile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct Mutation {
  std::size_t at;  // offset in the source in bytes
  std::size_t length;
  std::string replacement;
  const char* kind;  // "relational", "arithmetic", "logical", "constant" or "call"
};

// Returns all mutations of the source, ordered by their offset.
std::vector<Mutation> mutationsIn(const std::string& source);

// Returns the source with everything that is no code replaced by blanks. Its length and its line breaks stay the same.
// A text literal keeps its quotes.
std::string codeOf(const std::string& source);

// Returns a number below `count` for each seed. The number is the same on every machine.
std::size_t chosenBy(std::uint64_t seed, std::size_t count);
