/* The two run flags that the main application steers the scan loop with.
 *
 * Written by the command dispatcher on the listening thread, read by the scan loop on the main
 * thread. Each is one aligned 32-bit word, 0 at process start; every access is a single load or
 * store without a lock, so any thread may call any of these at any time. The two words are
 * independent: nothing orders a change of one against a change of the other.
 */
#ifndef QRCODE_RUN_FLAGS_H
#define QRCODE_RUN_FLAGS_H

#include <stdint.h>

/* Scanning mode, 0..255; QRCODE_MODE_NEVER and QRCODE_MODE_FROZEN in message.h have a meaning of
 * their own. Set stores only a value that differs, and returns its argument. */
uint8_t Qrcode_SetScanMode(uint8_t nMode);
uint8_t Qrcode_GetScanMode();

/* Scan enable: exactly 1 means that the scan loop takes readings, any other value that it idles;
 * the dispatcher writes only 1 and 0. Set stores only a value that differs, and returns its
 * argument. */
int32_t Qrcode_SetScanEnable(int32_t nEnable);
int32_t Qrcode_GetScanEnable();

#endif
