// SIGINT and SIGTERM as a question that a loop asks between its waits.
#ifndef SIM_STOP_SIGNAL_H
#define SIM_STOP_SIGNAL_H

#include <csignal>

// Takes the two signals over, even where they were ignored. From now on they arrive only during
// ppoll with the returned mask, which they interrupt. Call once.
sigset_t Stop_TakeSignals();

// Whether one has arrived.
bool Stop_Asked();

#endif
