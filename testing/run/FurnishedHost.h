// FurnishedHost: runs a shell script on a private host that looks like the machine of an administrator.
//
//   const Outcome outcome = runOnFurnishedHost("ravctl list versions");
//   if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;       // no private host here
//
// - The store is a copy of docs/examples/demo-store: it has a template and no profile.
// - The daemon is the stand-in daemon, and its init script is packaging/examples/hip.init.
// - /usr/bin/ravctl is a copy of the program that every user can run. The scripts of scripts/ are beside it.
// - The examples are in /usr/share/doc/ravctl/examples, and /usr/local/bin is empty.
// - The working directory is /root.
// The caller may run inside or outside a private host; the new host does not change it.
#pragma once

#include <string>

#include "testing/run/Program.h"

// Runs the script with /bin/sh and returns its output and exit status. The exit status is 125 if this machine allows no
// private host. `visible` is a folder of the machine that the script finds in /.private-host/shown/1; empty: none.
Outcome runOnFurnishedHost(const std::string& script, const std::string& visible = "");

// Names a tool that the init script needs and that this machine lacks: "/usr/bin/killall is not installed". Empty if it
// lacks none.
std::string missingForInitScript();
