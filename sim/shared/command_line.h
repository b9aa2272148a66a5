// The command line of the programs outside the service: CLI11, and one form of failure.
#ifndef SIM_COMMAND_LINE_H
#define SIM_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

enum {
    EXIT_FAILED = 1,
    EXIT_USAGE = 2 // wrong usage
};

// Adds --version and parses. Returns true to go on; false to end with `exitStatus`, after the help
// or what is wrong was printed.
inline bool CommandLine_Parse(CLI::App& app, int argc, char** argv, int& exitStatus)
{
    app.set_version_flag("--version", app.get_name() + " " QRCODE_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exitStatus = app.exit(error) == 0 ? 0 : EXIT_USAGE;
        return false;
    }
    return true;
}

// Runs a program's main part, which returns the status to exit with. An exception, of a library or
// for want of memory, is printed and ends with EXIT_FAILED; so does a status of 0 when the output
// cannot be written. With standard output closed nothing is run: what is opened next would take its
// place and get the output.
template <typename Run> int CommandLine_Guard(const char* name, Run run) noexcept
{
    try {
        const bool open = fcntl(STDOUT_FILENO, F_GETFD) != -1;
        const int status = open ? run() : EXIT_FAILED;
        if (!open || (status == 0 && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0))) {
            std::fprintf(stderr, "%s: the output cannot be written\n", name);
            return EXIT_FAILED;
        }
        return status;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: %s\n", name, exception.what());
        return EXIT_FAILED;
    }
}

#endif
