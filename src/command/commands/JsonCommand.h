// json OBJECT: a command given as one request object.
#pragma once

#include <string_view>

#include "command/framework/CommandCore.h"

// The request is accepted but neither parsed nor run; the output is the heading of the empty list. That is the settled
// behaviour of this command.
class Hipcmd_JsonCommand : public RavctlCommandInstance {
 public:
  explicit Hipcmd_JsonCommand(std::string_view request);
  void execute(StatusCodeResultField& status) override;

 private:
  StringParam object_;
  StringVectorResultField subcommand_{"subcommand"};
};
