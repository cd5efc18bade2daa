// Process: sets up a process that runs as root, before it does anything else, and restores for its children what it
// changed.
//
//   int main(...) { prepareProcess(); ... }
//   makeChildrenWaitable();
//   if (fork() == 0) { giveBackSignals(); execve(...); _exit(101); }
#pragma once

// Must be called once, as the first statement of main. It does the following:
// - It opens each of the descriptors 0, 1 and 2 that is closed on /dev/null, so that no file that the program opens
//   gets one of these numbers.
// - It blocks SIGPIPE and SIGXFSZ, so that a closed reader and a file-size limit make a write fail and do not kill the
//   process. A mask blocks both in one system call; to ignore both would take two.
// - It installs a new-handler for the case that memory runs out. The handler removes every file marked as a Leftover,
//   so that no temporary file and no lock file remains, writes one line to standard error and ends the process at once
//   with status 1.
void prepareProcess();

// Resets SIGCHLD to its default if the process inherited it as ignored, because the process could not wait for its
// children otherwise. Call it before fork.
void makeChildrenWaitable();

// Restores the mask of signals that prepareProcess found. Call it in a child before exec.
// Does nothing if prepareProcess was never called.
void giveBackSignals();
