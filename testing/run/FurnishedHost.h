// FurnishedHost: runs a shell script on a private host as an administrator finds one.
//
//   const Outcome outcome = runOnFurnishedHost("ravctl list versions");
//   if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;       // no private host here
//
// The store is docs/examples/demo-store: a template and no profile. The daemon is the stand-in, its init script
// packaging/examples/hip.init, and /usr/bin/ravctl a copy of the program that every user can run. The examples are in
// /usr/share/doc/ravctl/examples, /usr/local/bin is empty. The working directory is /root. The caller need not be on a
// private host and stays where it is.
#pragma once

#include <string>

#include "testing/run/Program.h"

// For /bin/sh. The exit status is the script's.
Outcome runOnFurnishedHost(const std::string& script);

// Why the init script would not work on this machine: a tool that is not installed. Empty when it does.
std::string missingForInitScript();
