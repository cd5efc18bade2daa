// InputParams: the parameters of a command. Each parameter is one object, and a command registers them in the order of
// their declaration.
//
//   struct Hipcmd_Example : RavctlCommandInstance {
//     HelmsorParam helmsor_{Need::required};
//     OptionalNetworkParam network_;
//   };
//
// A parameter is a member of its command; lists of parameters do not own them. Binding (CommandCore.h) sets them from
// command words or JSON values. A command reads its parameters only after binding succeeded. hasValue() is true once a
// value was bound and accepted; a default or an initial value does not count.
// Every setter returns true if it accepts the value. A rejected value leaves the parameter unchanged, unless a class
// states otherwise.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class jsObject;

enum class Need : bool { optional = false, required = true };
enum class Show : bool { listed = false, hidden = true };  // hidden: accepted, but not listed in help

// The text that a key without "=" is bound to, and the text that means its absence.
constexpr std::string_view singleWordPresent = "<single-word-command-present>";
constexpr std::string_view singleWordAbsent = "<single-word-command-absent>";

// Sets one parameter word as a member of an object of parameters. "key=value" is split at the first "=" and sets the
// member "key" to the text "value". A word without "=" sets the member of that name to singleWordPresent. If a key
// occurs again, the member keeps its position and takes the new value. An object has no member with an empty name, so
// the words "" and "=x" are accepted and change nothing.
void setParameterWord(jsObject* args, std::string_view word);

// A name with a value that can be set. This base class rejects every kind of value.
class NamedValueBinder {
 public:
  NamedValueBinder(std::string_view name, Need need, Show show)
      : required_(need == Need::required), hidden_(show == Show::hidden), name_(name) {}
  NamedValueBinder(const NamedValueBinder&) = delete;
  NamedValueBinder& operator=(const NamedValueBinder&) = delete;
  virtual ~NamedValueBinder() = default;

  virtual bool setFromText(const std::string& text);
  virtual bool setFromInteger(std::int32_t n);
  virtual bool setFromBoolean(bool value);
  virtual bool setFromOther();  // for any other kind of value; every class rejects it

  bool isRequired() const { return required_; }
  bool isHidden() const { return hidden_; }
  const std::string& name() const { return name_; }
  bool hasValue() const { return hasValue_; }

 protected:
  // Every setter that accepts a value returns the result of this function.
  bool accept() { return hasValue_ = true; }

 private:
  bool required_;
  bool hidden_;
  std::string name_;
  bool hasValue_ = false;
};

class InputParamBase : public NamedValueBinder {
 public:
  using NamedValueBinder::NamedValueBinder;
  // A second key of the parameter, which no help shows. It is empty if there is none.
  std::string_view hiddenKey() const { return hiddenKey_; }
  // Appends the text that usage lines show inside the angle brackets of "key=<...>", such as "addr:port". Appends
  // nothing for a parameter that takes no value.
  virtual void appendValueForm(std::string& text) const = 0;
  virtual bool isSingleWord() const;
  virtual bool takesValue() const;
  // Returns true if the parameter has a value or is not required.
  virtual bool isSatisfied() const;
  // Returns the text that parameter lists show as the type.
  virtual const char* typeDescription() const = 0;

 protected:
  // Gives the parameter a second key. The text must outlive the parameter.
  void alsoTakes(std::string_view key) { hiddenKey_ = key; }

 private:
  std::string_view hiddenKey_;
};

using InputParamList = std::vector<InputParamBase*>;

// Returns the first parameter with exactly that key or hidden key, or null.
InputParamBase* findParam(const InputParamList& params, std::string_view key);

// Sets a parameter from a JSON value, according to its kind:
//   string          set as text
//   number          truncated toward zero and set as an integer; rejected if it is NaN or the result exceeds 32 bits
//   boolean         set as a boolean
//   anything else   rejected, also a null pointer
// Returns true if the parameter accepts the value.
bool setFromJson(NamedValueBinder& param, const jsObject* value);

// A parameter that accepts any text.
class TextParam : public InputParamBase {
 public:
  TextParam(std::string_view name, Need need, Show show, std::string_view valueForm, const char* typeDescription,
            std::string_view initial = {})
      : InputParamBase(name, need, show), valueForm_(valueForm), typeDescription_(typeDescription), value_(initial) {}
  bool setFromText(const std::string& text) override;
  void appendValueForm(std::string& text) const override { text += valueForm_; }
  const char* typeDescription() const override { return typeDescription_; }
  const std::string& value() const { return value_; }

 protected:
  std::string_view valueForm_;
  const char* typeDescription_;
  std::string value_;
};

class StringParam : public TextParam {
 public:
  StringParam(std::string_view name, Need need, Show show = Show::listed, std::string_view initial = {},
              const char* typeDescription = "string")
      : TextParam(name, need, show, "string", typeDescription, initial) {}
};

// A profile selector. `initial` is the third word of the command; a bound value replaces it.
class OptionalProfileParam : public TextParam {
 public:
  explicit OptionalProfileParam(Show show = Show::listed, std::string_view initial = {})
      : TextParam("profile", Need::optional, show, "string", "profile name", initial) {}
};

class OptionalNetworkParam : public TextParam {
 public:
  OptionalNetworkParam()
      : TextParam("network", Need::optional, Show::listed, "interface | auto", "network interface", "auto") {}
};

class OptionalActivationParam : public TextParam {
 public:
  OptionalActivationParam() : TextParam("invitation", Need::optional, Show::listed, "invitation", "invitation code") {}
};

class AuthParam : public TextParam {
 public:
  explicit AuthParam(Show show = Show::listed)
      : TextParam("auth", Need::optional, show, "auth string", "auth string") {}
};

// A log level. Accepts every text. A text that names a level is stored as the name of that level in lower case:
// "critical" as "fatal", " debug " as "debug". Any other text is stored as given, and the command decides about it.
class OptionalLogLevelParam : public TextParam {
 public:
  OptionalLogLevelParam()
      : TextParam("log_level", Need::optional, Show::listed, "info | warn | error | debug | trace", "log level",
                  "info") {}
  bool setFromText(const std::string& text) override;
};

// A 32-bit integer. A text may have blanks around it, one sign and decimal digits, but nothing else. Integers are also
// accepted as such (from JSON numbers).
class IntParam : public InputParamBase {
 public:
  IntParam(std::string_view name, Need need, std::int32_t initial, Show show = Show::listed)
      : InputParamBase(name, need, show), value_(initial) {}
  bool setFromText(const std::string& text) override;
  bool setFromInteger(std::int32_t n) override;
  void appendValueForm(std::string& text) const override { text += "integer"; }
  const char* typeDescription() const override { return "integer"; }
  std::int32_t value() const { return value_; }

 private:
  std::int32_t value_;
};

// A boolean. Accepts the texts "true", "yes", "on", "false", "no" and "off" in any letter case. Unlike
// StringUtils::parseBool it deliberately rejects the texts "1" and "0".
class BoolParam : public InputParamBase {
 public:
  BoolParam(std::string_view name, Need need, bool initial, Show show = Show::listed)
      : InputParamBase(name, need, show), value_(initial) {}
  bool setFromText(const std::string& text) override;
  bool setFromBoolean(bool value) override;
  void appendValueForm(std::string& text) const override { text += "boolean"; }
  const char* typeDescription() const override { return "boolean"; }
  bool value() const { return value_; }

 private:
  bool value_;
};

// A word that is either present or absent. The empty text, "false" (any letter case) and singleWordAbsent make it
// absent; "true" (any letter case) and singleWordPresent make it present. Any other text is rejected. hasValue() is
// true in both cases.
class SingleWordParam : public InputParamBase {
 public:
  explicit SingleWordParam(std::string_view name, Need need = Need::optional, Show show = Show::listed)
      : InputParamBase(name, need, show), value_(singleWordAbsent) {}
  bool setFromText(const std::string& text) override;
  void appendValueForm(std::string&) const override {}
  bool isSingleWord() const override { return true; }
  bool takesValue() const override { return false; }
  const char* typeDescription() const override { return "single word"; }
  bool isPresent() const { return value_ == singleWordPresent; }

 private:
  std::string value_;
};

// The Helmsor address. The host is the text before the first colon; the port is the number whose digits directly follow
// the colon, or 0 if there are no digits. A number above 65535 gives some port above 65535. Without a colon the whole
// text is the host and the port is defaultPort.
// A leading "http://" or "https://" in any letter case is removed first, and then also everything from the next "/" on:
// "https://h:1/x" is host "h", port 1. Without a scheme nothing is removed.
// If no text remains, it is rejected, but it nevertheless clears the host and resets the port.
class HelmsorParam : public InputParamBase {
 public:
  static constexpr std::int32_t defaultPort = 8096;
  explicit HelmsorParam(Need need) : InputParamBase("helmsor", need, Show::listed) {}
  bool setFromText(const std::string& text) override;
  void appendValueForm(std::string& text) const override { text += "addr:port"; }
  const char* typeDescription() const override { return "helmsor address, in host:port form"; }
  const std::string& host() const { return host_; }
  std::int32_t port() const { return port_; }

 private:
  std::string host_;
  std::int32_t port_ = defaultPort;
};
