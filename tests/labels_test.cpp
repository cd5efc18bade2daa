// Security labels: extended attributes by which a security module of the kernel knows a file.
#include "testing/run/AccessLists.h"
#include "testing/run/HostTest.h"

namespace {

using LabelsTest = HostTest;

constexpr const char* kLabel = "security.selinux";

TEST_F(LabelsTest, ALabelSurvivesEveryEditOfAProfile) {
  SKIP_WITHOUT_OTHER_USERS();
  const std::string label("system_u:object_r:zuv_etc_t:s0", 31);  // with its last zero byte, as SELinux stores it
  host::makeProfile("profile-1", "lab");
  const std::string folder = std::string(host::kProfiles) + "profile-1/";
  std::vector<std::string> files;
  for (const char* name : {"hip.conf", "endbox.conf", "mapconfig.static", "profile_name"}) {
    files.push_back(folder + name);
    host::writeFile(files.back(), "old\n");
    setAttribute(files.back().c_str(), kLabel, label);
  }
  host::writeFile(folder + "profile_name", "lab\n");
  const Outcome outcome = runRavctl({"profile", "modify", "lab", "network=eth1", "helmsor=h:1", "invitation=CODE",
                                     "log_level=debug", "new_name=harbour"});
  EXPECT_THAT(outcome.out, testing::HasSubstr("profile_name=harbour\n"));
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    EXPECT_NE(host::readFile(file), file == folder + "profile_name" ? "lab\n" : "old\n");
    EXPECT_EQ(attributeOf(file.c_str(), kLabel), label);
  }
}

}  // namespace
