#include "run_flags.h"

// Plain words, no lock: the relaxed builtins are one aligned load or store each, which the compiler
// may neither split, cache nor drop.
static uint32_t nScanMode;
static int32_t nScanEnable;

uint8_t Qrcode_SetScanMode(uint8_t nMode)
{
    if (__atomic_load_n(&nScanMode, __ATOMIC_RELAXED) != nMode) {
        __atomic_store_n(&nScanMode, static_cast<uint32_t>(nMode), __ATOMIC_RELAXED);
    }
    return nMode;
}

uint8_t Qrcode_GetScanMode()
{
    return static_cast<uint8_t>(__atomic_load_n(&nScanMode, __ATOMIC_RELAXED));
}

int32_t Qrcode_SetScanEnable(int32_t nEnable)
{
    if (__atomic_load_n(&nScanEnable, __ATOMIC_RELAXED) != nEnable) {
        __atomic_store_n(&nScanEnable, nEnable, __ATOMIC_RELAXED);
    }
    return nEnable;
}

int32_t Qrcode_GetScanEnable()
{
    return __atomic_load_n(&nScanEnable, __ATOMIC_RELAXED);
}
