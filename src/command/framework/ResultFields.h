// ResultFields: the results of a command. Each result is one object, and a command registers them in the order of the
// output.
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

  // Passes the name and the value of the field to the sink.
  virtual void render(ValueBinder& sink) const = 0;
  // Replaces `word` by the name of the field's type.
  virtual void typeWord(std::string& word) const = 0;

  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

using ResultFieldList = std::vector<ResultParamBase*>;

// A text. It renders nothing until it is set, and after clear(). If it is set to the empty text, it renders the empty
// text.
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

// A boolean, initially false. It is always rendered.
class BoolResult : public ResultParamBase {
 public:
  using ResultParamBase::ResultParamBase;
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = "bool"; }
  void set(bool value) { value_ = value; }

 private:
  bool value_ = false;
};

// A list of texts. It is always rendered, even if it is empty. Its type word is its own name.
class StringVectorResultField : public ResultParamBase {
 public:
  using ResultParamBase::ResultParamBase;
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = name(); }
  std::vector<std::string>& list() { return list_; }

 private:
  std::vector<std::string> list_;
};

// The status of the command. It is the first field of every command, and it is "application error" until the command
// sets it.
//
// What it renders depends on the output mode of the command and on whether the command failed:
//                 method        status_text   status_code
//   verbose       yes           yes           yes
//   quiet         no            no            on failure
//   default       no            on failure    on failure
// The details of the status, if there are any, are part of status_text, in brackets. The context is never rendered.
class StatusCodeResultField : public ResultParamBase {
 public:
  // `method` is the method name of the command `owner`; both must outlive the field.
  StatusCodeResultField(const RavctlCommandInstance& owner, const char* method)
      : ResultParamBase("status"), owner_(owner), status_(Status::of(status::applicationError)), method_(method) {}
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = "status"; }
  void set(Status value) { status_ = std::move(value); }
  void set(StatusCode code) { status_.setCode(code); }  // details and context do not change
  const Status& status() const { return status_; }
  const char* method() const { return method_; }

 private:
  const RavctlCommandInstance& owner_;
  Status status_;
  const char* method_;
};
