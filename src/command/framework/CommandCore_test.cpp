#include "command/framework/CommandCore.h"

#include <gtest/gtest.h>

#include <memory>

#include "json/JsonModel.h"
#include "json/JsonParser.h"
#include "log/front/BasicLog.h"
#include "testing/faults/AllocationCount.h"
#include "testing/run/Matchers.h"

namespace {

using Lines = std::vector<std::string>;
using Words = std::vector<std::string>;

// A parameter that is neither a single word nor takes a value. No command of the program has such a parameter.
class OddParam : public InputParamBase {
 public:
  OddParam() : InputParamBase("odd", Need::optional, Show::listed) {}
  bool takesValue() const override { return false; }
  bool setFromText(const std::string&) override { return accept(); }
  void appendValueForm(std::string&) const override {}
  const char* typeDescription() const override { return "odd"; }
};

// A command with one parameter of each kind and some results.
class Example : public RavctlCommandInstance {
 public:
  Example() : RavctlCommandInstance("example method") {
    takes({&text, &number, &choice, &word, &profile, &network, &invitation, &logLevel, &helmsor, &odd});
    reports({&name, &running, &lines});
  }
  void execute(StatusCodeResultField& status) override {
    ++executed;
    if (result.code() != 0) status.set(result);
  }

  StringParam text{"text", Need::optional};
  IntParam number{"number", Need::optional, 50};
  BoolParam choice{"choice", Need::optional, true};
  SingleWordParam word{"word"};
  OptionalProfileParam profile{Show::hidden, "initial"};
  OptionalNetworkParam network;
  OptionalActivationParam invitation;
  OptionalLogLevelParam logLevel;
  HelmsorParam helmsor{Need::optional};
  OddParam odd;

  StringResult name{"name"};
  BoolResult running{"running"};
  StringVectorResultField lines{"_lines"};

  int executed = 0;
  Status result;
};

// A command with three required parameters.
class Demanding : public RavctlCommandInstance {
 public:
  Demanding() : RavctlCommandInstance("demanding") { takes({&first, &optional, &second, &third}); }
  void execute(StatusCodeResultField& status) override { status.set(status::success); }
  StringParam first{"first", Need::required};
  StringParam optional{"optional", Need::optional};
  HelmsorParam second{Need::required};
  IntParam third{"third", Need::required, 1};
};

// The text "null" means no object at all.
Status bindJson(RavctlCommandInstance& command, const std::string& text) {
  if (text == "null") return bind_json_args(command, nullptr);
  const ScopedJson args(json::parse(text.c_str()));
  EXPECT_TRUE(json::isObject(args.get())) << text;
  return bind_json_args(command, args.get());
}

jsObject* arrayOf(const Words& words) {
  jsObject* array = json::makeArray();
  for (const std::string& word : words) json::append(array, json::makeString(word));
  return array;
}

Status bindWords(RavctlCommandInstance& command, const Words& words, std::size_t consumed = 2) {
  const ScopedJson array(arrayOf(words));
  return bindCommandWords(command, array.get(), consumed);
}

// Returns the names of the output modes that are set, each followed by a blank.
std::string modesOf(const OutputMode& mode) {
  return std::string(mode.quiet ? "quiet " : "") + (mode.verbose ? "verbose " : "") + (mode.json ? "json " : "") +
         (mode.text ? "text " : "");
}

void expectNothingBound(const RavctlCommandInstance& command) {
  for (const InputParamBase* param : command.params()) EXPECT_FALSE(param->hasValue()) << param->name();
}

void expectInvalid(const Status& bound, const std::string& details) {
  EXPECT_THAT(bound, HasCode(status::invalidArgument));
  EXPECT_EQ(bound.details(), details);
  EXPECT_EQ(bound.context(), "bind_json_args");
}

// --- The base class of commands

TEST(RavctlCommandInstance, ListsTheStandardParametersAndTheStatusFirst) {
  const Example command;
  Words params;
  for (const InputParamBase* param : command.params()) params.push_back(param->name());
  EXPECT_EQ(params, (Words{"auth", "requestID", "output", "text", "number", "choice", "word", "profile", "network",
                           "invitation", "log_level", "helmsor", "odd"}));
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(command.params()[i]->isHidden());
    EXPECT_FALSE(command.params()[i]->isRequired());
  }
  EXPECT_STREQ(command.params()[0]->typeDescription(), "auth string");
  for (std::size_t i = 1; i < 3; ++i) {
    EXPECT_STREQ(command.params()[i]->typeDescription(), "");
    std::string form = "output=";
    command.params()[i]->appendValueForm(form);
    EXPECT_EQ(form, "output=string");
  }

  Words results;
  for (const ResultParamBase* field : command.results()) results.push_back(field->name());
  EXPECT_EQ(results, (Words{"status", "name", "running", "_lines"}));
  EXPECT_EQ(command.results()[0], &command.status());
}

TEST(OutputMode, TheLastWordOfEachPairWins) {
  const auto modesAfter = [](const Words& words) {
    Example command;
    for (const std::string& word : words) EXPECT_TRUE(command.mode().take(word));
    return modesOf(command.mode());
  };
  EXPECT_EQ(modesAfter({}), "");
  EXPECT_EQ(modesAfter({"--quiet"}), "quiet ");
  EXPECT_EQ(modesAfter({"--verbose"}), "verbose ");
  EXPECT_EQ(modesAfter({"--json"}), "json ");
  EXPECT_EQ(modesAfter({"--text"}), "text ");
  EXPECT_EQ(modesAfter({"--quiet", "--verbose"}), "verbose ");
  EXPECT_EQ(modesAfter({"--verbose", "--quiet"}), "quiet ");
  EXPECT_EQ(modesAfter({"--json", "--text"}), "text ");
  EXPECT_EQ(modesAfter({"--text", "--json"}), "json ");
  EXPECT_EQ(modesAfter({"--quiet", "--json"}), "quiet json ");
  EXPECT_EQ(modesAfter({"--text", "--verbose", "--json", "--quiet", "--quiet"}), "quiet json ");
}

TEST(OutputMode, OtherWordsChangeNothing) {
  for (const char* word : {"", "-", "--", "--Quiet", "--QUIET", "-quiet", "quiet", "--quiet ", "--quiets", "--quie",
                           "--quiet=true", "--help"}) {
    OutputMode mode;
    mode.verbose = true;
    EXPECT_FALSE(mode.take(word)) << word;
    EXPECT_EQ(modesOf(mode), "verbose ") << word;
  }
}

// --- Binding JSON arguments

TEST(BindJsonArgs, BindsEachMemberToTheParameterWithItsKey) {
  Example command;
  const Status bound =
      bindJson(command, R"({"command_name":["x","y"],"text":"a","number":3.9,"choice":false,"word":"true",)"
                        R"("profile":"p","network":"eth0","invitation":"i","log_level":"critical",)"
                        R"("helmsor":"h:1","auth":"who","requestID":"7","output":"o"})");
  EXPECT_THAT(bound, HasCode(status::success));
  EXPECT_EQ(bound.details(), "");
  EXPECT_EQ(bound.context(), "");
  EXPECT_EQ(command.text.value(), "a");
  EXPECT_EQ(command.number.value(), 3);
  EXPECT_FALSE(command.choice.value());
  EXPECT_TRUE(command.word.isPresent());
  EXPECT_EQ(command.profile.value(), "p");
  EXPECT_EQ(command.network.value(), "eth0");
  EXPECT_EQ(command.invitation.value(), "i");
  EXPECT_EQ(command.logLevel.value(), "fatal");
  EXPECT_EQ(command.helmsor.host(), "h");
  EXPECT_EQ(command.helmsor.port(), 1);
  for (const InputParamBase* param : command.params()) EXPECT_EQ(param->hasValue(), param != &command.odd);
}

TEST(BindJsonArgs, AnObjectWithoutParametersIsSuccessIfNothingIsRequired) {
  for (const char* args :
       {"null", "{}", R"({"command_name":null})", R"({"command_name":7})", R"({"command_name":{"a":[]}})"}) {
    SCOPED_TRACE(args);
    Example command;
    EXPECT_THAT(bindJson(command, args), HasCode(status::success));
    EXPECT_EQ(command.profile.value(), "initial");
    expectNothingBound(command);
  }
}

TEST(BindJsonArgs, ARefusedMemberIsAnInvalidArgumentWithDetailsThatSayWhy) {
  const struct {
    const char *why, *args, *details;
  } cases[] = {
      {"an unknown key", R"({"force":true})", "disregarding unused input: force"},
      {"an unknown single word", R"({"force":"<single-word-command-present>"})", "disregarding unused input: force"},
      {"keys are compared exactly", R"({"Text":"x"})", "disregarding unused input: Text"},
      {"a hidden key of another parameter", R"({"sys-impl":"null"})", "disregarding unused input: sys-impl"},
      {"the member \"method\" of a request", R"({"method":"list profiles"})", "disregarding unused input: method"},
      {"single word: text", R"({"word":"maybe"})", R"(illegal single-word input: "maybe")"},
      {"single word: number", R"({"word":1})", "illegal single-word input: 1"},
      {"single word: fraction", R"({"word":1.5})", "illegal single-word input: 1.500000"},
      {"single word: boolean", R"({"word":true})", "illegal single-word input: true"},
      {"single word: null", R"({"word":null})", "illegal single-word input: null"},
      {"single word: array", R"({"word":["a",1]})", R"(illegal single-word input: [ "a", 1 ])"},
      {"a text parameter without a value", R"({"text":"<single-word-command-present>"})", "parameter value required"},
      {"a text parameter with the absent marker", R"({"profile":"<single-word-command-absent>"})",
       "parameter value required"},
      {"an integer parameter without a value", R"({"number":"<single-word-command-present>"})",
       "parameter value required"},
      {"integer: text", R"({"number":"1x"})", R"(illegal value presented: "1x")"},
      {"integer: boolean", R"({"number":true})", "illegal value presented: true"},
      {"integer: null", R"({"number":null})", "illegal value presented: null"},
      {"integer: too large", R"({"number":2147483648})", "illegal value presented: 2147483648.000000"},
      {"integer: array", R"({"number":[]})", "illegal value presented: [ ]"},
      {"boolean: 1", R"({"choice":"1"})", R"(illegal value presented: "1")"},
      {"boolean: number", R"({"choice":1})", "illegal value presented: 1"},
      {"boolean: empty", R"({"choice":""})", R"(illegal value presented: "")"},
      {"text: number", R"({"text":5})", "illegal value presented: 5"},
      {"text: boolean", R"({"text":false})", "illegal value presented: false"},
      {"text: object", R"({"text":{"a":null}})", R"(illegal value presented: { "a":null })"},
      {"helmsor: empty", R"({"helmsor":""})", R"(illegal value presented: "")"},
      {"helmsor: a scheme alone", R"({"helmsor":"https://"})", R"(illegal value presented: "https://")"},
      {"values are printed as JSON", R"({"choice":"a\"b\n%n\\"})", R"(illegal value presented: "a\"b\n%n\")"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Example command;
    expectInvalid(bindJson(command, c.args), c.details);
  }
}

TEST(BindJsonArgs, TheFirstFailureEndsTheBindingAndEarlierValuesRemain) {
  Example command;
  expectInvalid(bindJson(command, R"({"text":"before","force":1,"number":"x","network":"after"})"),
                "disregarding unused input: force");
  EXPECT_EQ(command.text.value(), "before");
  EXPECT_EQ(command.network.value(), "auto");
  EXPECT_FALSE(command.network.hasValue());
}

TEST(BindJsonArgs, TheFirstMissingParameterInDeclarationOrderIsReportedUnlessAMemberIsBad) {
  const auto expectDetails = [](const char* args, const char* details) {
    SCOPED_TRACE(args);
    Demanding command;
    expectInvalid(bindJson(command, args), details);
  };
  expectDetails("null", "illegal or missing parameter: first");
  expectDetails("{}", "illegal or missing parameter: first");
  expectDetails(R"({"third":1})", "illegal or missing parameter: first");
  expectDetails(R"({"first":"x","optional":"y"})", "illegal or missing parameter: helmsor");
  expectDetails(R"({"helmsor":"h","first":""})", "illegal or missing parameter: third");
  expectDetails(R"({"optional":null})", "illegal value presented: null");
  Demanding command;
  EXPECT_THAT(bindJson(command, R"({"helmsor":"h","first":"","third":"2"})"), HasCode(status::success));
}

// Copies every log message.
class RecordKeeper : public BasicLog::LogMessageProcessor {
 public:
  explicit RecordKeeper(std::vector<BasicLog::LogMessage>& records) : records_(records) {}
  void process(std::unique_ptr<const BasicLog::LogMessage>& message) override { records_.push_back(*message); }

 private:
  std::vector<BasicLog::LogMessage>& records_;
};

// Binds a value to the parameter `odd`, whose failure is logged, and returns the log messages.
std::vector<BasicLog::LogMessage> bindOdd() {
  std::vector<BasicLog::LogMessage> records;
  BasicLog::setSyncProcessor(new RecordKeeper(records));
  Example command;
  const Status bound = bindJson(command, R"({"odd":"x"})");
  BasicLog::setSyncProcessor(nullptr);
  EXPECT_THAT(bound, HasCode(status::invalidArgument));
  EXPECT_EQ(bound.details(), "");
  EXPECT_EQ(bound.context(), "");
  EXPECT_FALSE(command.odd.hasValue());
  return records;
}

TEST(BindJsonArgs, AParameterThatIsNeitherWordNorValueFailsWithALogEntry) {
  const std::vector<BasicLog::LogMessage> records = bindOdd();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].level, BasicLog::Level::error);
  EXPECT_EQ(records[0].logger(), "control");
  EXPECT_EQ(records[0].text(), "invalid param");
  EXPECT_EQ(records[0].file(), "CommandCore");
  EXPECT_EQ(records[0].function(), "bind_json_args");
  ASSERT_EQ(records[0].parameters().size(), 1U);
  EXPECT_EQ(records[0].parameters()[0].key, "param");
  EXPECT_EQ(records[0].parameters()[0].value, "odd");

  BasicLog::Logger& logger = BasicLog::getLogger("control");
  const BasicLog::Level before = logger.threshold();
  logger.setThreshold(BasicLog::Level::fatal);
  EXPECT_EQ(bindOdd().size(), 0U) << "it fails without a log entry if the level is not logged";
  logger.setThreshold(before);
}

// --- Binding command words

TEST(BindCommandWords, WordsAfterTheNameAreParameters) {
  Example command;
  const Status bound = bindWords(command, {"service", "start", "text=a=b", "number= 10 ", "choice=YES", "word",
                                           "profile=", "helmsor=10.0.0.1:443", "auth=x", "requestID=", "output=%n"});
  EXPECT_THAT(bound, HasCode(status::success));
  EXPECT_EQ(bound.details(), "");
  EXPECT_EQ(command.text.value(), "a=b");
  EXPECT_EQ(command.number.value(), 10);
  EXPECT_TRUE(command.choice.value());
  EXPECT_TRUE(command.word.isPresent());
  EXPECT_EQ(command.profile.value(), "");
  EXPECT_TRUE(command.profile.hasValue());
  EXPECT_EQ(command.helmsor.host(), "10.0.0.1");
  EXPECT_EQ(command.helmsor.port(), 443);
}

TEST(BindCommandWords, ARefusedWordFailsWithDetailsThatSayWhy) {
  const struct {
    const char *why, *word, *details;
  } cases[] = {
      {"an unknown single word", "now", "disregarding unused input: now"},
      {"an unknown key", "force=1", "disregarding unused input: force"},
      {"a text parameter without a value", "profile", "parameter value required"},
      {"a marker text given as a value", "text=<single-word-command-present>", "parameter value required"},
      {"an empty helmsor", "helmsor=", R"(illegal value presented: "")"},
      {"a scheme without an address", "helmsor=http:///", R"(illegal value presented: "http:///")"},
      {"a text that is not a number", "number=ten", R"(illegal value presented: "ten")"},
      {"a text that is not a boolean", "choice=1", R"(illegal value presented: "1")"},
      {"a word with an illegal value", "word=maybe", R"(illegal single-word input: "maybe")"},
      {"an output-mode word with a value is an unknown key", "--quiet=true", "disregarding unused input: --quiet"},
      {"an output-mode word in another letter case", "--JSON", "disregarding unused input: --JSON"},
      {"printf conversions are plain text", "%n%s%x", "disregarding unused input: %n%s%x"},
      {"printf conversions in a value are plain text", "number=%n%s", R"(illegal value presented: "%n%s")"},
      {"bytes above 127", "\xff\x80=x", "disregarding unused input: \xff\x80"},
      {"a blank", " ", "disregarding unused input:  "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Example command;
    expectInvalid(bindWords(command, {"service", "start", c.word}), c.details);
  }
}

TEST(BindCommandWords, TheTextOfASingleWordDecidesIfItIsPresent) {
  const auto expectWord = [](const Words& words, bool present, bool given = true) {
    SCOPED_TRACE(testing::PrintToString(words));
    Example command;
    EXPECT_THAT(bindWords(command, words, 0), HasCode(status::success));
    EXPECT_EQ(command.word.isPresent(), present);
    EXPECT_EQ(command.word.hasValue(), given);
  };
  expectWord({}, false, false);
  expectWord({"word"}, true);
  expectWord({"word=true"}, true);
  expectWord({"word=TRUE"}, true);
  expectWord({"word=false"}, false);
  expectWord({"word="}, false);
  expectWord({"word=<single-word-command-present>"}, true);
  expectWord({"word=<single-word-command-absent>"}, false);
  expectWord({"word", "word=false"}, false);
  expectWord({"word=false", "word"}, true);
}

TEST(BindCommandWords, ARepeatedKeyBindsItsLastValueAtItsFirstPosition) {
  Example command;
  EXPECT_THAT(bindWords(command, {"a", "b", "text=1", "text=2", "text=3"}), HasCode(status::success));
  EXPECT_EQ(command.text.value(), "3");
  // `number` is bound before `choice`, at its first position, but with its last value, so its failure comes first.
  Example second;
  EXPECT_EQ(bindWords(second, {"a", "b", "number=1", "choice=x", "number=y"}).details(),
            R"(illegal value presented: "y")");
  // A first value that is bad does not matter if the last one is good.
  Example third;
  EXPECT_THAT(bindWords(third, {"a", "b", "number=x", "number=1"}), HasCode(status::success));
  EXPECT_EQ(third.number.value(), 1);
}

TEST(BindCommandWords, WordsWithAnEmptyNameAreSilentlyAccepted) {
  Example command;
  EXPECT_THAT(bindWords(command, {"a", "b", "", "=x", "=", "command_name=x", "command_name"}),
              HasCode(status::success));
  expectNothingBound(command);
}

TEST(BindCommandWords, AWordThatIsNotAStringFailsAtOnce) {
  for (jsObject* word : {json::makeNull(), json::makeBoolean(true), json::makeNumber(5), json::makeArray()}) {
    Example command;
    const ScopedJson words(arrayOf({"a", "b", "--verbose", "text=x"}));
    json::append(words.get(), word);
    json::append(words.get(), json::makeString("--quiet"));
    const Status bound = bindCommandWords(command, words.get(), 2);
    EXPECT_THAT(bound, HasCode(status::invalidArgument));
    EXPECT_EQ(bound.details(), "parameter not a string");
    EXPECT_EQ(bound.context(), "binding input args");
    EXPECT_TRUE(command.mode().verbose);
    EXPECT_FALSE(command.text.hasValue());
  }
}

TEST(BindCommandWords, NamingWordsAreNotParametersButSetTheModeAfterTheOtherWords) {
  const struct {
    const char* why;
    Words words;
    std::size_t consumed;
    const char *modes, *text;
  } cases[] = {
      {"no words", {}, 0, "", ""},
      {"naming words are not bound", {"profile", "create", "text=x"}, 3, "", ""},
      {"mode words are not bound", {"a", "b", "--json", "text=x", "--text", "--verbose"}, 2, "verbose text ", "x"},
      {"a naming word sets the mode last", {"profile", "details", "--json", "--text"}, 3, "json ", ""},
      {"the second of two words too", {"json", "--quiet", "--verbose"}, 2, "quiet ", ""},
      {"the first word too", {"--text", "details", "--json"}, 2, "text ", ""},
      {"a word behind the naming words does not", {"usage", "--quiet", "--verbose"}, 1, "verbose ", ""},
      {"all words are naming words if there are too few", {"text=x", "--json"}, 3, "json ", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Example command;
    EXPECT_THAT(bindWords(command, c.words, c.consumed), HasCode(status::success));
    EXPECT_EQ(modesOf(command.mode()), c.modes);
    EXPECT_EQ(command.text.value(), c.text);
    EXPECT_EQ(command.text.hasValue(), *c.text != '\0');
  }
}

TEST(BindCommandWords, NamingWordsDoNotSetTheModeIfAWordIsNotAString) {
  Example command;
  const ScopedJson words(arrayOf({"profile", "details", "--json"}));
  json::append(words.get(), json::makeNull());
  EXPECT_THAT(bindCommandWords(command, words.get(), 3), HasCode(status::invalidArgument));
  EXPECT_EQ(modesOf(command.mode()), "");
}

TEST(BindCommandWords, AcceptsManyAndVeryLongWords) {
  const std::string huge(1'000'000, 'x');
  Words words = {"a", "b"}, keys = words;
  for (int i = 0; i < 10'000; ++i) {
    words.push_back("text=" + std::to_string(i));
    keys.push_back("key" + std::to_string(i));
  }
  Example command;
  EXPECT_THAT(bindWords(command, words), HasCode(status::success));
  EXPECT_EQ(command.text.value(), "9999");
  EXPECT_EQ(bindWords(command, keys).details(), "disregarding unused input: key0");
  EXPECT_THAT(bindWords(command, keys, keys.size()), HasCode(status::success));
  EXPECT_THAT(bindWords(command, {"a", "b", "text=" + huge}), HasCode(status::success));
  EXPECT_EQ(command.text.value(), huge);
  EXPECT_EQ(bindWords(command, {"a", "b", huge}).details(), "disregarding unused input: " + huge);
}

// --- Output

// Runs a command that sets this status, and returns its output after a line "before". Code 0 sets none.
Lines outputOf(const Status& result, bool isVerbose = false) {
  Example command;
  command.name.set("lab");
  command.lines.list() = {"%s", "second"};
  command.mode().verbose = isVerbose;
  command.result = result;
  command.run();
  EXPECT_EQ(command.executed, 1);
  Lines lines = {"before"};
  renderOutput(command, lines);
  return lines;
}

TEST(RenderOutput, ASuccessRendersAllFieldsInOrder) {
  const Lines fields = {"before", "name: lab", "running: false", "%s", "second"};
  EXPECT_EQ(outputOf(Status()), fields) << "without mode words there are no status lines";
  EXPECT_EQ(outputOf(Status::of(0x00001002)), fields) << "a note does not change the output";
  EXPECT_EQ(outputOf(Status(), true),
            (Lines{"before", "method: example method", "status_text: success", "status_code: 0x00000001", "name: lab",
                   "running: false", "%s", "second"}));
}

// Returns how many blocks it takes to render a command whose fields are one line each.
std::ptrdiff_t blocksToRenderInto(Lines& lines) {
  Example command;
  command.name.set("x");
  command.lines.list() = {"y"};
  command.run();
  const std::ptrdiff_t before = newBlocksSoFar();
  renderOutput(command, lines);
  EXPECT_EQ(lines, (Lines{"name: x", "running: false", "y"}));
  return newBlocksSoFar() - before;
}

TEST(RenderOutput, TheListOfLinesIsAllocatedOnceIfEachFieldIsOneLine) {
  Lines lines, longList;
  longList.reserve(100);
  EXPECT_EQ(blocksToRenderInto(lines), blocksToRenderInto(longList) + 1);
}

TEST(RenderOutput, AFailureRendersOnlyItsStatus) {
  EXPECT_EQ(outputOf(Status::error(status::invalidArgument, "invalid profile name", "example")),
            (Lines{"before", "status_text: invalid argument (invalid profile name)", "status_code: 0x10000003"}));
  EXPECT_EQ(outputOf(Status::of(0)), (Lines{"before", "status_text: application error", "status_code: 0x12000001"}))
      << "a command that sets no status";
}

}  // namespace
