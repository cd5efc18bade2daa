#include "command/commands/JsonCommand.h"

#include "testing/run/HostTest.h"

namespace {

using Lines = std::vector<std::string>;

TEST(JsonCommand, SucceedsAndPrintsOnlyTheHeadingForAnyRequest) {
  const std::string requests[] = {R"({"method":"list profiles"})",
                                  "",
                                  "{",
                                  "[]",
                                  "42",
                                  "no JSON",
                                  "%n%s",
                                  "\xff",
                                  std::string(200'000, '['),
                                  R"({"method":"service stop","command_args":[]})"};
  for (const std::string& request : requests) {
    SCOPED_TRACE(request.substr(0, 40));
    Hipcmd_JsonCommand command(request);
    EXPECT_THAT(bind_json_args(command, nullptr), HasCode(status::success));
    command.run();
    EXPECT_EQ(command.status().status().code(), 1U);
    EXPECT_EQ(command.status().status().details(), "");
    Lines lines;
    renderOutput(command, lines);
    EXPECT_EQ(lines, Lines{"subcommand:"});
  }
}

using JsonCommandTest = HostTest;

TEST_F(JsonCommandTest, TheRequestIsNotRun) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installRecorder("/bin/systemctl", "/tmp/calls");
  host::makeProfile("profile-1", "lab");
  const std::string before = host::tree("/etc");
  for (const char* request :
       {R"({"method":"service start","command_args":["service","start"]})",
        R"({"method":"profile delete","profile":"lab"})", R"({"command_name":["list","profiles"]})"}) {
    const Outcome outcome = runRavctl({"json", request});
    EXPECT_EQ(outcome.out, "subcommand:\n");
    EXPECT_EQ(outcome.exitStatus, 0);
  }
  EXPECT_FALSE(host::exists("/tmp/calls"));
  EXPECT_EQ(host::tree("/etc"), before);
}

TEST_F(JsonCommandTest, AcceptsModeWordsAndItsOwnParameter) {
  EXPECT_EQ(runRavctl({"json", "{}", "--verbose"}).out,
            "method: json <object>\nstatus_text: success\nstatus_code: 0x00000001\nsubcommand:\n");
  EXPECT_EQ(runRavctl({"json", "{}", "object=[]", "auth=x"}).out, "subcommand:\n");
  EXPECT_EQ(runRavctl({"json", "--verbose", "--quiet"}).out,
            "method: json <object>\nstatus_text: success\nstatus_code: 0x00000001\nsubcommand:\n");
  EXPECT_EQ(runRavctl({"json", "{}", "object"}).out, "invalid command arguments\n");
  EXPECT_EQ(runRavctl({"json", "{}", "{}"}).out, "invalid command arguments\n");
  EXPECT_EQ(runRavctl({"json"}).out, "invalid command name\n");
}

}  // namespace
