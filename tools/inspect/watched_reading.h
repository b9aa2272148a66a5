// One JPEG put through the service's own reading, and what happened on the way.
#ifndef TOOLS_WATCHED_READING_H
#define TOOLS_WATCHED_READING_H

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "message.h"
#include "scan_watch.h"

enum ReadingOutcome {
    READING_TEXT,          // reported is exactly the text of the code
    READING_ALTERED,       // one is reported, but not as one code's whole text: see the flaws
    READING_SHORT,         // a text of less than QRCODE_TEXT_REPORT_MIN bytes: never reported
    READING_NO_CODE,       // no attempt found a text
    READING_NOT_DECODABLE, // no picture in the JPEG
    READING_NO_PICTURE,    // no JPEG: the file is missing, empty, no picture or no snapshot
    READING_OUTCOMES
};

// What keeps a code's text from being reported as it is.
enum {
    FLAW_OVERLAID = 1, // several texts, written over one another
    FLAW_ZERO = 2,     // a zero byte in it: what stands before it counts
    FLAW_LONG = 4      // QRCODE_TEXT_SIZE bytes or more: the first ones count
};

enum { READING_NOTE_SIZE = 256, READING_TEXTS = 8, READING_SYMBOLOGY_SIZE = 24 };

// The text of one code, as the scanner gives it. Flat.
struct WatchedText {
    char symbology[READING_SYMBOLOGY_SIZE] = {};
    int bytes = 0;                    // of the whole text; zero bytes count
    char text[QRCODE_TEXT_SIZE] = {}; // the first of them
};

// Flat, so that it can cross a pipe.
struct WatchedReading {
    ReadingOutcome outcome = READING_NO_PICTURE;
    int attempt = 0;                          // the one that won, as in cascade.h; 0 for none
    bool opened = false;                      // it won by its second scan, after the opening
    int scans = 0;                            // scans made
    double ms = 0.0;                          // from the JPEG to the result, without the snapshot
    char text[QRCODE_TEXT_SIZE] = {};         // up to its first zero what the service would report
    int flaws = 0;                            // FLAW_...
    int textCount = 0;                        // different texts found in all scans, empty ones too
    WatchedText texts[READING_TEXTS];         // the last of them, in the order of their writing
    char symbologies[READING_NOTE_SIZE] = {}; // of the scan that won, ", " between
    char remark[READING_NOTE_SIZE] = {};      // why there is no picture, may be cut
};

// True when the main application is told a text, the code's own or another.
inline bool Reading_IsReported(const WatchedReading& reading)
{
    return reading.outcome == READING_TEXT || reading.outcome == READING_ALTERED;
}

// The JPEG that the simulated camera makes of a picture file. Returns false with the reason.
bool Reading_CameraJpeg(const std::string& path, std::vector<uint8_t>& jpeg, std::string& error);

// The bytes of a snapshot that was saved as a file; anything behind the JPEG is allowed. Returns
// false with the reason, also for a file that is no JPEG or not of a snapshot's size.
bool Reading_SavedJpeg(const std::string& path, std::vector<uint8_t>& jpeg, std::string& error);

// Judges a reading by its scans: which texts were found in what order, and, when a scan `won`, what
// of them is in `reading.text`. Sets texts, flaws and, when one won, the outcome.
void Reading_Judge(const std::vector<WatchedScan>& scans, bool won, WatchedReading& reading);

// Reads a JPEG as the service reads the stream of a snapshot with these bytes, its limits included.
// `grey` receives the picture that every attempt starts from; it is empty when there is none.
// Exceptions of OpenCV and zbar, which end the service, are READING_NOT_DECODABLE here; so is
// running out of memory.
WatchedReading Reading_Take(const std::vector<uint8_t>& jpeg, cv::Mat& grey);

#endif
