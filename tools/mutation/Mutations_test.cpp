#include "tools/mutation/Mutations.h"

#include <gmock/gmock.h>

#include <set>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Returns each mutation as the whole text of the mutant.
std::vector<std::string> madeOf(const std::string& source) {
  std::vector<std::string> texts;
  for (const Mutation& mutation : mutationsIn(source)) {
    std::string text = source;
    text.replace(mutation.at, mutation.length, mutation.replacement);
    texts.push_back(text);
  }
  return texts;
}

TEST(Mutations, EachOperatorNumberAndBooleanIsReplacedByASimilarOne) {
  const struct {
    const char* why;
    const char* source;
    const char* made;
  } cases[] = {
      {"less", "a < b", "a <= b"},
      {"at most", "a <= b", "a < b"},
      {"greater", "a > b", "a >= b"},
      {"at least", "a >= b", "a > b"},
      {"equal", "a == b", "a != b"},
      {"unequal", "a != b", "a == b"},
      {"plus", "a + b", "a - b"},
      {"minus", "a - b", "a + b"},
      {"times", "a * b", "a / b"},
      {"by", "a / b", "a * b"},
      {"remainder", "a % b", "a * b"},
      {"add to", "a += b", "a -= b"},
      {"take from", "a -= b", "a += b"},
      {"bits of both", "a & b", "a | b"},
      {"bits of either", "a | b", "a & b"},
      {"left", "a << b", "a >> b"},
      {"right", "a >> b", "a << b"},
      {"and", "a && b", "a || b"},
      {"or", "a || b", "a && b"},
      {"not", "!a", "a"},
      {"up", "++a", "--a"},
      {"down", "a--", "a++"},
      {"end of line", "a &&\nb", "a ||\nb"},
      {"a number becomes one larger", "x = 9;", "x = (9 + 1);"},
      {"a number with base and suffix", "x = 0x1fU;", "x = (0x1fU + 1);"},
      {"a number with separators", "x = 1'000'000;", "x = (1'000'000 + 1);"},
      {"true", "return true;", "return false;"},
      {"false", "return false;", "return true;"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_THAT(madeOf(c.source), ElementsAre(c.made));
  }
}

TEST(Mutations, AStatementThatIsACallIsRemoved) {
  EXPECT_THAT(madeOf("void f() {\n  (void)::close(fd);\n}"), ElementsAre("void f() {\n  (void)0;\n}"));
  EXPECT_THAT(madeOf("void f() { a.b->c(d, \"e;f\"); }"), ElementsAre("void f() { (void)0; }"));
  EXPECT_THAT(madeOf("int f() const {\n  if (a(b)) c();\n  else d();\n}"),
              ElementsAre("int f() const {\n  if (a(b)) (void)0;\n  else d();\n}",
                          "int f() const {\n  if (a(b)) c();\n  else (void)0;\n}"));
}

TEST(Mutations, OtherCodeHasNoMutations) {
  for (const char* source : {
           "template <typename T>",
           "T&& x",
           "const char* x",
           "bool operator==(T) const;",
           "// a < b, 9, true",
           "/* a < b\n 9 */",
           "#if A < 9\n",
           "#define A \\\n  9\n",
           "x = \"a < 9 \\\" 8\";",
           "x = '9';",
           "x = R\"(a \" < 9)\";",
           "x9 = trueness;",
           "virtual void f() const = 0;",
           "x = 1.5;",
           "class A {\n  A();\n};",
           "void f() { A a(b); }",
           "void f() { return a(b); }",
           "namespace a { b(c); }",
       }) {
    SCOPED_TRACE(source);
    EXPECT_THAT(madeOf(source), IsEmpty());
  }
}

TEST(Mutations, CodeKeepsItsOffsetsWhenCommentsAndTextsAreBlanked) {
  EXPECT_EQ(codeOf("a; // b\nc(\"d\", 'e');\n#if f\ng"), "a;     \nc(\" \", ' ');\n     \ng");
}

TEST(Mutations, ASeedAlwaysChoosesTheSameNumber) {
  EXPECT_EQ(chosenBy(1, 1000), chosenBy(1, 1000));
  EXPECT_EQ(chosenBy(1, 3945), 920u);
  std::set<std::size_t> chosen;
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) chosen.insert(chosenBy(seed, 10));
  EXPECT_EQ(chosen.size(), 10u) << "every number can be chosen";
}

}  // namespace
