// Our programs under test, started as they run here.
#ifndef TESTS_PROGRAMS_H
#define TESTS_PROGRAMS_H

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "program.h"

// The command with the emulator's words before it in a build for the device. (EMULATOR has them
// with "|" between, and is empty on the host.)
inline std::vector<std::string> Emulated(const std::vector<std::string>& command)
{
    std::vector<std::string> words;
    std::istringstream emulator(EMULATOR);
    for (std::string word; std::getline(emulator, word, '|');) {
        words.push_back(word);
    }
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

// Starts a program with a pipe as its standard input. That it cannot be started shows when it says
// nothing.
inline void StartProgram(Program& program, const std::vector<std::string>& command)
{
    ProgramOptions options;
    options.command = command;
    options.input = true;
    std::string ignored;
    program.Start(options, ignored);
}

// What a program printed until its end, standard output and error as one.
struct Ended {
    int status = -1; // -1 after a signal
    std::vector<std::string> lines;

    // Lines that hold `part`.
    int Lines(const std::string& part) const
    {
        return static_cast<int>(
            std::count_if(lines.begin(), lines.end(), [&part](const std::string& line) {
                return line.find(part) != std::string::npos;
            }));
    }
};

inline Ended EndOf(Program& program)
{
    Ended ended;
    for (std::string line; program.NextLine(line);) {
        ended.lines.push_back(line);
    }
    ended.status = program.Wait();
    return ended;
}

inline Ended RunProgram(const std::vector<std::string>& command)
{
    Program program;
    StartProgram(program, command);
    return EndOf(program);
}

#endif
