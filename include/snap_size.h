/* The size of a snapshot in pixels, process-wide.
 *
 * Written (400, 400) by every FaceVenc_StartSnap just before it creates the encoder channel, read
 * by the same reading as the geometry of the picture it decodes; 0 before the first snapshot. Main
 * thread only.
 */
#ifndef QRCODE_SNAP_SIZE_H
#define QRCODE_SNAP_SIZE_H

#include <stdint.h>

extern uint32_t nSnapWidth;
extern uint32_t nSnapHeight;

#endif
