// Waiting for an event, with a limit for the case that it never comes.
#ifndef TESTS_WAIT_H
#define TESTS_WAIT_H

#include <chrono>
#include <thread>

// Asks until `happened` says so. Returns false when it does not within 20 s, far beyond anything
// that a loaded machine needs.
template <typename Happened> bool WaitUntil(Happened happened)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!happened()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
