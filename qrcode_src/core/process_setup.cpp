#include "process_setup.h"

#include <cstdio>
#include <opencv2/core/utility.hpp>
#ifdef __GLIBC__
#include <malloc.h>
#endif

// Bytes that the heap keeps: several times what a reading's pictures take (3 MB). More than that,
// taken for an enormous picture, goes back to the system.
enum { HEAP_KEPT_MAX = 16 << 20 };

// By default glibc gives the pictures' memory back when they are released, and every reading has
// some 280 pages faulted in anew.
static void KeepHeap()
{
#ifdef __GLIBC__
    mallopt(M_TRIM_THRESHOLD, HEAP_KEPT_MAX);
    if (mallopt(M_MMAP_THRESHOLD, HEAP_KEPT_MAX) == 0) {
        mallopt(M_MMAP_MAX, 0); // on 32 bits no threshold above 512 KiB is taken
    }
#endif
}

void Qrcode_SetUpProcess()
{
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    cv::setNumThreads(0);
    KeepHeap();
}
