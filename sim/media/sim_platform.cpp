// The 13 operations of the media platform over a scene of pictures, and their control.
#include "sim_platform.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "camera_picture.h"
#include "file_stamp.h"
#include "media_platform.h"

namespace
{

enum {
    VPSS_GROUP = 1,
    VPSS_CHANNEL = 0,
    MAX_SIDE = 8192, // pixels
    DEFAULT_QUALITY = 90,
    DEFAULT_MCU_PER_ECS = 50,
    DEFAULT_QUANT = 16 // any value: what matters is that the tables come back as they went
};

const uint32_t ERROR_BASE = 0xA0000000U;

const std::array<const char*, SIM_OPS> OPERATION_NAMES = {
    "HI_MPI_VPSS_GetChnAttr",    "HI_MPI_VENC_CreateChn",   "HI_MPI_VENC_GetJpegParam",
    "HI_MPI_VENC_SetJpegParam",  "HI_MPI_SYS_Bind",         "HI_MPI_VENC_StartRecvFrame",
    "HI_MPI_VENC_GetFd",         "HI_MPI_VENC_QueryStatus", "HI_MPI_VENC_GetStream",
    "HI_MPI_VENC_ReleaseStream", "HI_MPI_SYS_UnBind",       "HI_MPI_VENC_StopRecvFrame",
    "HI_MPI_VENC_DestroyChn"};

// Before main, so that a scene that does not exist stops the start.
const bool setUp = Sim_SetUp();

enum class ChannelPicture { NONE, AWAITED, READY, FETCHED };

// An encoder channel. It is absent, or created; then bound, receiving, with a picture ready.
struct EncoderChannel {
    bool created = false;
    bool bound = false;
    bool receiving = false;
    int picturesLeft = 0;
    ChannelPicture picture = ChannelPicture::NONE;
    int64_t dueNs = 0; // when the awaited picture becomes ready, CLOCK_MONOTONIC
    int timer = -1;    // the channel's descriptor: a timer that expires when the picture is ready
    MediaVencChnAttr attr{};
    MediaJpegParam jpeg{};
    MediaPack* lentPacks = nullptr;          // the record that the fetched picture was given in
    std::vector<std::vector<uint8_t>> packs; // the stream buffer
    std::vector<SimPackLayout> layout;
};

struct SimState {
    std::array<EncoderChannel, SIM_CHANNELS> channels;
    int64_t lastFrameNs = 0;
    SimScript script;
    std::string scriptPath;     // where it is followed, or empty
    FileStamp scriptStamp = {}; // of none yet
    bool keepCalls = false;
    std::vector<SimCall> calls;
    // The frame encoded last: a picture on view is encoded once.
    uint64_t encodedId = 0;
    uint32_t encodedQuality = 0;
    std::vector<uint8_t> encodedJpeg;
};

SimState& State()
{
    static SimState state;
    return state;
}

int64_t NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The channel's descriptor becomes readable then, CLOCK_MONOTONIC; never for 0.
void SetTimer(const EncoderChannel& channel, int64_t ns)
{
    itimerspec when{};
    when.it_value.tv_sec = ns / 1000000000;
    when.it_value.tv_nsec = ns % 1000000000;
    timerfd_settime(channel.timer, TFD_TIMER_ABSTIME, &when, nullptr);
}

const std::vector<uint8_t>& EncodeNext(const EncoderChannel& channel)
{
    SimState& state = State();
    if (state.script.hasJpeg) {
        return state.script.jpeg;
    }
    const SimFrame frame = Sim_NextFrame(static_cast<int>(channel.attr.Encode.nPicWidth),
                                         static_cast<int>(channel.attr.Encode.nPicHeight));
    if (state.encodedId != frame.id || state.encodedQuality != channel.jpeg.nQuality) {
        state.encodedJpeg = Sim_EncodeFrame(frame.pixels, static_cast<int>(channel.jpeg.nQuality));
        state.encodedId = frame.id;
        state.encodedQuality = channel.jpeg.nQuality;
    }
    return state.encodedJpeg;
}

// Lays the stream out in packs as scripted.
void FillPacks(EncoderChannel& channel, const std::vector<uint8_t>& jpeg)
{
    channel.layout = State().script.packs;
    channel.packs.clear();
    size_t taken = 0;
    for (const SimPackLayout& layout : channel.layout) {
        const size_t left = jpeg.size() - taken;
        const size_t valid = layout.rest ? left : std::min<size_t>(layout.valid, left);
        std::vector<uint8_t> bytes(layout.skip, uint8_t{SIM_SKIPPED_BYTE});
        const auto from = jpeg.begin() + static_cast<std::ptrdiff_t>(taken);
        bytes.insert(bytes.end(), from, from + static_cast<std::ptrdiff_t>(valid));
        channel.packs.push_back(std::move(bytes));
        taken += valid;
    }
}

// Makes an absent channel with these attributes. Returns false when there is no descriptor for it.
bool CreateChannel(EncoderChannel& channel, const MediaVencChnAttr& attr)
{
    channel.timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    channel.created = channel.timer >= 0;
    channel.attr = attr;
    channel.jpeg.nQuality = DEFAULT_QUALITY;
    channel.jpeg.nMcuPerEcs = DEFAULT_MCU_PER_ECS;
    for (auto& table : channel.jpeg.aQuantTable) {
        std::fill(std::begin(table), std::end(table), uint8_t{DEFAULT_QUANT});
    }
    return channel.created;
}

void DestroyChannel(EncoderChannel& channel)
{
    if (channel.timer >= 0) {
        close(channel.timer);
    }
    channel = EncoderChannel();
}

// Takes the script from its file where that is another one than before.
bool ReadScript(SimState& state, std::string& error)
{
    const FileStamp stamp = File_Stamp(state.scriptPath);
    if (stamp == state.scriptStamp) {
        return true;
    }
    state.scriptStamp = stamp;
    std::vector<uint8_t> text;
    if (!Sim_ReadFile(state.scriptPath, text)) {
        error = "script " + state.scriptPath + ": cannot be read";
        return false;
    }
    const bool right = Sim_ParseScript({text.begin(), text.end()}, state.script, error);
    error = "script " + state.scriptPath + ": " + error;
    return right;
}

// Starts or stops the timer of an awaited picture, as the script says.
void FollowScript(const EncoderChannel& channel)
{
    if (channel.created && channel.bound && channel.picture == ChannelPicture::AWAITED) {
        SetTimer(channel, State().script.pictureNever ? 0 : channel.dueNs);
    }
}

// Lets the channel wait for its next picture, no sooner than the frame rate allows.
void AwaitPicture(EncoderChannel& channel)
{
    const SimState& state = State();
    channel.picture = ChannelPicture::AWAITED;
    channel.dueNs = std::max(NowNs(), state.lastFrameNs + int64_t{state.script.frameMs} * 1000000);
    FollowScript(channel);
}

// True when the time of the awaited picture has come.
bool IsDue(const EncoderChannel& channel)
{
    return channel.picture == ChannelPicture::AWAITED && !State().script.pictureNever &&
           channel.bound && NowNs() >= channel.dueNs;
}

// Makes the awaited picture ready when its time has come.
void LookForPicture(EncoderChannel& channel)
{
    SimState& state = State();
    if (!IsDue(channel)) {
        return;
    }
    state.lastFrameNs = NowNs();
    FillPacks(channel, EncodeNext(channel));
    channel.picture = ChannelPicture::READY;
    --channel.picturesLeft;
}

// Waits for the picture, without limit when waitMs is negative.
void WaitForPicture(EncoderChannel& channel, int waitMs)
{
    LookForPicture(channel);
    if (channel.picture == ChannelPicture::AWAITED && waitMs != 0) {
        pollfd ready = {channel.timer, POLLIN, 0};
        while (poll(&ready, 1, waitMs) < 0 && errno == EINTR) {
        }
        LookForPicture(channel);
    }
}

// Runs one operation: keeps the call when asked to, lets a scripted fault answer in its place.
template <typename Act>
int Call(SimOp op, const std::vector<int>& numbers, const std::vector<uint8_t>& record, Act act)
{
    SimState& state = State();
    const auto fault = state.script.faults.find(Sim_OperationName(op));
    int result = 0;
    if (fault != state.script.faults.end() && fault->second.calls != 0) {
        result = fault->second.code;
        fault->second.calls -= fault->second.calls > 0 ? 1 : 0;
    } else {
        const SimReason refused = act();
        result = refused == SIM_DONE ? 0 : Sim_Error(op, refused);
    }
    if (state.keepCalls) {
        state.calls.push_back({op, numbers, record, result});
    }
    return result;
}

// The bytes of the records, one behind the other, when calls are kept.
template <typename... Record> std::vector<uint8_t> Bytes(const Record*... records)
{
    std::vector<uint8_t> bytes;
    const auto append = [&bytes](const void* record, size_t length) {
        const auto* const first = static_cast<const uint8_t*>(record);
        if (first != nullptr && State().keepCalls) {
            bytes.insert(bytes.end(), first, first + length);
        }
    };
    (append(records, sizeof(Record)), ...);
    return bytes;
}

// The channel of that number if it was created.
EncoderChannel* Created(int number)
{
    if (number < 0 || number >= SIM_CHANNELS) {
        return nullptr;
    }
    EncoderChannel& channel = State().channels[static_cast<size_t>(number)];
    return channel.created ? &channel : nullptr;
}

// Runs one operation on a channel, the first of the numbers, that must have been created.
template <typename Act>
int CallOn(SimOp op, const std::vector<int>& numbers, const std::vector<uint8_t>& record, Act act)
{
    return Call(op, numbers, record, [&] {
        EncoderChannel* const channel = Created(numbers[0]);
        return channel != nullptr ? act(*channel) : SIM_ABSENT;
    });
}

// Runs one operation on the binding of camera and encoder, as `act` does it to the channel bound.
template <typename Act>
int CallOnEnds(SimOp op, const MediaEndpoint* src, const MediaEndpoint* dst, Act act)
{
    return Call(op, {}, Bytes(src, dst), [&] {
        if (src == nullptr || src->nModule != MEDIA_MOD_VPSS || src->nDevice != VPSS_GROUP ||
            src->nChannel != VPSS_CHANNEL || dst == nullptr || dst->nModule != MEDIA_MOD_VENC ||
            dst->nDevice != 0) {
            return SIM_BAD_ARGUMENT;
        }
        EncoderChannel* const channel = Created(dst->nChannel);
        return channel != nullptr ? act(*channel) : SIM_ABSENT;
    });
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
    State().script = script;
    for (const EncoderChannel& channel : State().channels) {
        FollowScript(channel);
    }
}

bool Sim_FollowScript(const std::string& path, std::string& error)
{
    State().scriptPath = path;
    State().scriptStamp = {};
    return ReadScript(State(), error);
}

void Sim_KeepCalls(bool keep)
{
    State().keepCalls = keep;
    State().calls.clear();
}

const std::vector<SimCall>& Sim_Calls()
{
    return State().calls;
}

void Sim_Reset()
{
    for (EncoderChannel& channel : State().channels) {
        DestroyChannel(channel);
    }
    Sim_CloseScene();
    Sim_SetScript(SimScript());
    State().scriptPath.clear();
    Sim_KeepCalls(false);
}

int HI_MPI_VPSS_GetChnAttr(int group, int vpssChannel, MediaVpssChnAttr* attr)
{
    std::string error;
    if (!State().scriptPath.empty() &&
        !ReadScript(State(), error)) { // the first operation of a snapshot
        std::fprintf(stderr, "sim: %s\n", error.c_str());
    }
    return Call(SIM_VPSS_GETCHNATTR, {group, vpssChannel}, {}, [&] {
        if (attr == nullptr) {
            return SIM_BAD_ARGUMENT;
        }
        if (group != VPSS_GROUP || vpssChannel != VPSS_CHANNEL) {
            return SIM_ABSENT;
        }
        *attr = MediaVpssChnAttr{};
        attr->nWidth = SIM_VPSS_WIDTH;
        attr->nHeight = SIM_VPSS_HEIGHT;
        return SIM_DONE;
    });
}

int HI_MPI_VENC_CreateChn(int number, const MediaVencChnAttr* attr)
{
    return Call(SIM_VENC_CREATECHN, {number}, Bytes(attr), [&] {
        if (number < 0 || number >= SIM_CHANNELS || attr == nullptr ||
            !AttributesMakeSense(*attr)) {
            return SIM_BAD_ARGUMENT;
        }
        EncoderChannel& channel = State().channels[static_cast<size_t>(number)];
        if (channel.created) {
            return SIM_EXISTS;
        }
        return CreateChannel(channel, *attr) ? SIM_DONE : SIM_NO_RESOURCE;
    });
}

int HI_MPI_VENC_DestroyChn(int number)
{
    return CallOn(SIM_VENC_DESTROYCHN, {number}, {}, [&](EncoderChannel& channel) {
        if (channel.receiving || channel.bound) {
            return SIM_WRONG_ORDER;
        }
        DestroyChannel(channel);
        return SIM_DONE;
    });
}

int HI_MPI_VENC_GetJpegParam(int number, MediaJpegParam* param)
{
    return CallOn(SIM_VENC_GETJPEGPARAM, {number}, {}, [&](EncoderChannel& channel) {
        if (param == nullptr) {
            return SIM_BAD_ARGUMENT;
        }
        *param = channel.jpeg;
        return SIM_DONE;
    });
}

int HI_MPI_VENC_SetJpegParam(int number, const MediaJpegParam* param)
{
    return CallOn(SIM_VENC_SETJPEGPARAM, {number}, Bytes(param), [&](EncoderChannel& channel) {
        if (param == nullptr || param->nQuality < 1 || param->nQuality > 99) {
            return SIM_BAD_ARGUMENT;
        }
        channel.jpeg = *param;
        return SIM_DONE;
    });
}

int HI_MPI_SYS_Bind(const MediaEndpoint* src, const MediaEndpoint* dst)
{
    return CallOnEnds(SIM_SYS_BIND, src, dst, [](EncoderChannel& channel) {
        if (channel.bound) {
            return SIM_EXISTS;
        }
        channel.bound = true;
        return SIM_DONE;
    });
}

int HI_MPI_SYS_UnBind(const MediaEndpoint* src, const MediaEndpoint* dst)
{
    return CallOnEnds(SIM_SYS_UNBIND, src, dst, [](EncoderChannel& channel) {
        if (!channel.bound) {
            return SIM_ABSENT;
        }
        if (IsDue(channel)) { // it came, and nobody looked: the next one takes its time, too
            State().lastFrameNs = NowNs();
        }
        channel.bound = false;
        SetTimer(channel, 0);
        return SIM_DONE;
    });
}

int HI_MPI_VENC_StartRecvFrame(int number, const MediaRecvParam* param)
{
    return CallOn(SIM_VENC_STARTRECVFRAME, {number}, Bytes(param), [&](EncoderChannel& channel) {
        if (param == nullptr || param->nPictures < 1) {
            return SIM_BAD_ARGUMENT;
        }
        if (!channel.bound || channel.receiving) {
            return SIM_WRONG_ORDER;
        }
        channel.receiving = true;
        channel.picturesLeft = param->nPictures;
        AwaitPicture(channel);
        return SIM_DONE;
    });
}

int HI_MPI_VENC_StopRecvFrame(int number)
{
    return CallOn(SIM_VENC_STOPRECVFRAME, {number}, {}, [&](EncoderChannel& channel) {
        channel.receiving = false; // also when it was not: stopping twice does no harm
        channel.picture = ChannelPicture::NONE;
        SetTimer(channel, 0);
        return SIM_DONE;
    });
}

int HI_MPI_VENC_GetFd(int number)
{
    int fd = 0;
    const int result = CallOn(SIM_VENC_GETFD, {number}, {}, [&fd](EncoderChannel& channel) {
        fd = channel.timer;
        return SIM_DONE;
    });
    return result == 0 ? fd : result;
}

int HI_MPI_VENC_QueryStatus(int number, MediaVencStatus* status)
{
    return CallOn(SIM_VENC_QUERYSTATUS, {number}, {}, [&](EncoderChannel& channel) {
        if (status == nullptr) {
            return SIM_BAD_ARGUMENT;
        }
        LookForPicture(channel);
        *status = MediaVencStatus{};
        if (channel.picture == ChannelPicture::READY && !State().script.pictureNone) {
            status->nCurPacks = static_cast<uint32_t>(channel.packs.size());
        }
        return SIM_DONE;
    });
}

int HI_MPI_VENC_GetStream(int number, MediaStream* stream, int waitMs)
{
    return CallOn(SIM_VENC_GETSTREAM, {number, waitMs}, Bytes(stream),
                  [&](EncoderChannel& channel) {
                      if (!channel.receiving || channel.picture == ChannelPicture::FETCHED) {
                          return SIM_WRONG_ORDER;
                      }
                      WaitForPicture(channel, waitMs);
                      if (channel.picture != ChannelPicture::READY) {
                          return SIM_NO_PICTURE;
                      }
                      if (stream == nullptr || stream->pPack == nullptr ||
                          stream->nPacks < channel.packs.size()) {
                          return SIM_BAD_ARGUMENT;
                      }
                      for (size_t i = 0; i < channel.packs.size(); ++i) {
                          MediaPack& pack = stream->pPack[i];
                          pack = MediaPack{};
                          pack.pAddr = channel.packs[i].data();
                          pack.nLen = static_cast<uint32_t>(channel.packs[i].size());
                          pack.nOffset = channel.layout[i].skip;
                      }
                      stream->nPacks = static_cast<uint32_t>(channel.packs.size());
                      channel.lentPacks = stream->pPack;
                      channel.picture = ChannelPicture::FETCHED;
                      SetTimer(channel, 0);
                      return SIM_DONE;
                  });
}

int HI_MPI_VENC_ReleaseStream(int number, MediaStream* stream)
{
    return CallOn(SIM_VENC_RELEASESTREAM, {number}, Bytes(stream), [&](EncoderChannel& channel) {
        if (stream == nullptr) {
            return SIM_BAD_ARGUMENT;
        }
        if (channel.picture != ChannelPicture::FETCHED) {
            return SIM_WRONG_ORDER;
        }
        if (stream->pPack != channel.lentPacks || stream->nPacks != channel.packs.size()) {
            return SIM_BAD_ARGUMENT;
        }
        // The stream buffer is the encoder's again: what is read through it from now on is wrong.
        for (std::vector<uint8_t>& pack : channel.packs) {
            std::fill(pack.begin(), pack.end(), uint8_t{SIM_SKIPPED_BYTE});
        }
        channel.picture = ChannelPicture::NONE;
        if (channel.picturesLeft > 0) {
            AwaitPicture(channel);
        }
        return SIM_DONE;
    });
}
