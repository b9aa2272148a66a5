// Waiting for an event, with a limit for the case that it never comes.
#ifndef SIM_WAIT_H
#define SIM_WAIT_H

#include <algorithm>
#include <chrono>
#include <thread>

// A moment in the future; `ms` may be 0 or less for one that is over.
class Deadline
{
public:
    explicit Deadline(int ms) : end_(Clock::now() + std::chrono::milliseconds(ms)) {}
    bool Over() const { return Clock::now() >= end_; }
    // ms until then, rounded up, 0 at least.
    int LeftMs() const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return static_cast<int>(std::max<long long>(left.count(), 0));
    }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end_;
};

// Asks every millisecond until `happened` says so. Returns false when it does not in `waitMs`; the
// default is far beyond anything that a loaded machine needs.
template <typename Happened> bool Wait_Until(Happened happened, int waitMs = 20000)
{
    const Deadline deadline(waitMs);
    while (!happened()) {
        if (deadline.Over()) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
