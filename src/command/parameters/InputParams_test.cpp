#include "command/parameters/InputParams.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

#include "json/JsonParser.h"

namespace {

std::string valueFormOf(const InputParamBase& param) {
  std::string text = "key=";
  param.appendValueForm(text);
  return text.substr(4);
}

// --- The kinds of parameters

TEST(InputParams, EveryKindHasItsKeyUsageFormAndType) {
  const struct {
    const InputParamBase& param;
    const char *name, *valueForm, *type;
  } cases[] = {
      {StringParam("text", Need::optional), "text", "string", "string"},
      {IntParam("number", Need::optional, 0), "number", "integer", "integer"},
      {BoolParam("choice", Need::optional, false), "choice", "boolean", "boolean"},
      {SingleWordParam("word"), "word", "", "single word"},
      {OptionalProfileParam(), "profile", "string", "profile name"},
      {OptionalNetworkParam(), "network", "interface | auto", "network interface"},
      {OptionalActivationParam(), "invitation", "invitation", "invitation code"},
      {OptionalLogLevelParam(), "log_level", "info | warn | error | debug | trace", "log level"},
      {AuthParam(), "auth", "auth string", "auth string"},
      {HelmsorParam(Need::optional), "helmsor", "addr:port", "helmsor address, in host:port form"},
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
    EXPECT_EQ(c.param.isSingleWord(), c.param.name() == "word");
    EXPECT_EQ(c.param.takesValue(), c.param.name() != "word");
  }
}

TEST(InputParams, DefaultAndInitialValuesDoNotCountAsGivenValues) {
  const struct {
    const char* why;
    const TextParam& param;
    const char* value;
  } texts[] = {
      {"a network", OptionalNetworkParam(), "auto"},
      {"a log level", OptionalLogLevelParam(), "info"},
      {"an invitation", OptionalActivationParam(), ""},
      {"an authorization", AuthParam(), ""},
      {"a profile", OptionalProfileParam(), ""},
      {"a profile with an initial value", OptionalProfileParam(Show::hidden, "lab"), "lab"},
      {"a string", StringParam("x", Need::optional), ""},
      {"a string with an initial value", StringParam("x", Need::required, Show::hidden, "initial"), "initial"},
  };
  for (const auto& c : texts) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(c.param.value(), c.value);
    EXPECT_FALSE(c.param.hasValue());
    EXPECT_NE(c.param.isSatisfied(), c.param.isRequired());
  }
  const HelmsorParam helmsor(Need::optional);
  EXPECT_EQ(helmsor.host(), "");
  EXPECT_EQ(helmsor.port(), 8096);
  EXPECT_FALSE(helmsor.hasValue());
  EXPECT_FALSE(SingleWordParam("x").isPresent());
  EXPECT_TRUE(BoolParam("x", Need::optional, true).value());
  EXPECT_FALSE(BoolParam("x", Need::optional, false).value());
  EXPECT_EQ(IntParam("x", Need::optional, 50).value(), 50);
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
    for (TextParam* param : std::initializer_list<TextParam*>{&plain, &profile, &network, &invitation, &auth}) {
      EXPECT_TRUE(param->setFromText(text));
      EXPECT_EQ(param->value(), text);
      EXPECT_TRUE(param->hasValue());
    }
  }
}

TEST(InputParams, EachParameterAcceptsOnlyItsKindsOfValues) {
  StringParam text("x", Need::required);
  HelmsorParam helmsor(Need::required);
  OptionalLogLevelParam logLevel;
  IntParam number("x", Need::required, 1);
  BoolParam choice("x", Need::required, true);
  SingleWordParam word("x", Need::required);
  NamedValueBinder slot("slot", Need::required, Show::hidden);
  const struct {
    const char* why;
    NamedValueBinder& param;
    bool integer, boolean, text;
  } cases[] = {
      {"a string", text, false, false, true},        {"a Helmsor address", helmsor, false, false, true},
      {"a log level", logLevel, false, false, true}, {"an integer", number, true, false, false},
      {"a boolean", choice, false, true, false},     {"a single word", word, false, false, false},
      {"a plain binder", slot, false, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_FALSE(c.param.setFromOther());
    EXPECT_FALSE(c.param.hasValue());
    EXPECT_EQ(c.param.setFromInteger(-3), c.integer);
    EXPECT_EQ(c.param.hasValue(), c.integer);
    EXPECT_EQ(c.param.setFromBoolean(false), c.boolean);
    EXPECT_EQ(c.param.hasValue(), c.integer || c.boolean);
    EXPECT_EQ(c.param.setFromText("x"), c.text);
    EXPECT_EQ(c.param.hasValue(), c.integer || c.boolean || c.text);
  }
  EXPECT_EQ(number.value(), -3);
  EXPECT_TRUE(number.isSatisfied());
  EXPECT_FALSE(choice.value());
  EXPECT_TRUE(choice.isSatisfied());
  EXPECT_EQ(slot.name(), "slot");
  EXPECT_TRUE(slot.isRequired());
  EXPECT_TRUE(slot.isHidden());
}

TEST(IntParam, AcceptsOnlyTrimmedDecimal32BitNumbers) {
  const struct {
    const char* why;
    std::vector<std::string> inputs;
    std::optional<std::int32_t> value;
  } cases[] = {
      {"digits", {"10"}, 10},
      {"zero", {"0"}, 0},
      {"a minus sign", {"-7"}, -7},
      {"a plus sign, leading zeros", {"+7", "007", std::string(40, '0') + "7"}, 7},
      {"blanks around the number", {" \t42 \n"}, 42},
      {"the largest number", {"2147483647"}, 2147483647},
      {"the smallest number", {"-2147483648"}, std::numeric_limits<std::int32_t>::min()},
      {"one beyond the largest and the smallest number", {"2147483648", "-2147483649"}, {}},
      {"a number far too large, and one that would wrap to 10", {std::string(400, '9'), "4294967306"}, {}},
      {"no digits", {"", "  ", "-"}, {}},
      {"two signs, a blank after the sign", {"--1", "- 1"}, {}},
      {"other bytes after the number", {"10x", "1 2", std::string("1\0x", 3)}, {}},
      {"a fraction, hexadecimal, a thousands separator", {"1.0", "0x10", "1,000"}, {}},
      {"a marker text", {"<single-word-command-present>"}, {}},
  };
  for (const auto& c : cases) {
    for (const std::string& input : c.inputs) {
      SCOPED_TRACE(c.why + (": " + input));
      IntParam param("max_lines", Need::optional, 50);
      EXPECT_EQ(param.setFromText(input), c.value.has_value());
      EXPECT_EQ(param.hasValue(), c.value.has_value());
      EXPECT_EQ(param.value(), c.value.value_or(50));
    }
  }
}

TEST(BoolParam, AcceptsSixWordsInAnyLetterCase) {
  const struct {
    std::vector<std::string> inputs;
    std::optional<bool> value;
  } cases[] = {
      {{"true", "yes", "on", "YES", "True", "oN"}, true},
      {{"false", "no", "off", "NO", "False", "oFF"}, false},
      {{"1", "0", "2", "", " true", "true ", "tru", "truey", "y", "n", "nein", std::string("on\0", 3)}, {}},
  };
  for (const auto& c : cases) {
    for (const std::string& input : c.inputs) {
      for (const bool initial : {true, false}) {
        SCOPED_TRACE(input + (initial ? " over true" : " over false"));
        BoolParam param("x", Need::optional, initial);
        EXPECT_EQ(param.setFromText(input), c.value.has_value());
        EXPECT_EQ(param.hasValue(), c.value.has_value());
        EXPECT_EQ(param.value(), c.value.value_or(initial));
      }
    }
  }
}

TEST(SingleWordParam, AnAcceptedTextMakesItPresentOrAbsent) {
  const struct {
    std::vector<std::string> inputs;
    std::optional<bool> present;
  } cases[] = {
      {{"<single-word-command-present>", "true", "TRUE", "True"}, true},
      {{"<single-word-command-absent>", "", "false", "FALSE"}, false},
      {{"<Single-word-command-present>", "<SINGLE-WORD-COMMAND-ABSENT>", "yes", "on", "1", "true ", "maybe"}, {}},
  };
  for (const auto& c : cases) {
    for (const std::string& input : c.inputs) {
      SCOPED_TRACE(input);
      SingleWordParam fresh("full");
      EXPECT_EQ(fresh.setFromText(input), c.present.has_value());
      EXPECT_EQ(fresh.hasValue(), c.present.has_value());
      EXPECT_EQ(fresh.isPresent(), c.present.value_or(false));
      SingleWordParam present("full");
      ASSERT_TRUE(present.setFromText("true"));
      EXPECT_EQ(present.setFromText(input), c.present.has_value());
      EXPECT_EQ(present.isPresent(), c.present.value_or(true));
    }
  }
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
      {"https and everything from the next slash on are removed", "https://h:1/x", true, "h", 1},
      {"http is removed in any letter case", "HTTP://h", true, "h", 8096},
      {"https is removed in any letter case", "hTTpS://h:2", true, "h", 2},
      {"a path without a port is removed", "http://h/x:9", true, "h", 8096},
      {"a slash at the end is removed", "https://h:1/", true, "h", 1},
      {"only the first scheme is removed", "http://https://h:1", true, "https", 0},
      {"a scheme and a port have no host", "https://:443/x", true, "", 443},
      {"without a scheme nothing is removed", "h:1/x", true, "h", 1},
      {"without a scheme a slash belongs to the host", "h/x", true, "h/x", 8096},
      {"without a scheme two slashes belong to the host", "//h/x", true, "//h/x", 8096},
      {"another scheme is not removed", "ftp://h:1", true, "ftp", 0},
      {"a scheme with one slash is none", "http:/h", true, "http", 0},
      {"a blank before the scheme keeps it", " http://h", true, " http", 0},
      {"the largest port", "h:65535", true, "h", 65535},
      {"a number above the largest port", "h:65536", true, "h", 65536},
      {"blanks are not removed", " h ", true, " h ", 8096},
      {"the empty text", "", false, "", 8096},
      {"a scheme alone", "https://", false, "", 8096},
      {"a scheme in capitals alone", "HTTP://", false, "", 8096},
      {"a scheme and a slash", "http:///", false, "", 8096},
      {"a scheme and a path", "https:///x:1", false, "", 8096},
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

TEST(HelmsorParam, ATextThatNamesNeitherHostNorPortIsRefusedAndResetsBoth) {
  for (const char* text : {"", "https://", "http:///x"}) {
    SCOPED_TRACE(text);
    HelmsorParam param(Need::optional);
    ASSERT_TRUE(param.setFromText("h:1"));
    EXPECT_FALSE(param.setFromText(text));
    EXPECT_EQ(param.host(), "");
    EXPECT_EQ(param.port(), 8096);
  }
}

TEST(OptionalLogLevelParam, StoresTheNameOfTheLevelAndKeepsOtherText) {
  const struct {
    std::vector<std::string> inputs;
    std::optional<std::string> stored;  // without a value: the input itself
  } cases[] = {
      {{"info", "INFO"}, "info"},
      {{"debug", " debug "}, "debug"},
      {{"trace"}, "trace"},
      {{"notice"}, "notice"},
      {{"warn", "Warning", "W~"}, "warning"},
      {{"err", "error", "[error] disk full", " e~"}, "error"},
      {{"fatal", "critical", "PANIC"}, "fatal"},
      {{"verbose", "warnings", " Loud ", "", "  "}, {}},
  };
  for (const auto& c : cases) {
    for (const std::string& input : c.inputs) {
      SCOPED_TRACE(input);
      OptionalLogLevelParam param;
      EXPECT_TRUE(param.setFromText(input));
      EXPECT_EQ(param.value(), c.stored.value_or(input));
      EXPECT_TRUE(param.hasValue());
    }
  }
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

TEST(FindParam, ComparesHiddenKeysTooAndTheEmptyKeyFindsNothing) {
  class TwoKeys : public StringParam {
   public:
    TwoKeys() : StringParam("key", Need::optional) { alsoTakes("other"); }
  };
  StringParam plain("plain", Need::optional);
  TwoKeys both;
  StringParam late("other", Need::optional);
  const InputParamList params = {&plain, &both, &late};
  EXPECT_EQ(plain.hiddenKey(), "");
  EXPECT_EQ(both.hiddenKey(), "other");
  EXPECT_EQ(both.name(), "key");
  EXPECT_EQ(findParam(params, "key"), &both);
  EXPECT_EQ(findParam(params, "other"), &both);
  EXPECT_EQ(findParam(params, "Other"), nullptr);
  EXPECT_EQ(findParam(params, ""), nullptr);
}

// --- From JSON

TEST(SetFromJson, ANumberIsTruncatedTowardZeroWithin32Bits) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const struct {
    std::vector<double> numbers;
    std::optional<std::int32_t> value;
  } cases[] = {
      {{3.9}, 3},
      {{-3.9}, -3},
      {{0.99, -0.99}, 0},
      {{2147483647.9}, 2147483647},
      {{-2147483648.9}, std::numeric_limits<std::int32_t>::min()},
      {{2147483648.0, -2147483649.0, 1e300, infinity, -infinity, std::nan("")}, {}},
  };
  for (const auto& c : cases) {
    for (const double number : c.numbers) {
      SCOPED_TRACE(number);
      IntParam param("x", Need::optional, 7);
      const ScopedJson value(json::makeNumber(number));
      EXPECT_EQ(setFromJson(param, value.get()), c.value.has_value());
      EXPECT_EQ(param.hasValue(), c.value.has_value());
      EXPECT_EQ(param.value(), c.value.value_or(7));
    }
  }
}

TEST(SetFromJson, EachParameterAcceptsOnlyItsKindsOfValues) {
  const struct {
    const char* why;
    std::string json;
    std::optional<std::string> text;
    std::optional<std::int32_t> number;
    std::optional<bool> choice;
  } cases[] = {
      {"a string", R"("lab")", "lab", {}, {}},
      {"a string with a zero byte", std::string("\"1\0x\"", 5), std::string("1\0x", 3), {}, {}},
      {"a string of digits", R"("12")", "12", 12, {}},
      {"a number", "1", {}, 1, {}},
      {"a boolean", "true", {}, {}, true},
      {"null", "null", {}, {}, {}},
      {"an array", "[]", {}, {}, {}},
      {"an object", "{}", {}, {}, {}},
      {"a null pointer", "", {}, {}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const ScopedJson value(json::parse(c.json.data(), static_cast<std::ptrdiff_t>(c.json.size())));
    StringParam text("x", Need::optional);
    EXPECT_EQ(setFromJson(text, value.get()), c.text.has_value());
    EXPECT_EQ(text.hasValue(), c.text.has_value());
    EXPECT_EQ(text.value(), c.text.value_or(""));
    IntParam number("x", Need::optional, 0);
    EXPECT_EQ(setFromJson(number, value.get()), c.number.has_value());
    EXPECT_EQ(number.value(), c.number.value_or(0));
    BoolParam choice("x", Need::optional, false);
    EXPECT_EQ(setFromJson(choice, value.get()), c.choice.has_value());
    EXPECT_EQ(choice.value(), c.choice.value_or(false));
  }
}

// --- Parameter words

TEST(SetParameterWord, SplitsEachWordAtItsFirstEqualsSign) {
  using Members = std::vector<std::pair<std::string, std::string>>;
  const struct {
    const char* why;
    std::vector<const char*> words;
    Members members;
  } cases[] = {
      {"key and value", {"name=lab"}, {{"name", "lab"}}},
      {"a second equals sign belongs to the value", {"name=a=b"}, {{"name", "a=b"}}},
      {"an empty value", {"profile="}, {{"profile", ""}}},
      {"a single word", {"activate"}, {{"activate", "<single-word-command-present>"}}},
      {"a word of blanks", {" "}, {{" ", "<single-word-command-present>"}}},
      {"blanks around the equals sign", {"a = b"}, {{"a ", " b"}}},
      {"any bytes", {"\xff=\x80%n"}, {{"\xff", "\x80%n"}}},
      {"a word with an empty name changes nothing", {"", "=", "=x", "=x=y"}, {}},
      {"a repeated key keeps its first position and its last value",
       {"a=1", "b=2", "a", "a=3"},
       {{"a", "3"}, {"b", "2"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const ScopedJson args(json::makeObject());
    for (const char* word : c.words) setParameterWord(args.get(), word);
    Members members;
    for (std::size_t at = 0; at < json::memberCount(args.get()); ++at) {
      members.emplace_back(json::memberName(args.get(), at), json::textOf(json::memberValue(args.get(), at)));
    }
    EXPECT_EQ(members, c.members);
  }
}

}  // namespace
