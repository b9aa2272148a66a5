// The time that something takes.
#ifndef BENCH_STOPWATCH_H
#define BENCH_STOPWATCH_H

#include <chrono>

// Runs `act` once. Returns us.
template <typename Act> double Stopwatch_Us(Act&& act)
{
    const auto begin = std::chrono::steady_clock::now();
    act();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
        .count();
}

#endif
