#include "tools/mutation/Mutations.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

struct Swap {
  const char* from;
  const char* to;
  const char* kind;
};

constexpr const char* kRelational = "relational";
constexpr const char* kArithmetic = "arithmetic";
constexpr const char* kLogical = "logical";
constexpr const char* kConstant = "constant";
constexpr const char* kCall = "call";

constexpr Swap kOperators[] = {
    {"<", "<=", kRelational},  {"<=", "<", kRelational},  {">", ">=", kRelational}, {">=", ">", kRelational},
    {"==", "!=", kRelational}, {"!=", "==", kRelational}, {"+", "-", kArithmetic},  {"-", "+", kArithmetic},
    {"*", "/", kArithmetic},   {"/", "*", kArithmetic},   {"%", "*", kArithmetic},  {"+=", "-=", kArithmetic},
    {"-=", "+=", kArithmetic}, {"&", "|", kArithmetic},   {"|", "&", kArithmetic},  {"<<", ">>", kArithmetic},
    {">>", "<<", kArithmetic}, {"&&", "||", kLogical},    {"||", "&&", kLogical},
};
// These operators have no blanks around them.
constexpr Swap kTight[] = {{"++", "--", kArithmetic}, {"--", "++", kArithmetic}};
constexpr Swap kWords[] = {{"true", "false", kConstant}, {"false", "true", kConstant}};

constexpr const char* kNoCalls[] = {
    "if",          "for",      "while", "switch", "return", "sizeof", "static_assert", "delete",        "alignas",
    "static_cast", "decltype", "else",  "do",     "case",   "goto",   "throw",         "__attribute__", "using"};
constexpr const char* kScopes[] = {"class", "struct", "union", "enum", "namespace"};

bool isWordByte(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBlank(char c) { return c == ' ' || c == '\n'; }

bool startsAt(const std::string& text, std::size_t at, const char* what) {
  return text.compare(at, std::strlen(what), what) == 0;
}

char byteAt(const std::string& text, std::size_t at) { return at < text.size() ? text[at] : '\n'; }
char byteBefore(const std::string& text, std::size_t at) { return at == 0 ? '\n' : text[at - 1]; }

std::size_t skipBlanks(const std::string& code, std::size_t at) {
  while (at < code.size() && isBlank(code[at])) ++at;
  return at;
}

// Returns the offset after the last byte before `end` that is no blank.
std::size_t trimmedEnd(const std::string& code, std::size_t end) {
  while (end > 0 && isBlank(code[end - 1])) --end;
  return end;
}

std::string lastWordBefore(const std::string& code, std::size_t end) {
  end = trimmedEnd(code, end);
  std::size_t start = end;
  while (start > 0 && isWordByte(code[start - 1])) --start;
  return code.substr(start, end - start);
}

// Replaces everything that is no code by blanks.
class Blanker {
 public:
  explicit Blanker(const std::string& source) : source_(source), code_(source) {}

  std::string run() {
    while (at_ < source_.size()) step();
    return code_;
  }

 private:
  void step() {
    const char c = source_[at_];
    const bool isSeparator = c == '\'' && isWordByte(byteBefore(source_, at_));  // as in 1'000
    if (startsAt(source_, at_, "//")) {
      blankUntil(std::min(source_.find('\n', at_), source_.size()));
    } else if (startsAt(source_, at_, "/*")) {
      blankUntil(after("*/"));
    } else if (c == '#' && lineIsEmptySoFar()) {
      blankUntil(endOfDirective());
    } else if (startsAt(source_, at_, "R\"(")) {
      at_ += 2;
      blankUntil(after(")\"") - 1);
      ++at_;
    } else if (c == '"' || (c == '\'' && !isSeparator)) {
      blankLiteral(c);
    } else {
      ++at_;
    }
  }

  bool lineIsEmptySoFar() const {
    std::size_t before = at_;
    while (before > 0 && source_[before - 1] == ' ') --before;
    return byteBefore(source_, before) == '\n';
  }

  std::size_t endOfDirective() const {
    std::size_t end = at_;
    do {
      end = std::min(source_.find('\n', end + 1), source_.size());
    } while (end < source_.size() && source_[end - 1] == '\\');
    return end;
  }

  std::size_t after(const char* mark) const {
    const std::size_t found = source_.find(mark, at_ + 1);
    return found == std::string::npos ? source_.size() : found + std::strlen(mark);
  }

  void blankLiteral(char quote) {
    std::size_t end = at_ + 1;
    while (end < source_.size() && source_[end] != quote) end += source_[end] == '\\' ? 2 : 1;
    ++at_;
    blankUntil(std::min(end, source_.size()));
    ++at_;
  }

  void blankUntil(std::size_t end) {
    for (; at_ < end; ++at_) {
      if (code_[at_] != '\n') code_[at_] = ' ';
    }
  }

  const std::string& source_;
  std::string code_;
  std::size_t at_ = 0;
};

class Finder {
 public:
  explicit Finder(const std::string& source) : code_(codeOf(source)) {}

  std::vector<Mutation> run() {
    for (std::size_t at = 0; at < code_.size(); ++at) {
      findOperator(at);
      findNot(at);
      findNumber(at);
      findWord(at);
    }
    findCalls();
    std::stable_sort(found_.begin(), found_.end(), [](const Mutation& a, const Mutation& b) { return a.at < b.at; });
    return found_;
  }

 private:
  void add(std::size_t at, std::size_t length, std::string replacement, const char* kind) {
    found_.push_back({at, length, std::move(replacement), kind});
  }

  void findOperator(std::size_t at) {
    for (const Swap& swap : kTight) {
      if (startsAt(code_, at, swap.from)) return add(at, 2, swap.to, swap.kind);
    }
    if (!isBlank(byteBefore(code_, at))) return;
    for (const Swap& swap : kOperators) {
      const std::size_t length = std::strlen(swap.from);
      if (startsAt(code_, at, swap.from) && isBlank(byteAt(code_, at + length))) add(at, length, swap.to, swap.kind);
    }
  }

  void findNot(std::size_t at) {
    if (code_[at] == '!' && byteAt(code_, at + 1) != '=') add(at, 1, "", kLogical);
  }

  void findNumber(std::size_t at) {
    if (!isDigit(code_[at]) || isWordByte(byteBefore(code_, at)) || isInMark(at) || isPure(at)) return;
    std::size_t end = at;
    while (isWordByte(byteAt(code_, end)) || byteAt(code_, end) == '\'' || byteAt(code_, end) == '.') ++end;
    const std::string number = code_.substr(at, end - at);
    if (number.find('.') == std::string::npos) add(at, number.size(), "(" + number + " + 1)", kConstant);
  }

  // Returns true inside a number such as 1'000 or 1.5, after its separator.
  bool isInMark(std::size_t at) const {
    const char before = byteBefore(code_, at);
    return before == '.' || (before == '\'' && at > 1 && isWordByte(code_[at - 2]));
  }

  // Returns true for the 0 in `virtual int f() = 0;`.
  bool isPure(std::size_t at) const {
    const std::size_t sign = trimmedEnd(code_, at);
    if (byteBefore(code_, sign) != '=') return false;
    const std::size_t end = trimmedEnd(code_, sign - 1);
    return byteBefore(code_, end) == ')' || lastWordBefore(code_, end) == "const";
  }

  void findWord(std::size_t at) {
    if (isWordByte(byteBefore(code_, at))) return;
    for (const Swap& swap : kWords) {
      const std::size_t length = std::strlen(swap.from);
      if (startsAt(code_, at, swap.from) && !isWordByte(byteAt(code_, at + length)))
        add(at, length, swap.to, swap.kind);
    }
  }

  // A statement begins after a brace, a semicolon, `else`, or the parentheses of an `if` or a loop.
  void findCalls() {
    std::vector<bool> holdsStatements;  // one entry for each open brace
    std::size_t statement = 0;
    for (std::size_t at = 0; at < code_.size(); ++at) {
      const char c = code_[at];
      if (c == '{') {
        holdsStatements.push_back(opensStatements(statement, at));
      } else if (c == '}' && !holdsStatements.empty()) {
        holdsStatements.pop_back();
      } else if (c != ';') {
        continue;
      }
      statement = at + 1;
      if (!holdsStatements.empty() && holdsStatements.back()) findCallAt(statement);
    }
  }

  // Returns true if the brace opens a block of statements. Braces of classes, namespaces and initializers do not.
  bool opensStatements(std::size_t statement, std::size_t brace) const {
    const std::string head = code_.substr(statement, brace - statement);
    const std::size_t end = trimmedEnd(code_, brace);
    if (byteBefore(code_, end) == ')' || head.find(") const") != std::string::npos ||
        head.find(") override") != std::string::npos) {
      return true;
    }
    const std::string word = lastWordBefore(code_, end);
    if (word == "else" || word == "do") return true;
    const std::size_t first = skipBlanks(code_, statement);
    if (first == brace) return true;
    const bool isScope = std::any_of(std::begin(kScopes), std::end(kScopes),
                                     [&](const char* name) { return head.find(name) != std::string::npos; });
    return !isScope && head.find('(') != std::string::npos && byteBefore(code_, end) == '}';
  }

  void findCallAt(std::size_t start) {
    start = skipHeads(skipBlanks(code_, start));
    std::size_t at = start;
    if (startsAt(code_, at, "(void)")) at += 6;
    const std::size_t name = at;
    while (isWordByte(byteAt(code_, at)) || startsAt(code_, at, "::") || startsAt(code_, at, "->") ||
           (byteAt(code_, at) == '.' && at > name)) {
      at += startsAt(code_, at, "::") || startsAt(code_, at, "->") ? 2 : 1;
    }
    if (at == name || byteAt(code_, at) != '(' || isNoCall(code_.substr(name, at - name))) return;
    const std::size_t end = code_.find_first_of(";{", at);
    if (end == std::string::npos || code_[end] != ';' || byteBefore(code_, end) != ')') return;
    add(start, end - start, "(void)0", kCall);
  }

  static bool isNoCall(const std::string& word) {
    return std::any_of(std::begin(kNoCalls), std::end(kNoCalls), [&](const char* other) { return word == other; });
  }

  // Returns the offset after any `if (...)`, `for (...)`, `while (...)` and `else`.
  std::size_t skipHeads(std::size_t at) const {
    for (;;) {
      if (startsAt(code_, at, "else ") || startsAt(code_, at, "else\n")) {
        at = skipBlanks(code_, at + 4);
      } else if (startsAt(code_, at, "if (") || startsAt(code_, at, "for (") || startsAt(code_, at, "while (")) {
        at = skipBlanks(code_, afterParentheses(code_.find('(', at)));
      } else {
        return at;
      }
    }
  }

  std::size_t afterParentheses(std::size_t at) const {
    int depth = 0;
    for (; at < code_.size(); ++at) {
      if (code_[at] == '(') ++depth;
      if (code_[at] == ')' && --depth == 0) return at + 1;
    }
    return at;
  }

  const std::string code_;
  std::vector<Mutation> found_;
};

}  // namespace

std::vector<Mutation> mutationsIn(const std::string& source) { return Finder(source).run(); }

std::string codeOf(const std::string& source) { return Blanker(source).run(); }

// The algorithm is splitmix64, which gives unrelated numbers for neighbouring seeds.
std::size_t chosenBy(std::uint64_t seed, std::size_t count) {
  std::uint64_t z = seed + 0x9e3779b97f4a7c15;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
  z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
  return static_cast<std::size_t>((z ^ (z >> 31)) % count);
}
