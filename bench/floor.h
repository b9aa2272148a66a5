// The floor under a reading: the same calls of the platform, OpenCV and zbar, in the same order and
// with the same arguments, written out one after the other and without the service's functions.
// What a reading takes beyond this is the service's own.
//
// The remapping tables are made once, before: to fill them is the service's own work.
#ifndef BENCH_FLOOR_H
#define BENCH_FLOOR_H

enum FloorStep {
    FLOOR_SNAPSHOT, // picture buffer zeroed, platform calls, stream copied
    FLOOR_DECODE,
    FLOOR_MIRROR,
    FLOOR_GREY,
    FLOOR_PREPARE, // attempts 2 to 8
    FLOOR_OPEN,
    FLOOR_SCAN,
    FLOOR_STEPS
};

const char* Floor_StepName(FloorStep step);

// Microseconds that each step took in one reading.
struct FloorTimes {
    double aUs[FLOOR_STEPS] = {};
};

// Takes one reading. `szText` as in capture_decode.h; `pTimes`, unless null, gets the steps' times.
// Returns the length of the text, 0 for none, -1 when there was no picture.
int Floor_Reading(char* szText, FloorTimes* pTimes);

#endif
