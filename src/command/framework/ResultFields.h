// Result fields: what a command reports, one object each, registered in the order of the output.
//
//   profileName_.set(record.name);        // in execute
//   for (field : results) field->render(sink);
//
// A field is a member of its command; the list of results does not own it.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "command/parameters/ValueBinder.h"
#include "command/status/StatusCodes.h"

class RavctlCommandInstance;

class ResultParamBase {
 public:
  explicit ResultParamBase(std::string_view name) : name_(name) {}
  ResultParamBase(const ResultParamBase&) = delete;
  ResultParamBase& operator=(const ResultParamBase&) = delete;
  virtual ~ResultParamBase() = default;

  // Hands the field's name and value to the sink.
  virtual void render(ValueBinder& sink) const = 0;
  // Replaces `word` by the name of the field's type.
  virtual void typeWord(std::string& word) const = 0;

  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

using ResultFieldList = std::vector<ResultParamBase*>;

// A text. Never set, or cleared, it renders nothing; set to the empty text it renders that.
class StringResult : public ResultParamBase {
 public:
  using ResultParamBase::ResultParamBase;
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = "string"; }
  void set(std::string value);
  void clear();
  bool hasValue() const { return hasValue_; }
  const std::string& value() const { return value_; }

 private:
  std::string value_;
  bool hasValue_ = false;
};

// A yes or no, at first no; always rendered.
class BoolResult : public ResultParamBase {
 public:
  using ResultParamBase::ResultParamBase;
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = "bool"; }
  void set(bool value) { value_ = value; }

 private:
  bool value_ = false;
};

// A list of texts, always rendered, also when empty. Its type word is its own name.
class StringVectorResultField : public ResultParamBase {
 public:
  using ResultParamBase::ResultParamBase;
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = name(); }
  std::vector<std::string>& list() { return list_; }

 private:
  std::vector<std::string> list_;
};

// What became of the command: the first field of every command, "application error" until the command says otherwise.
//
// What it renders depends on its command's output mode and on whether it failed:
//                 method        status_text   status_code
//   verbose       yes           yes           yes
//   quiet         no            no            on failure
//   neither       no            on failure    on failure
// Details, when there are any, stand in brackets behind the text; the context is never rendered.
class StatusCodeResultField : public ResultParamBase {
 public:
  // `method` is the command's method name; it and the owner must outlive the field.
  StatusCodeResultField(const RavctlCommandInstance& owner, const char* method)
      : ResultParamBase("status"), owner_(owner), status_(Status::of(status::applicationError)), method_(method) {}
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = "status"; }
  void set(Status value) { status_ = std::move(value); }
  void set(StatusCode code) { status_.setCode(code); }  // details and context stay
  const Status& status() const { return status_; }
  const char* method() const { return method_; }

 private:
  const RavctlCommandInstance& owner_;
  Status status_;
  const char* method_;
};
