#include "stop_signal.h"

#include <initializer_list>

namespace
{

volatile std::sig_atomic_t asked;
bool taken;
sigset_t waitMask;

void OnSignal(int)
{
    asked = 1;
}

} // namespace

void Stop_TakeSignals()
{
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigset_t stopping;
    sigemptyset(&stopping);
    sigprocmask(SIG_BLOCK, nullptr, &waitMask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(signal, nullptr, &before);
        if (signal == SIGHUP && before.sa_handler == SIG_IGN) {
            continue; // nohup
        }
        sigaddset(&stopping, signal);
        sigdelset(&waitMask, signal);
        sigaction(signal, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
    taken = true;
}

const sigset_t* Stop_WaitMask()
{
    return taken ? &waitMask : nullptr;
}

bool Stop_Asked()
{
    // A wait that finds something ready at once takes no signal: what is pending counts, too.
    sigset_t pending;
    sigpending(&pending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        asked = asked != 0 || (taken && sigismember(&pending, signal) == 1);
    }
    return asked != 0;
}
