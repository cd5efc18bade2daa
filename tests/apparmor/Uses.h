// Uses: reads from the output of strace what a run of the program asks of AppArmor.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "Policy.h"

struct Uses {
  std::set<Use> files;
  std::set<std::string> networks;    // as in Policy
  std::vector<std::string> unknown;  // lines with calls that the table of Uses.cpp lacks

  void add(const Uses& other);
};

// The option of strace for the calls that matter.
constexpr const char* kTracedCalls =
    "trace=%file,%network,flock,fcntl,ftruncate,fallocate,fchmod,fchown,kill,tkill,tgkill,ptrace";

// Reads the output of `strace -ff -y` for one process. The calls of a process that executes `program` count from then
// on. Any other process is a child of the program, and its calls count from its start. In both cases the last call that
// counts is the one that executes the next program. `folders` are the directories that exist before the run.
Uses usesOf(const std::string& trace, const std::string& program, std::set<std::string> folders);
