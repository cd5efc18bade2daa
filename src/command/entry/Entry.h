// Entry: one run of the program, from the words of the command line to the lines it prints.
#pragma once

// Runs one command and gives the exit status of the process: 1 for words that name no command or do not bind, with one
// line on standard output that says so; 0 in every other case, whatever became of the command. That is deliberate:
// scripts read the printed status. Without any word the usage is printed. Without memory the process ends at once, with
// status 1 and one line on standard error.
// A reader of standard output that went away ends the output silently; any other failure to write it is one line on
// standard error. Neither changes the exit status.
int runRavctl(int argc, char** argv);
