// The command framework: what every command is, how its parameters are bound, how its results become lines.
//
//   std::unique_ptr<RavctlCommandInstance> command = ...;                  // from the catalogue
//   Status bound = bindCommandWords(*command, words, consumed);
//   if (bound.isSuccess()) { command->run(); renderOutput(*command, lines); }
//
// A command lives for one run. It owns its parameters and results as members; the lists below only name them.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "command/framework/ResultFields.h"
#include "command/parameters/InputParams.h"
#include "command/status/StatusCodes.h"

// How much a command prints. Quiet and verbose exclude each other, as do json and text; the last word given wins. The
// last two are recorded for compatibility and change nothing, which is deliberate.
struct OutputMode {
  bool quiet = false;
  bool verbose = false;
  bool json = false;
  bool text = false;

  // Takes "--quiet", "--verbose", "--json" or "--text"; false, and nothing changed, for any other word.
  bool take(std::string_view word);
};

class RavctlCommandInstance {
 public:
  // Does the command's work, leaving its status in the field (its own). Called once, after binding succeeded.
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
  // `method` is a constant text, such as "profile create". Registers the standard parameters (auth, requestID, output:
  // optional, hidden, accepted and ignored) and the status field, both first in their lists.
  explicit RavctlCommandInstance(const char* method);

  // For the constructors of commands: lists their own members, in declaration order.
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

// Binds the members of a JSON object, in order, to the command's parameters of the same keys; "command_name" is
// skipped. Success has code 1. Every failure is "invalid argument" in the context "bind_json_args", the first one ends
// the binding, and values bound before it stay set. Details:
//   "disregarding unused input: KEY"           no such parameter; it fails the whole binding, despite its words
//   "illegal single-word input: JSON"          a single word of an unknown text or kind
//   "parameter value required"                 the key of a value stood alone, without "="
//   "illegal value presented: JSON"            the parameter does not accept the value
//   "illegal or missing parameter: KEY"        after all members: the first required parameter without a value
// A parameter that is neither a single word nor takes a value is logged as an error and fails without details.
Status bind_json_args(RavctlCommandInstance& command, const jsObject* args);

// Binds command words, a JSON array of strings, of which the first `consumed` name the command. Words that follow are
// parameters: "key=value", split at the first "=", or single words; output-mode words set the mode instead. The naming
// words are looked at for output modes after them, and do set the mode: a profile may be named "--json".
// A word that is not a string fails with "invalid argument", details "parameter not a string", context "binding input
// args"; otherwise as bind_json_args.
Status bindCommandWords(RavctlCommandInstance& command, const jsObject* words, std::size_t consumed);

// Appends the lines of a command that ran: all results in order when it succeeded, else its status alone.
void renderOutput(const RavctlCommandInstance& command, std::vector<std::string>& lines);
