// A program started as a child, with what it prints on pipes.
#ifndef TOOLS_CHILD_PROCESS_H
#define TOOLS_CHILD_PROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

struct ChildProcess {
    pid_t pid = -1;   // -1 before the start and after the end was seen
    int out = -1;     // reading ends of the pipes, non-blocking, closed by Child_Stop
    int err = -1;     // -1 when standard error goes into `out` too
    int nStatus = -1; // waitpid's, once the end was seen
};

enum ChildOutput { CHILD_JOINED, CHILD_APART }; // standard error in the same pipe, or in its own

// Starts args[0], a path, with `env` ("NAME=value") on top of our environment, standard input from
// /dev/null, default signals and a process group of its own: the terminal's Ctrl-C is not for it.
// It dies when this process dies. Returns false, with the reason in `error`, when there can be no
// process; a program that cannot be run prints why and ends with status 127.
bool Child_Start(ChildProcess& child, const std::vector<std::string>& args,
                 const std::vector<std::string>& env, ChildOutput output, std::string& error);

// Whether it runs still; sees the end. Does not wait.
bool Child_Runs(ChildProcess& child);

// How it ended, in words: "ended with status 2", "was killed by signal 11 (Segmentation fault)".
std::string Child_EndText(const ChildProcess& child);

// Ends it, gently at first, waits for the end and closes the pipes. For one that never started or
// has ended, too.
void Child_Stop(ChildProcess& child);

#endif
