// SIGINT, SIGTERM and SIGHUP as a question that a loop asks between its waits.
#ifndef SIM_STOP_SIGNAL_H
#define SIM_STOP_SIGNAL_H

#include <csignal>

// Takes the signals over, SIGINT and SIGTERM even where they were ignored; an ignored SIGHUP stays
// so (nohup). From now on they arrive only during ppoll with Stop_WaitMask(), which they interrupt.
// Call once.
void Stop_TakeSignals();

// The mask to wait with; null before Stop_TakeSignals.
const sigset_t* Stop_WaitMask();

// True once one has arrived.
bool Stop_Asked();

#endif
