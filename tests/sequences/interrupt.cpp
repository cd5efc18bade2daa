// Runs a program and meddles with one of its system calls: interrupt NUMBER ERROR PROGRAM [WORD...]. With ERROR 0 the
// program is killed before the call, and the exit status is 137; otherwise the call fails with that errno. Calls are
// counted from the first one of main. Output and exit status are passed on, and the name of the call is a last line on
// standard error, unless the program ended before it.
#include <sys/syscall.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "testing/faults/Tracer.h"

int main(int argc, char** argv) {
  if (argc < 4) return 125;
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.meddling.error = std::atoi(argv[2]);
  plan.meddling.how = plan.meddling.error == 0 ? Meddling::kill : Meddling::fail;
  plan.meddling.at = std::strtoul(argv[1], nullptr, 10);
  plan.environment = {"PATH=/usr/bin:/bin"};
  try {
    const TraceResult result = traceProgram({argv + 3, argv + argc}, plan);
    (void)std::fwrite(result.out.data(), 1, result.out.size(), stdout);
    (void)std::fwrite(result.err.data(), 1, result.err.size(), stderr);
    if (result.meddled != 0) (void)std::fprintf(stderr, "%s\n", result.meddledFirst.name.c_str());
    return result.signal != 0 ? 137 : result.exitStatus;
  } catch (const std::exception& problem) {
    (void)std::fprintf(stderr, "interrupt: %s\n", problem.what());
    return 125;
  }
}
