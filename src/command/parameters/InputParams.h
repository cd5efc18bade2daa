// Input parameters: what a command takes, one object each, registered in declaration order.
//
//   struct Hipcmd_Example : RavctlCommandInstance {
//     HelmsorParam helmsor_{Need::required};
//     OptionalNetworkParam network_;
//   };
//
// A parameter is a member of its command; lists of parameters do not own them. Binding (CommandCore.h) fills them from
// words or from JSON values; a command reads them only after binding succeeded. A value counts as given (hasValue) when
// it was bound and accepted, never because a default or an initial value is there.
// Setting a value: true when accepted; a rejected value leaves the parameter as it was, unless stated otherwise.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class jsObject;

enum class Need : bool { optional = false, required = true };
enum class Show : bool { listed = false, hidden = true };  // hidden: accepted, but left out of help listings

// What a key given without "=" is bound to, and its opposite.
constexpr std::string_view singleWordPresent = "<single-word-command-present>";
constexpr std::string_view singleWordAbsent = "<single-word-command-absent>";

// Puts one parameter word into an object of parameters: "key=value", split at the first "=", as the text of that key; a
// word without "=" as singleWordPresent. A repeated key keeps its first place and its last value. A member without a
// name is dropped by the object itself, so the words "" and "=x" are accepted and mean nothing.
void setParameterWord(jsObject* args, std::string_view word);

// A named slot that accepts a value; this base rejects every kind.
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
  virtual bool setFromOther();  // any other kind of value; no binding calls it

  bool isRequired() const { return required_; }
  bool isHidden() const { return hidden_; }
  const std::string& name() const { return name_; }
  bool hasValue() const { return hasValue_; }

 protected:
  // Every accepting setter ends with this.
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
  // Appends the word shown after "key=" in usage lines; appends nothing for a parameter without a value.
  virtual void appendValueForm(std::string& text) const = 0;
  virtual bool isSingleWord() const;
  virtual bool takesValue() const;
  // A required parameter is satisfied once it has a value, any other always.
  virtual bool isSatisfied() const;
  // The word shown in parameter lists.
  virtual const char* typeDescription() const = 0;
};

using InputParamList = std::vector<InputParamBase*>;

// The first parameter of exactly that key, or null.
InputParamBase* findParam(const InputParamList& params, std::string_view key);

// A JSON string is set as text, a number is cut toward zero and set as an integer (rejected when that leaves the 32-bit
// range or it is not a number), a boolean is set as such; any other kind, and null, is rejected.
bool setFromJson(NamedValueBinder& param, const jsObject* value);

// Any text.
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
  StringParam(std::string_view name, Need need, Show show = Show::listed, std::string_view initial = {})
      : TextParam(name, need, show, "string", "string", initial) {}
};

// A profile selector. `initial` is the third command word; a bound value replaces it.
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

// Text that names a level is stored as the level's own name in lower case ("critical" as "fatal", " debug " as
// "debug"); other text is kept as given, so that each command decides about it. Always accepted.
class OptionalLogLevelParam : public TextParam {
 public:
  OptionalLogLevelParam()
      : TextParam("log_level", Need::optional, Show::listed, "info | warn | error | debug | trace", "log level",
                  "info") {}
  bool setFromText(const std::string& text) override;
};

// A decimal 32-bit integer: outer blanks, one sign and digits, nothing else. JSON numbers are accepted too.
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

// "true", "yes", "on" and "false", "no", "off" in any letter case. Narrower than StringUtils::parseBool on purpose: the
// digits 1 and 0 are rejected here.
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

// A word that is there or not. It holds one of the two marker texts: the empty text, "false" (any letter case) and the
// absent marker store absent; "true" (any letter case) and the present marker store present; other text is rejected.
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

// The Helmsor address. The host is what stands before the first colon, the port the digits directly behind it (none: 0;
// a huge number stays above 65535). Without a colon all is host, and the port 8096. A scheme is not taken off.
// The empty text is rejected, and clears the host and resets the port all the same.
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
