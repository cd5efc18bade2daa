// JsonCommand: the command `json OBJECT`, which takes a request as one JSON object.
#pragma once

#include <string_view>

#include "command/framework/CommandCore.h"

// The command accepts any request, but deliberately neither parses nor runs it. Its output is the heading of an empty
// list.
class Hipcmd_JsonCommand : public RavctlCommandInstance {
 public:
  explicit Hipcmd_JsonCommand(std::string_view request);
  void execute(StatusCodeResultField& status) override;

 private:
  StringParam object_;
  StringVectorResultField subcommand_{"subcommand"};
};
