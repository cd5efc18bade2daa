#include "command/commands/JsonCommand.h"

Hipcmd_JsonCommand::Hipcmd_JsonCommand(std::string_view request)
    : RavctlCommandInstance("json <object>"), object_("object", Need::optional, Show::hidden, request) {
  takes({&object_});
  reports({&subcommand_});
}

void Hipcmd_JsonCommand::execute(StatusCodeResultField& status) { status.set(Status::success()); }
