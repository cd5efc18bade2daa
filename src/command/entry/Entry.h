// Entry: runs the program once, from the words of the command line to the printed lines.
#pragma once

// Runs one command and returns the exit status of the process. Without any word it prints three lines of usage.
//
// Exit status: 1 if the words name no command or do not bind; one line on standard output then says so. 0 in every
// other case, deliberately even if the command failed: scripts read the printed status.
//
// Output: a reader that closes the pipe ends the output silently. Any other failure to write standard output prints one
// line to standard error. Neither changes the exit status.
//
// Memory: if memory runs out, the process ends at once with exit status 1 and one line on standard error (see
// Process.h). Only where libc lacks memory, as in getifaddrs(3), the command fails and prints its status.
int runRavctl(int argc, char** argv);
