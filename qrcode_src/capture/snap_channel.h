// The JPEG snapshot channel: one picture of the camera through the chip's hardware encoder.
//
// The encoder channel lives for exactly one snapshot. One reading calls, in this order and whatever
// each returned before:
//   zero the picture buffer; FaceVenc_StartSnap; zero the stream record;
//   FaceVenc_GetStream(SNAP_VENC_CHN, &stream, SNAP_WAIT_MS);
//   QrcodeVenc_CopyStreamData(&stream, picture);
//   FaceVenc_ReleaseStream(SNAP_VENC_CHN, &stream);
//   FaceVenc_DestroyChn(SNAP_VENC_CHN).
// Where a failed step leaves no picture, the picture buffer simply stays zero. The tear-down clears
// what the set-up left, unless the channel does not stop; then the next set-up is refused, and its
// later steps and tear-down act on the old channel. Behind it all stand the encoder (VENC) and the
// video processing unit (VPSS) of the media platform; another process must have video processing
// group 1, channel 0 running.
//
// Results: 0 for success, -1 for a failure of our own (and some of the platform's, as said below),
// otherwise the platform's code as it came. Failures print a line, of set-up, copy, release and
// tear-down on standard output, of the snapshot itself on standard error; its texts are fixed,
// misspellings and blanks included.
//
// Main thread only, one call at a time.
#ifndef QRCODE_SNAP_CHANNEL_H
#define QRCODE_SNAP_CHANNEL_H

#include <cstdint>

#include "media_platform.h"

enum {
    SNAP_VENC_CHN = 4,   // encoder channel
    SNAP_WIDTH = 400,    // pixels; does not follow the size of the video processing channel
    SNAP_HEIGHT = 400,   // pixels
    SNAP_QUALITY = 99,   // of the JPEG
    SNAP_WAIT_MS = 1000, // ms a reading waits for its picture
    // Bytes: the largest stream copied, and the size of the buffer.
    MAXFRAMERINBUF = 1920 * 1080
};

// Creates channel SNAP_VENC_CHN for one JPEG of SNAP_WIDTH x SNAP_HEIGHT and SNAP_QUALITY, binds it
// to video processing group 1, channel 0, and starts it; stores the size in nSnapWidth and
// nSnapHeight. Returns 0, or -1 on any failure; what was made by then is left to
// FaceVenc_DestroyChn (a failed start has called it already).
int FaceVenc_StartSnap();

// The steps of FaceVenc_StartSnap. Sizes in pixels, nQuality 1..99.
int FaceVenc_CreateChn(int nVencChn, uint32_t nWidth, uint32_t nHeight); // 0 or the platform's code
int FaceVenc_SetJpegParam(int nVencChn, uint32_t nQuality);              // 0 or -1
int FaceVenc_BindVpss(int nVpssGrp, int nVpssChn, int nVencChn);         // 0 or -1

// Undoes FaceVenc_BindVpss. Returns 0 or -1.
int FaceVenc_UnBindVpss(int nVpssGrp, int nVpssChn, int nVencChn);

// Waits up to nWaitMs for the picture and fetches it into `pStream`, which the caller owns and has
// zeroed. Returns 0, -1 or the platform's code. After 0 the picture's bytes are valid until
// FaceVenc_ReleaseStream, and the pack array in the record stays allocated for good. After any
// other result there is no pack array: pPack is null, or as the caller left it.
int FaceVenc_GetStream(int nVencChn, MediaStream* pStream, int nWaitMs);

// Copies the valid bytes of all packs, end to end, to `pDst` of MAXFRAMERINBUF bytes. Returns the
// number of bytes copied: 0 for no packs or a null pack array. Returns -1, with nothing copied, for
// a null argument or when the full lengths of the packs, leading offsets included, come to more
// than MAXFRAMERINBUF; their sum must stay below 2^31.
int QrcodeVenc_CopyStreamData(const MediaStream* pStream, uint8_t* pDst);

// Gives the picture back to the platform; `pStream` as FaceVenc_GetStream left it. Returns 0 or the
// platform's code. Does not touch the pack array.
int FaceVenc_ReleaseStream(int nVencChn, MediaStream* pStream);

// Unbinds (a failure is printed and passed over), stops and destroys the channel. Returns 0 or the
// platform's code; a channel that does not stop is not destroyed.
int FaceVenc_DestroyChn(int nVencChn);

#endif
