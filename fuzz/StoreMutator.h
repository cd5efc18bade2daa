// StoreMutator: changes an input of the target `store` line by line. store.cpp describes these lines.
//
//   fuzz::Random random(seed);
//   const std::string changed = fuzz::mutatedStore(input, random);
#pragma once

#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Mutation.h"

namespace fuzz {

namespace store_mutator {

constexpr std::size_t kHead = 3;  // the bytes before the lines

constexpr const char* kFields[] = {"",
                                   "lab",
                                   "lab#2",
                                   "office",
                                   "profile",
                                   "profile#2",
                                   "a b",
                                   " lab ",
                                   "",
                                   ".current",
                                   ".factory",
                                   "--active",
                                   "dir=",
                                   "dir=profile-1",
                                   "1",
                                   "dir=lab",
                                   "dir=profile-2",
                                   "dir=.factory",
                                   "profile-1",
                                   "profile-2",
                                   "2",
                                   "h",
                                   "10.0.0.1",
                                   "443",
                                   "0",
                                   "65536",
                                   "-1",
                                   "eth0",
                                   "###",
                                   " code ",
                                   "debug",
                                   "ERR",
                                   "loud",
                                   "nhivla",
                                   "a",
                                   "r",
                                   "h",
                                   "l",
                                   "i",
                                   "v",
                                   "\x01",
                                   "\xc3\xa9",
                                   "k=v;",
                                   "log_level=info;openhip.log_level=info",
                                   "master_interface=eth1;",
                                   ";;lab;x",
                                   "map_uri=https://host:1/x",
                                   "activation_code=1;",
                                   "dir=profile-123123",
                                   "b",
                                   "c"};
// What fields are put into the places of '?' to make a new line.
constexpr const char* kLines[] = {"d?",
                                  "d1",
                                  "d2",
                                  "n1|?",
                                  "n2|?",
                                  "n3|?",
                                  "n4|?",
                                  "f1|b|?",
                                  "f1|c|?",
                                  "f0|?|?",
                                  "f2|?|?",
                                  "s1|?|?",
                                  "s2|?|?",
                                  "k1|?|?",
                                  "i4|?",
                                  "i1|?",
                                  "o1",
                                  "c|?",
                                  "c|profile-1",
                                  "L",
                                  "L!",
                                  "C?|?|?|?|?|?",
                                  "C!?|?|?|?|?|?",
                                  "R?|?",
                                  "R!?|?",
                                  "M?|nhivl|?|?|?|?|?|?",
                                  "M!?|nhivl|?|?|?|?|?|?",
                                  "M?|?|?|?|?|?|?|?",
                                  "D?",
                                  "D!?",
                                  "S?",
                                  "S!?",
                                  "A?",
                                  "A!?",
                                  "E",
                                  "E!",
                                  "G?",
                                  "G!?",
                                  "u1",
                                  "f1|g|x",
                                  "f1|h|x",
                                  "f6|a|x"};

using Lines = std::vector<std::string>;

inline std::vector<std::string> splitAt(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    pieces.emplace_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return pieces;
}

inline std::string joinedBy(const std::vector<std::string>& pieces, char separator) {
  std::string text;
  for (const std::string& piece : pieces) {
    if (!text.empty() || &piece != pieces.data()) text += separator;
    text += piece;
  }
  return text;
}

inline std::string newLine(Random& random) {
  std::string line;
  for (const char* c = random.oneOf(kLines); *c != '\0'; ++c) {
    if (*c == '?') {
      line += random.oneOf(kFields);
    } else {
      line += *c;
    }
  }
  return line;
}

// The fields between "|", and the letters before them, get a new text, or that of another field.
inline std::string withOtherField(const std::string& line, Random& random) {
  std::vector<std::string> fields = splitAt(line, '|');
  std::string& field = random.oneOf(fields);
  const std::size_t letters = &field == fields.data() ? std::min<std::size_t>(field.size(), 1) : 0;
  const std::string text = random.below(3) == 0 ? random.oneOf(fields) : random.oneOf(kFields);
  field = field.substr(0, letters) + text;
  return joinedBy(fields, '|');
}

// An operation runs under the faults, or no longer.
inline std::string withOtherFaults(const std::string& line) {
  if (line.size() > 1 && line[1] == '!') return line.substr(0, 1) + line.substr(2);
  return line.empty() ? line : line.substr(0, 1) + "!" + line.substr(1);
}

}  // namespace store_mutator

// Returns the input with one change: of a line, of their order, or of the faults.
inline std::string mutatedStore(std::string_view input, Random& random) {
  using namespace store_mutator;  // the steps of this function
  std::string head(input.substr(0, kHead));
  head.resize(kHead, '@');
  Lines lines = splitAt(input.substr(std::min(input.size(), kHead)), '\n');
  const auto place = [&](std::size_t more) {
    return lines.begin() + static_cast<std::ptrdiff_t>(random.below(lines.size() + more));
  };
  switch (random.below(9)) {
    case 0:
      head[0] = static_cast<char>('@' + random.below(4));
      break;
    case 1:
      head[1] = static_cast<char>('@' + random.below(64));
      break;
    case 2:
      head[2] = static_cast<char>('@' + random.below(4));
      break;
    case 3:
      if (lines.size() > 1) lines.erase(place(0));
      break;
    case 4: {
      const std::string line = *place(0);
      lines.insert(place(1), line);
      break;
    }
    case 5:
      std::swap(*place(0), *place(0));
      break;
    case 6: {
      std::string& line = *place(0);
      line = withOtherFaults(line);
      break;
    }
    case 7: {
      std::string& line = *place(0);
      line = withOtherField(line, random);
      break;
    }
    default:
      lines.insert(place(1), newLine(random));
      break;
  }
  return head + joinedBy(lines, '\n');
}

}  // namespace fuzz
