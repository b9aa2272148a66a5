// One reading: snapshot, decoding, mirror, grey, and the cascade of prepared pictures.
#ifndef QRCODE_CAPTURE_DECODE_H
#define QRCODE_CAPTURE_DECODE_H

#include <cstdint>
#include <opencv2/core/mat.hpp>

// Takes one reading. `pUnused` is neither read nor written; callers pass the address of an integer.
// `szText` is the caller's buffer of QRCODE_TEXT_SIZE bytes, zeroed before the call; a text is
// written over its start without a terminator, at most QRCODE_TEXT_SIZE - 1 bytes of it.
//
// Returns the length in bytes of the last symbol's text, 1 or more; 0 when no attempt had any (see
// symbol_scan.h for what `szText` may hold then); -1 when there was no picture or none that
// decodes, with a line on standard output and `szText` untouched. Failures of the snapshot are
// printed by it; where they leave no picture they end here as -1.
//
// Blocks for the snapshot (up to SNAP_WAIT_MS for the picture to get ready, then until the platform
// has delivered it) and for at most 16 scans. Main thread only, not reentrant; keeps the picture
// buffer of MAXFRAMERINBUF (2,073,600) bytes on the stack. Exceptions of OpenCV and zbar pass to
// the caller.
int Qrcode_CaptureAndDecode(int* pUnused, char* szText);

// The step of a reading between the snapshot and the cascade, for callers that have a JPEG already.
// `pPicture` is a picture buffer of MAXFRAMERINBUF bytes with the JPEG at its start and zeros
// behind it. The decoder is shown nWidth * nHeight * 3 bytes of it (480,000 for a snapshot of
// 400 x 400 pixels), neither the stream's own length nor the whole buffer: a longer stream is cut
// there, and that is meant. Makes the picture that every attempt starts from: mirrored left to
// right, 8-bit grey, of the size that the JPEG's header says. Returns false when there is no
// picture in the bytes.
bool Qrcode_DecodeMirrorGrey(uint8_t* pPicture, uint32_t nWidth, uint32_t nHeight, cv::Mat& grey);

#endif
