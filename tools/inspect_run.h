// qrcode-inspect from its options to its exit status.
#ifndef TOOLS_INSPECT_RUN_H
#define TOOLS_INSPECT_RUN_H

#include "inspect_options.h"

// Prints lines on standard output, faults and progress on standard error. Returns the exit status.
int Inspect_Run(const InspectOptions& options);

#endif
