// Any platform results, descriptors and pack layouts to the capture cycle. The platform here keeps
// what the service counts on: addresses valid for the packs' lengths, whose sum is below 2^31.
#include <algorithm>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/eventfd.h>
#include <vector>

#include "media_platform.h"
#include "snap_channel.h"

enum { PACKS_MAX = 64, PACK_MAX = MAXFRAMERINBUF / 2 + 9, WAIT_MS = 1, CYCLES = 4 };

static FuzzedDataProvider* g_input;
static const int g_ready = eventfd(1, 0), g_idle = eventfd(0, 0); // always and never readable
static std::vector<std::vector<uint8_t>> g_packs;
static size_t g_full;              // bytes of all packs
static std::vector<uint8_t> g_due; // ... behind their offsets, end to end

static int Result()
{
    return g_input->ConsumeBool() ? 0 : g_input->ConsumeIntegral<int>();
}

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
int HI_MPI_VENC_GetFd(int) { return g_input->PickValueInArray({g_ready, g_ready, g_idle, -5, 999, 1024}); }
// clang-format on
int HI_MPI_VENC_QueryStatus(int, MediaVencStatus* pStatus)
{
    const uint32_t nFew = g_input->ConsumeIntegral<uint8_t>() % PACKS_MAX;
    pStatus->nCurPacks = g_input->ConsumeBool() ? nFew : g_input->ConsumeIntegral<uint32_t>();
    return Result();
}
int HI_MPI_VENC_GetStream(int, MediaStream* pStream, int)
{
    const bool bRefused = pStream->nPacks > PACKS_MAX || Result() != 0;
    for (uint32_t i = 0; !bRefused && i < pStream->nPacks; ++i) {
        MediaPack& pack = pStream->pPack[i];
        pack.nLen = g_input->ConsumeIntegralInRange<uint32_t>(0, PACK_MAX);
        pack.nOffset =
            g_input->ConsumeIntegral<uint32_t>() >> g_input->ConsumeIntegral<uint8_t>() % 32;
        g_packs.emplace_back(pack.nLen, i + 1);
        pack.pAddr = g_packs.back().data();
        g_full += pack.nLen;
        g_due.insert(g_due.end(), pack.nLen - std::min(pack.nLen, pack.nOffset), i + 1);
    }
    return bRefused ? -1 : 0;
}
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider input(data, size);
    g_input = &input;
    static uint8_t picture[MAXFRAMERINBUF + 1];
    for (int i = 0; i < CYCLES; ++i) {
        picture[MAXFRAMERINBUF] = 'x';
        g_packs.clear();
        g_due.clear();
        g_full = 0;
        FaceVenc_StartSnap();
        MediaStream stream = {};
        const bool bFetched = FaceVenc_GetStream(SNAP_VENC_CHN, &stream, WAIT_MS) == 0;
        const int nCopied = QrcodeVenc_CopyStreamData(&stream, picture);
        FaceVenc_ReleaseStream(SNAP_VENC_CHN, &stream);
        FaceVenc_DestroyChn(SNAP_VENC_CHN);
        const int nDue = g_full > MAXFRAMERINBUF ? -1 : static_cast<int>(g_due.size());
        const bool bSame = nDue < 0 || std::equal(g_due.begin(), g_due.end(), picture);
        if (!bSame || nCopied != nDue || bFetched == (stream.pPack == nullptr) ||
            picture[MAXFRAMERINBUF] != 'x') {
            std::abort();
        }
        std::free(stream.pPack); // the service keeps it
    }
    return 0;
}
