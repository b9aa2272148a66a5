// One run of the demo.
#ifndef TOOLS_DEMO_SESSION_H
#define TOOLS_DEMO_SESSION_H

#include "demo_options.h"

// Starts the panel, then the service with the simulated camera, prints each picture's outcome and
// the summary on standard output, and stops both. Ends after every picture was shown once; a folder
// on a terminal, unless options.bOnce, goes on until SIGINT or SIGTERM. Returns the status to exit
// with. Takes over these two signals; call once.
int Demo_Run(const DemoOptions& options);

#endif
