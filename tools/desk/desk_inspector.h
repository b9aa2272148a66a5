// The desk's own reading of what is before the camera, with the service's code, in a process of its
// own.
#ifndef TOOLS_DESK_INSPECTOR_H
#define TOOLS_DESK_INSPECTOR_H

#include <string>

// The sixteen pictures of the reading inspected last, 400 x 400 each, in a folder's file: attempt
// n, 1 to 8, in column (n - 1) % 4 and row 2 * ((n - 1) / 4), its opened twin below it.
const char TILES_FILE[] = "tiles.jpg";

// The inspector's life: a line on standard input names a picture's file in the folder; what is read
// of it comes on standard output, one line of JSON, once its tiles are in the folder: as
// qrcode-inspect --json has it, and "findings", what was found in each of them, in the order of the
// scans. Each picture is read by a child that may die of it. Ends with the input. Returns the
// status to exit with.
int Inspector_Run(const std::string& folder);

#endif
