// Mutations: the small mistakes that somebody could make in a C++ source, for finding out whether a test would notice.
//
//   for (const Mutation& m : mutationsIn(source)) source.replace(m.at, m.length, m.replacement);  // one at a time
//
// Kinds: a relational, arithmetic or logical operator taken for its neighbour, a whole number one too large, true for
// false, a statement that is one call left out. Comments, literals of text and preprocessor lines are left alone.
// The sources are as clang-format leaves them: an operator of two operands has blanks around it, a template's brackets
// have none. A mutation may not compile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct Mutation {
  std::size_t at;  // where in the source, in bytes
  std::size_t length;
  std::string replacement;
  const char* kind;  // "relational", "arithmetic", "logical", "constant" or "call"
};

// In the order of their places.
std::vector<Mutation> mutationsIn(const std::string& source);

// The source with everything that is no code turned into blanks, of the same length, with the same lines. A literal of
// text keeps its quotes.
std::string codeOf(const std::string& source);

// A number below `count` for each seed, the same on every machine.
std::size_t chosenBy(std::uint64_t seed, std::size_t count);
