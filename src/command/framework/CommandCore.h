// CommandCore: the base class of all commands. It also binds words to the parameters of a command, and turns its
// results into lines.
//
//   std::unique_ptr<RavctlCommandInstance> command = ...;                  // from the catalogue
//   Status bound = bindCommandWords(*command, words, consumed);
//   if (bound.isSuccess()) { command->run(); renderOutput(*command, lines); }
//
// A command object serves one run. It owns its parameters and results as members; the lists below only point to them.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "command/framework/ResultFields.h"
#include "command/parameters/InputParams.h"
#include "command/status/StatusCodes.h"

// How much a command prints. Quiet and verbose exclude each other, and so do json and text; the last word given wins.
// `json` and `text` are recorded for compatibility and deliberately change nothing.
struct OutputMode {
  bool quiet = false;
  bool verbose = false;
  bool json = false;
  bool text = false;

  // Applies "--quiet", "--verbose", "--json" or "--text". For any other word it returns false and changes nothing.
  bool take(std::string_view word);
};

class RavctlCommandInstance {
 public:
  // Does the work of the command and stores its status in `status`, which is the command's own status field. Called
  // once, after binding succeeded.
  virtual void execute(StatusCodeResultField& status) = 0;
  RavctlCommandInstance(const RavctlCommandInstance&) = delete;
  RavctlCommandInstance& operator=(const RavctlCommandInstance&) = delete;
  virtual ~RavctlCommandInstance() = default;

  void run() { execute(status_); }

  const InputParamList& params() const { return params_; }
  const ResultFieldList& results() const { return results_; }
  const StatusCodeResultField& status() const { return status_; }
  const OutputMode& mode() const { return mode_; }
  OutputMode& mode() { return mode_; }

 protected:
  // `method` is a constant text, such as "profile create". Registers the standard parameters auth, requestID and output
  // before all other parameters, and the status field before all other results. The standard parameters are optional
  // and hidden; they are accepted and ignored.
  explicit RavctlCommandInstance(const char* method);

  // For the constructors of commands: register the members of the command, in the order of their declaration.
  void takes(std::initializer_list<InputParamBase*> own) { params_.insert(params_.end(), own); }
  void reports(std::initializer_list<ResultParamBase*> own) { results_.insert(results_.end(), own); }

 private:
  InputParamList params_;
  ResultFieldList results_;
  AuthParam auth_;
  StringParam requestID_;
  StringParam output_;
  OutputMode mode_;
  StatusCodeResultField status_;
};

// Binds the members of a JSON object, in order, to the parameters of the command with the same keys. The member
// "command_name" is skipped. A null pointer counts as an object without members.
// Statuses: success (code 1), or "invalid argument" with the context "bind_json_args". The first failure ends the
// binding; values that were bound before it remain set. The details of a failure are:
//   "disregarding unused input: KEY"           the command has no such parameter; despite its text this is a failure
//   "illegal single-word input: JSON"          a single-word parameter does not accept the value
//   "parameter value required"                 a parameter that takes a value was given without "=", that is, as
//                                              singleWordPresent or singleWordAbsent (see InputParams.h)
//   "illegal value presented: JSON"            a parameter does not accept the value
//   "illegal or missing parameter: KEY"        all members are bound, but this required parameter has no value
// If a parameter is not a single word and takes no value either, binding it logs an error and returns "invalid
// argument" without details and context.
Status bind_json_args(RavctlCommandInstance& command, const jsObject* args);

// Binds command words, which are given as texts or as a JSON array of strings. The first `consumed` words name the
// command. Each following word is an output-mode word, which sets the mode, or a parameter: "key=value", split at the
// first "=", or a single word. After these, output-mode words among the naming words set the mode too: a
// profile may be named "--json".
// Statuses: "invalid argument" with the details "parameter not a string" and the context "binding input args" if a
// following word is not a string, and otherwise those of bind_json_args.
Status bindCommandWords(RavctlCommandInstance& command, const std::vector<std::string>& words, std::size_t consumed);
Status bindCommandWords(RavctlCommandInstance& command, const jsObject* words, std::size_t consumed);

// Appends the output lines of a command after run(): all its results in order if it succeeded, else only its status.
void renderOutput(const RavctlCommandInstance& command, std::vector<std::string>& lines);
