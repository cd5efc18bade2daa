// What a process that runs as root must put in order before it does anything else, and what it owes its children.
//
//   int main(...) { prepareProcess(); ... }
//   if (fork() == 0) { giveBackSignals(); execve(...); _exit(101); }
#pragma once

// To be called once, first thing in main:
// - descriptors 0, 1 and 2 that arrive closed are opened on /dev/null, so that no file of ours ever takes their place;
// - SIGPIPE and SIGXFSZ are ignored: a reader that went away and a file-size limit are failed writes, not deaths;
// - an inherited ignored SIGCHLD is set to its default, since children could not be waited for otherwise;
// - when memory runs out, one line on standard error says so and the process ends at once with status 1; what is
//   marked as a Leftover is removed first, so that no temporary file and no lock file stays.
void prepareProcess();

// In a child, before it becomes another program: SIGPIPE and SIGXFSZ get back what prepareProcess found.
// Async-signal-safe. Does nothing when prepareProcess was never called.
void giveBackSignals();
