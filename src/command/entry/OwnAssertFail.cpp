// __assert_fail of libc, replaced in the self-contained program alone. That of libc can also print in wide characters,
// so the linker would add all of their output, which a static-pie program relocates at each start. Without it the
// program is 30 KiB smaller, and a start takes 1,400 instructions and a page fault less. The text is the same.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): it is the name in libc
extern "C" [[noreturn]] void __assert_fail(const char* assertion, const char* file, unsigned int line,
                                           const char* function) noexcept {
  dprintf(STDERR_FILENO, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name, file, line, function,
          assertion);
  abort();
}
