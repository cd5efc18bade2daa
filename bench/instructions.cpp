// instructions: counts the instructions that a command executes, from its first to its last.
//
//   instructions COMMAND [WORD...]     # prints the number
//
// The command, an absolute path, has an empty environment, no input, and its output on /dev/null. The kernel stops it
// after each instruction, so the count is that of the machine itself; an emulator such as valgrind refuses newer system
// calls, and the command takes another way. A system call counts as one instruction.
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(2);
}

[[noreturn]] void becomeCommand(char** words) {
  const int nowhere = open("/dev/null", O_RDWR);
  char* noEnvironment[] = {nullptr};
  if (nowhere < 0 || dup2(nowhere, 0) < 0 || dup2(nowhere, 1) < 0 || ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
    fail("instructions");
  }
  if (nowhere > 2) close(nowhere);
  execve(words[0], words, noEnvironment);
  fail(words[0]);
}

}  // namespace

int main(int count, char** words) {
  if (count < 2) {
    std::fputs("Usage: instructions COMMAND [WORD...]\n", stderr);
    return 2;
  }
  const pid_t child = fork();
  if (child < 0) fail("fork");
  if (child == 0) becomeCommand(words + 1);

  // The first stop is the one of execve.
  int status = 0;
  unsigned long steps = 0;
  while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
    if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) != 0) fail("instructions: step");
    ++steps;
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "instructions: %s did not end with 0\n", words[1]);
    return 2;
  }
  std::printf("%lu\n", steps);
  return std::fflush(stdout) == 0 ? 0 : 2;
}
