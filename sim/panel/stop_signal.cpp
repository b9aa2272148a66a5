#include "stop_signal.h"

#include <initializer_list>

static volatile std::sig_atomic_t g_bAsked;

static void OnSignal(int)
{
    g_bAsked = 1;
}

sigset_t Stop_TakeSignals()
{
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigset_t stopping;
    sigemptyset(&stopping);
    sigset_t waitMask;
    sigprocmask(SIG_BLOCK, nullptr, &waitMask);
    for (const int signal : {SIGINT, SIGTERM}) {
        sigaddset(&stopping, signal);
        sigdelset(&waitMask, signal);
        sigaction(signal, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
    return waitMask;
}

bool Stop_Asked()
{
    return g_bAsked != 0;
}
