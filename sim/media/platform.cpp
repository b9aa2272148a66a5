// The 13 operations of the media platform over a scene of pictures.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "camera_picture.h"
#include "media_platform.h"
#include "sim_platform.h"

namespace
{

const std::array<const char*, SIM_OPS> OPERATION_NAMES = {
    "HI_MPI_VPSS_GetChnAttr",    "HI_MPI_VENC_CreateChn",   "HI_MPI_VENC_GetJpegParam",
    "HI_MPI_VENC_SetJpegParam",  "HI_MPI_SYS_Bind",         "HI_MPI_VENC_StartRecvFrame",
    "HI_MPI_VENC_GetFd",         "HI_MPI_VENC_QueryStatus", "HI_MPI_VENC_GetStream",
    "HI_MPI_VENC_ReleaseStream", "HI_MPI_SYS_UnBind",       "HI_MPI_VENC_StopRecvFrame",
    "HI_MPI_VENC_DestroyChn"};

enum {
    VPSS_GROUP = 1,
    VPSS_CHANNEL = 0,
    DEFAULT_QUALITY = 90,
    DEFAULT_MCU_PER_ECS = 50,
    MAX_SIDE = 8192,     // pixels
    SKIPPED_BYTE = 0xEE, // what stands in the leading bytes of a pack: nothing of a JPEG
    MAX_VIEW_MS = 3600000
};
const uint32_t ERROR_BASE = 0xA0000000U;

enum class Picture { none, awaited, ready, fetched };

// An encoder channel. It is absent, or created; then bound, receiving, with a picture ready.
struct Channel {
    bool created = false;
    bool bound = false;
    bool receiving = false;
    int picturesLeft = 0;
    Picture picture = Picture::none;
    int64_t dueNs = 0; // when the awaited picture gets ready, CLOCK_MONOTONIC
    int timer = -1;    // the channel's descriptor: a timer that expires when the picture is ready
    MediaVencChnAttr attr{};
    MediaJpegParam jpeg{};
    MediaPack* lentPacks = nullptr;          // the record that the fetched picture was given in
    std::vector<std::vector<uint8_t>> packs; // the stream buffer
    std::vector<SimPackLayout> layout;
};

struct EncodedFrame {
    uint64_t id = 0;
    uint32_t quality = 0;
    std::vector<uint8_t> jpeg;
};

struct Platform {
    std::array<Channel, SIM_CHANNELS> channels;
    int64_t lastFrameNs = 0;
    EncodedFrame encoded; // the last one; a picture on view is encoded once
    SimScript script;
    bool keepCalls = false;
    std::vector<SimCall> calls;
};

Platform& ThePlatform()
{
    static Platform platform;
    return platform;
}

int64_t NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Runs one operation: keeps the call when asked to, lets a scripted fault answer in its place.
template <typename Act>
int Call(SimOp op, std::vector<int> numbers, std::vector<uint8_t> record, Act act)
{
    Platform& platform = ThePlatform();
    const auto fault = platform.script.faults.find(OPERATION_NAMES[op]);
    const bool faulty = fault != platform.script.faults.end() && fault->second.calls != 0;
    if (faulty && fault->second.calls > 0) {
        --fault->second.calls;
    }
    const int result = faulty ? fault->second.code : act();
    if (platform.keepCalls) {
        platform.calls.push_back({op, std::move(numbers), std::move(record), result});
    }
    return result;
}

template <typename Record> std::vector<uint8_t> Bytes(const Record* record)
{
    if (record == nullptr || !ThePlatform().keepCalls) {
        return {};
    }
    const auto* const first = reinterpret_cast<const uint8_t*>(record);
    return {first, first + sizeof(*record)};
}

// The channel of that number if it was created.
Channel* Created(int number)
{
    if (number < 0 || number >= SIM_CHANNELS) {
        return nullptr;
    }
    Channel& channel = ThePlatform().channels[static_cast<size_t>(number)];
    return channel.created ? &channel : nullptr;
}

void ArmTimer(Channel& channel, int64_t dueNs)
{
    itimerspec when{};
    when.it_value.tv_sec = dueNs / 1000000000;
    when.it_value.tv_nsec = dueNs % 1000000000;
    timerfd_settime(channel.timer, TFD_TIMER_ABSTIME, &when, nullptr);
}

void DisarmTimer(Channel& channel)
{
    const itimerspec never{};
    timerfd_settime(channel.timer, 0, &never, nullptr); // no longer readable either
}

// Lets the channel wait for its next picture, no sooner than the frame rate allows.
void AwaitPicture(Channel& channel)
{
    Platform& platform = ThePlatform();
    channel.picture = Picture::awaited;
    const int64_t nextFrameNs = platform.lastFrameNs + int64_t{platform.script.frameMs} * 1000000;
    channel.dueNs = std::max(NowNs(), nextFrameNs);
    if (!platform.script.pictureNever) {
        ArmTimer(channel, channel.dueNs);
    }
}

std::vector<uint8_t> EncodeNext(const Channel& channel)
{
    Platform& platform = ThePlatform();
    if (platform.script.hasJpeg) {
        return platform.script.jpeg;
    }
    const SimFrame frame = Sim_NextFrame(static_cast<int>(channel.attr.Encode.nPicWidth),
                                         static_cast<int>(channel.attr.Encode.nPicHeight));
    EncodedFrame& encoded = platform.encoded;
    if (encoded.id != frame.id || encoded.quality != channel.jpeg.nQuality) {
        encoded.jpeg = Sim_EncodeFrame(frame.pixels, static_cast<int>(channel.jpeg.nQuality));
        encoded.id = frame.id;
        encoded.quality = channel.jpeg.nQuality;
    }
    return encoded.jpeg;
}

// Lays the stream out in packs as scripted.
void FillPacks(Channel& channel, const std::vector<uint8_t>& jpeg)
{
    channel.layout = ThePlatform().script.packs;
    channel.packs.clear();
    size_t taken = 0;
    for (const SimPackLayout& layout : channel.layout) {
        const size_t left = jpeg.size() - taken;
        const size_t valid = layout.rest ? left : std::min<size_t>(layout.valid, left);
        std::vector<uint8_t> bytes(layout.skip, uint8_t{SKIPPED_BYTE});
        const auto from = jpeg.begin() + static_cast<std::ptrdiff_t>(taken);
        bytes.insert(bytes.end(), from, from + static_cast<std::ptrdiff_t>(valid));
        channel.packs.push_back(std::move(bytes));
        taken += valid;
    }
}

// Makes the awaited picture ready when its time has come.
void LookForPicture(Channel& channel)
{
    Platform& platform = ThePlatform();
    if (channel.picture != Picture::awaited || platform.script.pictureNever || !channel.bound ||
        NowNs() < channel.dueNs) {
        return;
    }
    platform.lastFrameNs = NowNs();
    FillPacks(channel, EncodeNext(channel));
    channel.picture = Picture::ready;
    --channel.picturesLeft;
}

// Waits for the picture; negative: without limit.
void WaitForPicture(Channel& channel, int waitMs)
{
    LookForPicture(channel);
    if (channel.picture == Picture::awaited && waitMs != 0) {
        pollfd ready = {channel.timer, POLLIN, 0};
        while (poll(&ready, 1, waitMs) < 0 && errno == EINTR) {
        }
        LookForPicture(channel);
    }
}

void Destroy(Channel& channel)
{
    if (channel.timer >= 0) {
        close(channel.timer);
    }
    channel = Channel();
}

bool AttributesMakeSense(const MediaVencChnAttr& attr)
{
    const MediaEncodeAttr& encode = attr.Encode;
    return encode.nPayloadType == MEDIA_PAYLOAD_JPEG && encode.nPicWidth > 0 &&
           encode.nPicHeight > 0 && encode.nPicWidth <= encode.nMaxWidth &&
           encode.nPicHeight <= encode.nMaxHeight && encode.nMaxWidth <= MAX_SIDE &&
           encode.nMaxHeight <= MAX_SIDE &&
           encode.nBufSize >= encode.nMaxWidth * encode.nMaxHeight &&
           encode.Jpeg.nLargeThumbnails <= 2;
}

bool IsCamera(const MediaEndpoint* src)
{
    return src != nullptr && src->nModule == MEDIA_MOD_VPSS && src->nDevice == VPSS_GROUP &&
           src->nChannel == VPSS_CHANNEL;
}

bool IsEncoder(const MediaEndpoint* dst)
{
    return dst != nullptr && dst->nModule == MEDIA_MOD_VENC && dst->nDevice == 0;
}

std::vector<uint8_t> BytesOfBoth(const MediaEndpoint* src, const MediaEndpoint* dst)
{
    std::vector<uint8_t> bytes = Bytes(src);
    const std::vector<uint8_t> more = Bytes(dst);
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

[[noreturn]] void RefuseStart(const std::string& error)
{
    std::fprintf(stderr, "sim: %s\n", error.c_str());
    std::_Exit(2);
}

std::string Environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool SetUpFromEnvironment()
{
    std::string error;
    long viewMs = SIM_VIEW_MS;
    const std::string view = Environment("QRCODE_SIM_VIEW_MS");
    if (!view.empty()) {
        char* end = nullptr;
        viewMs = std::strtol(view.c_str(), &end, 10);
        if (*end != '\0' || viewMs < 1 || viewMs > MAX_VIEW_MS) {
            RefuseStart("QRCODE_SIM_VIEW_MS=" + view + ": not a number of ms from 1 to " +
                        std::to_string(MAX_VIEW_MS));
        }
    }
    const std::string scriptPath = Environment("QRCODE_SIM_SCRIPT");
    if (!scriptPath.empty()) {
        std::string text;
        SimScript script;
        if (!Sim_ReadFile(scriptPath, text)) {
            RefuseStart("script " + scriptPath + ": cannot be read");
        }
        if (!Sim_ParseScript(text, script, error)) {
            RefuseStart("script " + scriptPath + ": " + error);
        }
        Sim_SetScript(script);
    }
    const std::string scene = Environment("QRCODE_SIM_SCENE");
    const std::string events = Environment("QRCODE_SIM_EVENTS");
    if (scene.empty() && !(view.empty() && events.empty())) {
        RefuseStart("QRCODE_SIM_VIEW_MS and QRCODE_SIM_EVENTS want a QRCODE_SIM_SCENE");
    }
    if (!scene.empty() && !Sim_OpenScene(scene, static_cast<int>(viewMs), events, error)) {
        RefuseStart(error);
    }
    return true;
}

// Before main, so that a scene that does not exist stops the start.
const bool setUp = SetUpFromEnvironment();

} // namespace

const char* Sim_OperationName(SimOp op)
{
    return OPERATION_NAMES.at(op);
}

bool Sim_IsOperation(const std::string& name)
{
    return std::find(OPERATION_NAMES.begin(), OPERATION_NAMES.end(), name) != OPERATION_NAMES.end();
}

int Sim_Error(SimOp op, SimReason reason)
{
    return static_cast<int>(ERROR_BASE | (static_cast<uint32_t>(op) << 8) |
                            static_cast<uint32_t>(reason));
}

void Sim_SetScript(const SimScript& script)
{
    ThePlatform().script = script;
    for (Channel& channel : ThePlatform().channels) { // pictures may come again, or no longer
        if (channel.created && channel.bound && channel.picture == Picture::awaited) {
            if (script.pictureNever) {
                DisarmTimer(channel);
            } else {
                ArmTimer(channel, channel.dueNs);
            }
        }
    }
}

void Sim_KeepCalls(bool keep)
{
    ThePlatform().keepCalls = keep;
    ThePlatform().calls.clear();
}

const std::vector<SimCall>& Sim_Calls()
{
    return ThePlatform().calls;
}

void Sim_Reset()
{
    for (Channel& channel : ThePlatform().channels) {
        Destroy(channel);
    }
    Sim_CloseScene();
    Sim_SetScript(SimScript());
    Sim_KeepCalls(false);
}

int HI_MPI_VPSS_GetChnAttr(int nGroup, int nVpssChn, MediaVpssChnAttr* pAttr)
{
    const SimOp op = SIM_VPSS_GETCHNATTR;
    return Call(op, {nGroup, nVpssChn}, {}, [&] {
        if (pAttr == nullptr) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        if (nGroup != VPSS_GROUP || nVpssChn != VPSS_CHANNEL) {
            return Sim_Error(op, SIM_ABSENT);
        }
        *pAttr = MediaVpssChnAttr{};
        pAttr->nWidth = SIM_VPSS_WIDTH;
        pAttr->nHeight = SIM_VPSS_HEIGHT;
        return 0;
    });
}

int HI_MPI_VENC_CreateChn(int nVencChn, const MediaVencChnAttr* pAttr)
{
    const SimOp op = SIM_VENC_CREATECHN;
    return Call(op, {nVencChn}, Bytes(pAttr), [&] {
        if (nVencChn < 0 || nVencChn >= SIM_CHANNELS || pAttr == nullptr ||
            !AttributesMakeSense(*pAttr)) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        Channel& channel = ThePlatform().channels[static_cast<size_t>(nVencChn)];
        if (channel.created) {
            return Sim_Error(op, SIM_EXISTS);
        }
        channel.timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        if (channel.timer < 0) {
            return Sim_Error(op, SIM_NO_RESOURCE);
        }
        channel.created = true;
        channel.attr = *pAttr;
        channel.jpeg.nQuality = DEFAULT_QUALITY;
        channel.jpeg.nMcuPerEcs = DEFAULT_MCU_PER_ECS;
        for (auto& table : channel.jpeg.aQuantTable) { // any tables: what matters is that they stay
            std::fill(std::begin(table), std::end(table), uint8_t{16});
        }
        return 0;
    });
}

int HI_MPI_VENC_DestroyChn(int nVencChn)
{
    const SimOp op = SIM_VENC_DESTROYCHN;
    return Call(op, {nVencChn}, {}, [&] {
        Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (channel->receiving || channel->bound) {
            return Sim_Error(op, SIM_WRONG_ORDER);
        }
        Destroy(*channel);
        return 0;
    });
}

int HI_MPI_VENC_GetJpegParam(int nVencChn, MediaJpegParam* pParam)
{
    const SimOp op = SIM_VENC_GETJPEGPARAM;
    return Call(op, {nVencChn}, {}, [&] {
        const Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (pParam == nullptr) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        *pParam = channel->jpeg;
        return 0;
    });
}

int HI_MPI_VENC_SetJpegParam(int nVencChn, const MediaJpegParam* pParam)
{
    const SimOp op = SIM_VENC_SETJPEGPARAM;
    return Call(op, {nVencChn}, Bytes(pParam), [&] {
        Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (pParam == nullptr || pParam->nQuality < 1 || pParam->nQuality > 99) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        channel->jpeg = *pParam;
        return 0;
    });
}

int HI_MPI_SYS_Bind(const MediaEndpoint* pSrc, const MediaEndpoint* pDst)
{
    const SimOp op = SIM_SYS_BIND;
    return Call(op, {}, BytesOfBoth(pSrc, pDst), [&] {
        if (!IsCamera(pSrc) || !IsEncoder(pDst)) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        Channel* const channel = Created(pDst->nChannel);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (channel->bound) {
            return Sim_Error(op, SIM_EXISTS);
        }
        channel->bound = true;
        return 0;
    });
}

int HI_MPI_SYS_UnBind(const MediaEndpoint* pSrc, const MediaEndpoint* pDst)
{
    const SimOp op = SIM_SYS_UNBIND;
    return Call(op, {}, BytesOfBoth(pSrc, pDst), [&] {
        if (!IsCamera(pSrc) || !IsEncoder(pDst)) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        Channel* const channel = Created(pDst->nChannel);
        if (channel == nullptr || !channel->bound) {
            return Sim_Error(op, SIM_ABSENT);
        }
        channel->bound = false;
        DisarmTimer(*channel); // no picture comes any more
        return 0;
    });
}

int HI_MPI_VENC_StartRecvFrame(int nVencChn, const MediaRecvParam* pParam)
{
    const SimOp op = SIM_VENC_STARTRECVFRAME;
    return Call(op, {nVencChn}, Bytes(pParam), [&] {
        Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (pParam == nullptr || pParam->nPictures < 1) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        if (!channel->bound || channel->receiving) {
            return Sim_Error(op, SIM_WRONG_ORDER);
        }
        channel->receiving = true;
        channel->picturesLeft = pParam->nPictures;
        AwaitPicture(*channel);
        return 0;
    });
}

int HI_MPI_VENC_StopRecvFrame(int nVencChn)
{
    const SimOp op = SIM_VENC_STOPRECVFRAME;
    return Call(op, {nVencChn}, {}, [&] {
        Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        channel->receiving = false; // also when it was not: stopping twice does no harm
        channel->picture = Picture::none;
        DisarmTimer(*channel);
        return 0;
    });
}

int HI_MPI_VENC_GetFd(int nVencChn)
{
    const SimOp op = SIM_VENC_GETFD;
    return Call(op, {nVencChn}, {}, [&] {
        const Channel* const channel = Created(nVencChn);
        return channel != nullptr ? channel->timer : Sim_Error(op, SIM_ABSENT);
    });
}

int HI_MPI_VENC_QueryStatus(int nVencChn, MediaVencStatus* pStatus)
{
    const SimOp op = SIM_VENC_QUERYSTATUS;
    return Call(op, {nVencChn}, {}, [&] {
        Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (pStatus == nullptr) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        LookForPicture(*channel);
        *pStatus = MediaVencStatus{};
        if (channel->picture == Picture::ready && !ThePlatform().script.pictureNone) {
            pStatus->nCurPacks = static_cast<uint32_t>(channel->packs.size());
        }
        return 0;
    });
}

int HI_MPI_VENC_GetStream(int nVencChn, MediaStream* pStream, int nWaitMs)
{
    const SimOp op = SIM_VENC_GETSTREAM;
    return Call(op, {nVencChn, nWaitMs}, Bytes(pStream), [&] {
        Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (!channel->receiving || channel->picture == Picture::fetched) {
            return Sim_Error(op, SIM_WRONG_ORDER);
        }
        WaitForPicture(*channel, nWaitMs);
        if (channel->picture != Picture::ready) {
            return Sim_Error(op, SIM_NO_PICTURE);
        }
        if (pStream == nullptr || pStream->pPack == nullptr ||
            pStream->nPacks < channel->packs.size()) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        for (size_t i = 0; i < channel->packs.size(); ++i) {
            MediaPack& pack = pStream->pPack[i];
            pack = MediaPack{};
            pack.pAddr = channel->packs[i].data();
            pack.nLen = static_cast<uint32_t>(channel->packs[i].size());
            pack.nOffset = channel->layout[i].skip;
        }
        pStream->nPacks = static_cast<uint32_t>(channel->packs.size());
        channel->lentPacks = pStream->pPack;
        channel->picture = Picture::fetched;
        DisarmTimer(*channel);
        return 0;
    });
}

int HI_MPI_VENC_ReleaseStream(int nVencChn, MediaStream* pStream)
{
    const SimOp op = SIM_VENC_RELEASESTREAM;
    return Call(op, {nVencChn}, Bytes(pStream), [&] {
        Channel* const channel = Created(nVencChn);
        if (channel == nullptr) {
            return Sim_Error(op, SIM_ABSENT);
        }
        if (pStream == nullptr) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        if (channel->picture != Picture::fetched) {
            return Sim_Error(op, SIM_WRONG_ORDER);
        }
        if (pStream->pPack != channel->lentPacks || pStream->nPacks != channel->packs.size()) {
            return Sim_Error(op, SIM_BAD_ARGUMENT);
        }
        // The stream buffer is the encoder's again: what is read through it from now on is wrong.
        for (std::vector<uint8_t>& pack : channel->packs) {
            std::fill(pack.begin(), pack.end(), uint8_t{SKIPPED_BYTE});
        }
        channel->picture = Picture::none;
        if (channel->picturesLeft > 0) {
            AwaitPicture(*channel);
        }
        return 0;
    });
}
