#include "command/entry/Entry.h"

#include <memory>
#include <string>
#include <vector>

#include "base/text/StringUtils.h"
#include "command/entry/Catalogue.h"
#include "command/framework/Authorization.h"
#include "command/framework/LineOutput.h"
#include "command/status/AppStatusCodes.h"

namespace {

constexpr int exitRan = 0;
constexpr int exitRefused = 1;

void printUsage(const char* program) {
  LineOutput out;
  out.put(StringUtils::concatenate({"Usage: ", program, " json <command request object>"}));
  out.put(StringUtils::concatenate({"   or: ", program, " <two-word command name> <command-specific params>"}));
  out.put(StringUtils::concatenate({"   or: ", program, " help   (for a command list and short summaries)"}));
  out.finish();
}

int refuse(std::string_view why) {
  LineOutput out;
  out.put(why);
  out.finish();
  return exitRefused;
}

void printResults(const RavctlCommandInstance& command) {
  std::vector<std::string> lines;
  renderOutput(command, lines);
  LineOutput out;
  for (const std::string& line : lines) out.put(line);
  out.finish();
}

}  // namespace

int runRavctl(int argc, char** argv) {
  if (argc < 2) {
    printUsage(argc > 0 ? argv[0] : "ravctl");
    return exitRan;
  }
  registerStatusTexts(status::applicationId, appStatusText);
  setAuthorizationMode(authorizationRootOnly);

  std::vector<std::string> words(argv + 1, argv + argc);
  int consumed = noCommand;
  const std::unique_ptr<RavctlCommandInstance> command = findCommand(words, consumed);
  if (!command) return refuse("invalid command name");
  const Status bound = bindCommandWords(*command, words, static_cast<std::size_t>(consumed));
  if (!bound.isSuccess()) return refuse("invalid command arguments");
  command->run();
  printResults(*command);
  return exitRan;
}
