// One pass of the scan loop: a reading, and the result that may follow from it.
#ifndef QRCODE_SCAN_LOOP_H
#define QRCODE_SCAN_LOOP_H

#include "message.h"

// The scan loop's memory. main owns one for the life of the process, all zero before the first
// pass; used by the main thread alone.
struct ScanLoop {
    char szCurrent[QRCODE_TEXT_SIZE]; // this reading's text, zeroed before every reading
    char szLast[QRCODE_TEXT_SIZE];    // image of the last reading taken over, reported or not
    int nReserved;                    // its address goes to every reading; nothing looks at it
};

// Runs one pass. While scanning is not enabled: sleeps 1 s. Otherwise takes one reading (see
// capture_decode.h for its time) and sends the text to the main application if it is new and has
// QRCODE_TEXT_REPORT_MIN bytes or more. Returns without a pause, so that the caller loops.
void Qrcode_ScanPass(ScanLoop* pLoop);

#endif
