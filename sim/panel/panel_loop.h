// The panel at work: datagrams of the service, words on standard input, signals and the clock.
#ifndef SIM_PANEL_LOOP_H
#define SIM_PANEL_LOOP_H

#include "panel_options.h"

// Runs on the bound socket until the count, the time, "quit", SIGINT or SIGTERM ends it, and
// returns the status to exit with. The end of standard input does not end it. Takes over the two
// signals and SIGTTIN of the process; call once.
int Panel_Run(const PanelOptions& options, int fd);

#endif
