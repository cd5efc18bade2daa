#include "command/parameters/InputParams.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "json/JsonModel.h"

namespace {

std::string valueFormOf(const InputParamBase& param) {
  std::string text = "key=";
  param.appendValueForm(text);
  return text.substr(4);
}

// --- The kinds of parameters

TEST(InputParams, EveryKindHasItsKeyUsageFormAndType) {
  const StringParam text("text", Need::optional);
  const IntParam number("number", Need::optional, 0);
  const BoolParam choice("choice", Need::optional, false);
  const SingleWordParam word("word");
  const OptionalProfileParam profile;
  const OptionalNetworkParam network;
  const OptionalActivationParam invitation;
  const OptionalLogLevelParam logLevel;
  const AuthParam auth;
  const HelmsorParam helmsor(Need::optional);
  const struct {
    const InputParamBase& param;
    const char *name, *valueForm, *type;
  } cases[] = {
      {text, "text", "string", "string"},
      {number, "number", "integer", "integer"},
      {choice, "choice", "boolean", "boolean"},
      {word, "word", "", "single word"},
      {profile, "profile", "string", "profile name"},
      {network, "network", "interface | auto", "network interface"},
      {invitation, "invitation", "invitation", "invitation code"},
      {logLevel, "log_level", "info | warn | error | debug | trace", "log level"},
      {auth, "auth", "auth string", "auth string"},
      {helmsor, "helmsor", "addr:port", "helmsor address, in host:port form"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.param.name(), c.name);
    EXPECT_EQ(valueFormOf(c.param), c.valueForm);
    EXPECT_STREQ(c.param.typeDescription(), c.type);
    EXPECT_FALSE(c.param.isRequired());
    EXPECT_FALSE(c.param.isHidden());
    EXPECT_FALSE(c.param.hasValue());
    EXPECT_TRUE(c.param.isSatisfied());
    EXPECT_EQ(c.param.isSingleWord(), &c.param == &word);
    EXPECT_EQ(c.param.takesValue(), &c.param != &word);
  }
}

TEST(InputParams, DefaultsDoNotCountAsGivenValues) {
  const OptionalNetworkParam network;
  EXPECT_EQ(network.value(), "auto");
  EXPECT_FALSE(network.hasValue());
  const OptionalLogLevelParam logLevel;
  EXPECT_EQ(logLevel.value(), "info");
  EXPECT_FALSE(logLevel.hasValue());
  const HelmsorParam helmsor(Need::optional);
  EXPECT_EQ(helmsor.host(), "");
  EXPECT_EQ(helmsor.port(), 8096);
  EXPECT_FALSE(helmsor.hasValue());
  EXPECT_EQ(OptionalActivationParam().value(), "");
  EXPECT_EQ(AuthParam().value(), "");
  EXPECT_EQ(OptionalProfileParam().value(), "");
  EXPECT_EQ(StringParam("x", Need::optional).value(), "");
  EXPECT_FALSE(SingleWordParam("x").isPresent());
  EXPECT_TRUE(BoolParam("x", Need::optional, true).value());
  EXPECT_FALSE(BoolParam("x", Need::optional, false).value());
  EXPECT_EQ(IntParam("x", Need::optional, 50).value(), 50);
}

TEST(InputParams, AnInitialValueDoesNotCountAsAGivenValue) {
  const StringParam required("x", Need::required, Show::hidden, "initial");
  EXPECT_EQ(required.value(), "initial");
  EXPECT_FALSE(required.hasValue());
  EXPECT_FALSE(required.isSatisfied());
  const OptionalProfileParam profile(Show::hidden, "lab");
  EXPECT_EQ(profile.value(), "lab");
  EXPECT_FALSE(profile.hasValue());
}

TEST(InputParams, OnlyAnAcceptedValueSatisfiesARequiredParameter) {
  HelmsorParam helmsor(Need::required);
  EXPECT_TRUE(helmsor.isRequired());
  EXPECT_FALSE(helmsor.isSatisfied());
  EXPECT_FALSE(helmsor.setFromText(""));
  EXPECT_FALSE(helmsor.isSatisfied());
  EXPECT_TRUE(helmsor.setFromText("h"));
  EXPECT_TRUE(helmsor.isSatisfied());

  SingleWordParam word("word", Need::required);
  EXPECT_FALSE(word.isSatisfied());
  EXPECT_TRUE(word.setFromText("false"));
  EXPECT_TRUE(word.isSatisfied());
}

TEST(InputParams, TheConstructorDecidesWhetherAParameterIsHidden) {
  EXPECT_TRUE(StringParam("x", Need::optional, Show::hidden).isHidden());
  EXPECT_TRUE(IntParam("x", Need::optional, 0, Show::hidden).isHidden());
  EXPECT_TRUE(BoolParam("x", Need::optional, true, Show::hidden).isHidden());
  EXPECT_TRUE(SingleWordParam("x", Need::optional, Show::hidden).isHidden());
  EXPECT_TRUE(OptionalProfileParam(Show::hidden).isHidden());
  EXPECT_TRUE(AuthParam(Show::hidden).isHidden());
}

TEST(InputParams, TextParametersStoreAnyTextUnchanged) {
  const std::string texts[] = {"", " ", "a=b", "%n%s", "\xff\x80", std::string("a\0b", 3), std::string(100'000, 'x')};
  for (const std::string& text : texts) {
    SCOPED_TRACE(text.substr(0, 20));
    StringParam plain("x", Need::required);
    OptionalProfileParam profile;
    OptionalNetworkParam network;
    OptionalActivationParam invitation;
    AuthParam auth;
    for (TextParam* param :
         {static_cast<TextParam*>(&plain), static_cast<TextParam*>(&profile), static_cast<TextParam*>(&network),
          static_cast<TextParam*>(&invitation), static_cast<TextParam*>(&auth)}) {
      EXPECT_TRUE(param->setFromText(text));
      EXPECT_EQ(param->value(), text);
      EXPECT_TRUE(param->hasValue());
    }
  }
}

TEST(IntParam, AcceptsOnlyTrimmedDecimal32BitNumbers) {
  const struct {
    const char* why;
    std::string input;
    bool accepted;
    std::int32_t value;
  } cases[] = {
      {"digits", "10", true, 10},
      {"zero", "0", true, 0},
      {"a minus sign", "-7", true, -7},
      {"a plus sign", "+7", true, 7},
      {"blanks around the number", " \t42 \n", true, 42},
      {"leading zeros", "007", true, 7},
      {"many leading zeros", std::string(40, '0') + "9", true, 9},
      {"the largest number", "2147483647", true, 2147483647},
      {"the smallest number", "-2147483648", true, std::numeric_limits<std::int32_t>::min()},
      {"one above the largest number", "2147483648", false, 50},
      {"one below the smallest number", "-2147483649", false, 50},
      {"a number far too large", std::string(400, '9'), false, 50},
      {"a 64-bit number that would wrap to 10", "4294967306", false, 50},
      {"the empty text", "", false, 50},
      {"only blanks", "  ", false, 50},
      {"only a sign", "-", false, 50},
      {"two signs", "--1", false, 50},
      {"a blank behind the sign", "- 1", false, 50},
      {"a letter behind the number", "10x", false, 50},
      {"a fraction", "1.0", false, 50},
      {"hexadecimal", "0x10", false, 50},
      {"a thousands separator", "1,000", false, 50},
      {"two numbers", "1 2", false, 50},
      {"a zero byte behind the number", std::string("1\0x", 3), false, 50},
      {"a marker text", "<single-word-command-present>", false, 50},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    IntParam param("max_lines", Need::optional, 50);
    EXPECT_EQ(param.setFromText(c.input), c.accepted);
    EXPECT_EQ(param.hasValue(), c.accepted);
    EXPECT_EQ(param.value(), c.value);
  }
}

TEST(IntParam, AcceptsIntegersButNoBooleans) {
  IntParam param("x", Need::required, 1);
  EXPECT_FALSE(param.setFromBoolean(true));
  EXPECT_FALSE(param.setFromOther());
  EXPECT_FALSE(param.hasValue());
  EXPECT_TRUE(param.setFromInteger(-3));
  EXPECT_EQ(param.value(), -3);
  EXPECT_TRUE(param.isSatisfied());
}

TEST(BoolParam, AcceptsSixWordsInAnyLetterCase) {
  const struct {
    std::string input;
    bool accepted, value;
  } cases[] = {
      {"true", true, true},    {"yes", true, true},    {"on", true, true},      {"YES", true, true},
      {"True", true, true},    {"oN", true, true},     {"false", true, false},  {"no", true, false},
      {"off", true, false},    {"NO", true, false},    {"False", true, false},  {"oFF", true, false},
      {"1", false, false},     {"0", false, false},    {"", false, false},      {" true", false, false},
      {"true ", false, false}, {"tru", false, false},  {"truey", false, false}, {"y", false, false},
      {"n", false, false},     {"nein", false, false}, {"2", false, false},     {std::string("on\0", 3), false, false},
  };
  for (const auto& c : cases) {
    for (const bool initial : {true, false}) {
      SCOPED_TRACE(c.input + (initial ? " over true" : " over false"));
      BoolParam param("x", Need::optional, initial);
      EXPECT_EQ(param.setFromText(c.input), c.accepted);
      EXPECT_EQ(param.hasValue(), c.accepted);
      EXPECT_EQ(param.value(), c.accepted ? c.value : initial);
    }
  }
}

TEST(BoolParam, AcceptsBooleansButNoIntegers) {
  BoolParam param("x", Need::required, true);
  EXPECT_FALSE(param.setFromInteger(0));
  EXPECT_FALSE(param.setFromOther());
  EXPECT_FALSE(param.hasValue());
  EXPECT_TRUE(param.setFromBoolean(false));
  EXPECT_FALSE(param.value());
  EXPECT_TRUE(param.isSatisfied());
}

TEST(SingleWordParam, ItsValueMakesItPresentOrAbsent) {
  const struct {
    std::string input;
    bool accepted, present;
  } cases[] = {
      {"<single-word-command-present>", true, true},
      {"true", true, true},
      {"TRUE", true, true},
      {"True", true, true},
      {"<single-word-command-absent>", true, false},
      {"", true, false},
      {"false", true, false},
      {"FALSE", true, false},
      {"<Single-word-command-present>", false, false},
      {"<SINGLE-WORD-COMMAND-ABSENT>", false, false},
      {"yes", false, false},
      {"on", false, false},
      {"1", false, false},
      {"true ", false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    SingleWordParam param("full");
    EXPECT_EQ(param.setFromText(c.input), c.accepted);
    EXPECT_EQ(param.hasValue(), c.accepted);
    EXPECT_EQ(param.isPresent(), c.present);
  }
}

TEST(SingleWordParam, ARejectedValueLeavesItUnchanged) {
  SingleWordParam param("full");
  ASSERT_TRUE(param.setFromText("true"));
  EXPECT_FALSE(param.setFromText("maybe"));
  EXPECT_TRUE(param.isPresent());
  EXPECT_FALSE(param.setFromBoolean(false));
  EXPECT_FALSE(param.setFromInteger(0));
  EXPECT_TRUE(param.isPresent());
}

TEST(HelmsorParam, SplitsAtTheFirstColon) {
  const struct {
    const char* why;
    std::string input;
    bool accepted;
    std::string host;
    std::int32_t port;
  } cases[] = {
      {"only a host", "10.0.0.1", true, "10.0.0.1", 8096},
      {"host and port", "10.0.0.1:443", true, "10.0.0.1", 443},
      {"no digits behind the colon", "h:", true, "h", 0},
      {"letters for a port", "h:https", true, "h", 0},
      {"digits, then letters", "h:443x", true, "h", 443},
      {"a blank before the digits", "h: 443", true, "h", 0},
      {"a minus sign", "h:-1", true, "h", 0},
      {"a plus sign", "h:+1", true, "h", 0},
      {"two colons", "h:1:2", true, "h", 1},
      {"no host", ":443", true, "", 443},
      {"only a colon", ":", true, "", 0},
      {"a scheme is not removed", "https://h:1", true, "https", 0},
      {"the largest port", "h:65535", true, "h", 65535},
      {"a number above the largest port", "h:65536", true, "h", 65536},
      {"blanks are not removed", " h ", true, " h ", 8096},
      {"the empty text", "", false, "", 8096},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    HelmsorParam param(Need::optional);
    EXPECT_EQ(param.setFromText(c.input), c.accepted);
    EXPECT_EQ(param.hasValue(), c.accepted);
    EXPECT_EQ(param.host(), c.host);
    EXPECT_EQ(param.port(), c.port);
  }
}

TEST(HelmsorParam, AHugePortStaysAbove65535) {
  for (const char* text : {"h:2147483647", "h:2147483648", "h:4294967739", "h:18446744073709552059",
                           "h:99999999999999999999999999999999999999999"}) {
    SCOPED_TRACE(text);
    HelmsorParam param(Need::optional);
    EXPECT_TRUE(param.setFromText(text));
    EXPECT_GT(param.port(), 65535);
  }
}

TEST(HelmsorParam, TheEmptyTextClearsHostAndPort) {
  HelmsorParam param(Need::optional);
  ASSERT_TRUE(param.setFromText("h:1"));
  EXPECT_FALSE(param.setFromText(""));
  EXPECT_EQ(param.host(), "");
  EXPECT_EQ(param.port(), 8096);
}

TEST(OptionalLogLevelParam, StoresTheNameOfTheLevelAndKeepsOtherText) {
  const struct {
    const char *input, *stored;
  } cases[] = {
      {"info", "info"},       {"INFO", "info"},
      {"debug", "debug"},     {" debug ", "debug"},
      {"trace", "trace"},     {"warn", "warning"},
      {"Warning", "warning"}, {"err", "error"},
      {"error", "error"},     {"notice", "notice"},
      {"fatal", "fatal"},     {"critical", "fatal"},
      {"PANIC", "fatal"},     {"[error] disk full", "error"},
      {"W~", "warning"},      {" e~", "error"},
      {"verbose", "verbose"}, {"warnings", "warnings"},
      {" Loud ", " Loud "},   {"", ""},
      {"  ", "  "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    OptionalLogLevelParam param;
    EXPECT_TRUE(param.setFromText(c.input));
    EXPECT_EQ(param.value(), c.stored);
    EXPECT_TRUE(param.hasValue());
  }
}

TEST(InputParams, TextParametersRejectIntegersAndBooleans) {
  StringParam text("x", Need::optional);
  HelmsorParam helmsor(Need::optional);
  OptionalLogLevelParam logLevel;
  for (InputParamBase* param : {static_cast<InputParamBase*>(&text), static_cast<InputParamBase*>(&helmsor),
                                static_cast<InputParamBase*>(&logLevel)}) {
    EXPECT_FALSE(param->setFromInteger(1));
    EXPECT_FALSE(param->setFromBoolean(true));
    EXPECT_FALSE(param->setFromOther());
    EXPECT_FALSE(param->hasValue());
  }
}

TEST(NamedValueBinder, RejectsEveryKind) {
  NamedValueBinder slot("slot", Need::required, Show::hidden);
  EXPECT_EQ(slot.name(), "slot");
  EXPECT_TRUE(slot.isRequired());
  EXPECT_TRUE(slot.isHidden());
  EXPECT_FALSE(slot.setFromText("x"));
  EXPECT_FALSE(slot.setFromInteger(1));
  EXPECT_FALSE(slot.setFromBoolean(true));
  EXPECT_FALSE(slot.setFromOther());
  EXPECT_FALSE(slot.hasValue());
}

// --- Lists

TEST(FindParam, ReturnsTheFirstParameterWithExactlyThatKey) {
  StringParam first("key", Need::optional);
  StringParam other("Key", Need::optional);
  StringParam second("key", Need::optional);
  const InputParamList params = {&first, &other, &second};
  EXPECT_EQ(findParam(params, "key"), &first);
  EXPECT_EQ(findParam(params, "Key"), &other);
  EXPECT_EQ(findParam(params, "KEY"), nullptr);
  EXPECT_EQ(findParam(params, "ke"), nullptr);
  EXPECT_EQ(findParam(params, "keys"), nullptr);
  EXPECT_EQ(findParam(params, ""), nullptr);
  EXPECT_EQ(findParam({}, "key"), nullptr);
}

// --- From JSON

TEST(SetFromJson, ANumberIsTruncatedTowardZeroWithin32Bits) {
  const struct {
    double number;
    bool accepted;
    std::int32_t value;
  } cases[] = {
      {3.9, true, 3},
      {-3.9, true, -3},
      {0.99, true, 0},
      {-0.99, true, 0},
      {2147483647.9, true, 2147483647},
      {-2147483648.9, true, std::numeric_limits<std::int32_t>::min()},
      {2147483648.0, false, 7},
      {-2147483649.0, false, 7},
      {1e300, false, 7},
      {std::numeric_limits<double>::infinity(), false, 7},
      {-std::numeric_limits<double>::infinity(), false, 7},
      {std::nan(""), false, 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.number);
    IntParam param("x", Need::optional, 7);
    const ScopedJson value(json::makeNumber(c.number));
    EXPECT_EQ(setFromJson(param, value.get()), c.accepted);
    EXPECT_EQ(param.hasValue(), c.accepted);
    EXPECT_EQ(param.value(), c.value);
  }
}

TEST(SetFromJson, EachKindGoesToItsSetter) {
  StringParam text("x", Need::optional);
  IntParam number("x", Need::optional, 0);
  BoolParam choice("x", Need::optional, false);
  const ScopedJson string(
      json::makeString(std::string_view("1\0"
                                        "2",
                                        3)));
  EXPECT_TRUE(setFromJson(text, string.get()));
  EXPECT_EQ(text.value(), std::string("1\0"
                                      "2",
                                      3));
  const ScopedJson digits(json::makeString("12"));
  EXPECT_TRUE(setFromJson(number, digits.get()));
  EXPECT_EQ(number.value(), 12);
  EXPECT_FALSE(setFromJson(choice, digits.get()));
  EXPECT_TRUE(setFromJson(choice, json::makeBoolean(true)));
  EXPECT_TRUE(choice.value());
  EXPECT_FALSE(setFromJson(number, json::makeBoolean(true)));
  EXPECT_FALSE(setFromJson(text, json::makeBoolean(true)));
  EXPECT_FALSE(setFromJson(text, json::makeNumber(1)));
  EXPECT_FALSE(setFromJson(choice, json::makeNumber(1)));
}

TEST(SetFromJson, OtherKindsAreRejected) {
  const ScopedJson array(json::makeArray());
  const ScopedJson object(json::makeObject());
  for (const jsObject* value :
       {static_cast<const jsObject*>(nullptr), static_cast<const jsObject*>(json::makeNull()),
        static_cast<const jsObject*>(array.get()), static_cast<const jsObject*>(object.get())}) {
    StringParam text("x", Need::optional);
    EXPECT_FALSE(setFromJson(text, value));
    EXPECT_FALSE(text.hasValue());
  }
}

// --- Parameter words

TEST(SetParameterWord, SplitsAtTheFirstEqualsSign) {
  const struct {
    const char* why;
    std::string word, key, value;
  } cases[] = {
      {"key and value", "name=lab", "name", "lab"},
      {"a second equals sign belongs to the value", "name=a=b", "name", "a=b"},
      {"an empty value", "profile=", "profile", ""},
      {"a single word", "activate", "activate", "<single-word-command-present>"},
      {"a word of blanks", " ", " ", "<single-word-command-present>"},
      {"blanks around the equals sign", "a = b", "a ", " b"},
      {"any bytes", "\xff=\x80%n", "\xff", "\x80%n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const ScopedJson args(json::makeObject());
    setParameterWord(args.get(), c.word);
    ASSERT_EQ(json::memberCount(args.get()), 1U);
    EXPECT_EQ(json::memberName(args.get(), 0), c.key);
    EXPECT_EQ(json::textOf(json::memberValue(args.get(), 0)), c.value);
  }
}

TEST(SetParameterWord, AWordWithAnEmptyNameChangesNothing) {
  const ScopedJson args(json::makeObject());
  for (const char* word : {"", "=", "=x", "=x=y"}) setParameterWord(args.get(), word);
  EXPECT_EQ(json::memberCount(args.get()), 0U);
}

TEST(SetParameterWord, ARepeatedKeyKeepsItsFirstPositionAndItsLastValue) {
  const ScopedJson args(json::makeObject());
  for (const char* word : {"a=1", "b=2", "a", "a=3"}) setParameterWord(args.get(), word);
  ASSERT_EQ(json::memberCount(args.get()), 2U);
  EXPECT_EQ(json::memberName(args.get(), 0), "a");
  EXPECT_EQ(json::textOf(json::memberValue(args.get(), 0)), "3");
  EXPECT_EQ(json::memberName(args.get(), 1), "b");
}

}  // namespace
