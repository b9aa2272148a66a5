// Any platform results, descriptors and pack layouts to the capture cycle. The platform here keeps
// what the service counts on: addresses valid for the packs' lengths, whose sum is below 2^31.
#include <algorithm>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/eventfd.h>
#include <vector>

#include "media_platform.h"
#include "snap_channel.h"

namespace
{

enum { PACKS_MAX = 64, PACK_MAX = MAXFRAMERINBUF / 2 + 9, WAIT_MS = 1, CYCLES = 4 };

FuzzedDataProvider* theInput;
const int ready = eventfd(1, 0), idle = eventfd(0, 0); // always and never readable
std::vector<std::vector<uint8_t>> packs;
size_t full;              // bytes of all packs
std::vector<uint8_t> due; // ... behind their offsets, end to end

int Result()
{
    return theInput->ConsumeBool() ? 0 : theInput->ConsumeIntegral<int>();
}

} // namespace

// clang-format off
extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
int HI_MPI_VPSS_GetChnAttr(int, int, MediaVpssChnAttr*) { return Result(); }
int HI_MPI_VENC_CreateChn(int, const MediaVencChnAttr*) { return Result(); }
int HI_MPI_VENC_DestroyChn(int) { return Result(); }
int HI_MPI_VENC_GetJpegParam(int, MediaJpegParam*) { return Result(); }
int HI_MPI_VENC_SetJpegParam(int, const MediaJpegParam*) { return Result(); }
int HI_MPI_SYS_Bind(const MediaEndpoint*, const MediaEndpoint*) { return Result(); }
int HI_MPI_SYS_UnBind(const MediaEndpoint*, const MediaEndpoint*) { return Result(); }
int HI_MPI_VENC_StartRecvFrame(int, const MediaRecvParam*) { return Result(); }
int HI_MPI_VENC_StopRecvFrame(int) { return Result(); }
int HI_MPI_VENC_ReleaseStream(int, MediaStream*) { return Result(); }
int HI_MPI_VENC_GetFd(int) { return theInput->PickValueInArray({ready, ready, idle, -5, 999, 1024}); }
// clang-format on
int HI_MPI_VENC_QueryStatus(int, MediaVencStatus* status)
{
    const uint32_t few = theInput->ConsumeIntegral<uint8_t>() % PACKS_MAX;
    status->nCurPacks = theInput->ConsumeBool() ? few : theInput->ConsumeIntegral<uint32_t>();
    return Result();
}
int HI_MPI_VENC_GetStream(int, MediaStream* stream, int)
{
    const bool refused = stream->nPacks > PACKS_MAX || Result() != 0;
    for (uint32_t i = 0; !refused && i < stream->nPacks; ++i) {
        MediaPack& pack = stream->pPack[i];
        pack.nLen = theInput->ConsumeIntegralInRange<uint32_t>(0, PACK_MAX);
        pack.nOffset =
            theInput->ConsumeIntegral<uint32_t>() >> theInput->ConsumeIntegral<uint8_t>() % 32;
        packs.emplace_back(pack.nLen, i + 1);
        pack.pAddr = packs.back().data();
        full += pack.nLen;
        due.insert(due.end(), pack.nLen - std::min(pack.nLen, pack.nOffset), i + 1);
    }
    return refused ? -1 : 0;
}
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider input(data, size);
    theInput = &input;
    static uint8_t picture[MAXFRAMERINBUF + 1];
    for (int i = 0; i < CYCLES; ++i) {
        picture[MAXFRAMERINBUF] = 'x';
        packs.clear();
        due.clear();
        full = 0;
        FaceVenc_StartSnap();
        MediaStream stream = {};
        const bool fetched = FaceVenc_GetStream(SNAP_VENC_CHN, &stream, WAIT_MS) == 0;
        const int copied = QrcodeVenc_CopyStreamData(&stream, picture);
        FaceVenc_ReleaseStream(SNAP_VENC_CHN, &stream);
        FaceVenc_DestroyChn(SNAP_VENC_CHN);
        const int dueBytes = full > MAXFRAMERINBUF ? -1 : static_cast<int>(due.size());
        const bool same = dueBytes < 0 || std::equal(due.begin(), due.end(), picture);
        if (!same || copied != dueBytes || fetched == (stream.pPack == nullptr) ||
            picture[MAXFRAMERINBUF] != 'x') {
            std::abort();
        }
        std::free(stream.pPack); // the service keeps it
    }
    return 0;
}
