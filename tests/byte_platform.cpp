// A media platform that lays its records out by byte offsets alone, as the device's libraries do
// for a 32-bit program: it shares no declaration with the service. Gives the JPEG that
// BYTE_PLATFORM_JPEG names, in three packs with leading bytes; refuses records that are not as
// they must be.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/eventfd.h>
#include <vector>

namespace
{

const int REFUSED = static_cast<int>(0xA00800EEU);

std::vector<uint8_t> stream; // three packs, one behind the other
size_t packAt[4];            // where each begins, and where the last ends
const uint32_t SKIPPED[3] = {24, 1, 4000};

uint32_t Word(const void* record, size_t byte)
{
    uint32_t word = 0;
    std::memcpy(&word, static_cast<const uint8_t*>(record) + byte, sizeof(word));
    return word;
}

void SetWord(void* record, size_t byte, uint32_t word)
{
    std::memcpy(static_cast<uint8_t*>(record) + byte, &word, sizeof(word));
}

uint32_t Address(const void* pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

// Whether the words are the given ones, from the record's start.
int Expect(const void* record, const std::vector<uint32_t>& words)
{
    return std::memcmp(record, words.data(), 4 * words.size()) == 0 ? 0 : REFUSED;
}

void LoadStream()
{
    const char* const path = std::getenv("BYTE_PLATFORM_JPEG");
    std::ifstream file(path != nullptr ? path : "", std::ios::binary);
    const std::vector<char> jpeg{std::istreambuf_iterator<char>(file),
                                 std::istreambuf_iterator<char>()};
    stream.clear();
    if (jpeg.size() < 2 * 700) {
        return;
    }
    const size_t cuts[4] = {0, 700, jpeg.size() / 2, jpeg.size()};
    for (size_t i = 0; i < 3; ++i) {
        packAt[i] = stream.size();
        stream.insert(stream.end(), SKIPPED[i], uint8_t{0xEE});
        stream.insert(stream.end(), &jpeg[cuts[i]], jpeg.data() + cuts[i + 1]);
    }
    packAt[3] = stream.size();
}

} // namespace

extern "C" {
int HI_MPI_VPSS_GetChnAttr(int, int, void* attr)
{
    std::memset(attr, 0x11, 72);
    return 0;
}

int HI_MPI_VENC_CreateChn(int channel, const void* attr)
{
    std::vector<uint32_t> words(116 / 4, 0);
    const uint32_t set[] = {26, 400, 400, 320000, 1, 1, 400, 400};
    std::copy(set, set + 8, words.begin());
    return channel == 4 ? Expect(attr, words) : REFUSED;
}

int HI_MPI_VENC_DestroyChn(int)
{
    return 0;
}

int HI_MPI_VENC_GetJpegParam(int, void* param)
{
    std::memset(param, 0x22, 200);
    return 0;
}

int HI_MPI_VENC_SetJpegParam(int, const void* param)
{
    std::vector<uint32_t> words(200 / 4, 0x22222222U);
    words[0] = 99;
    return Expect(param, words);
}

int HI_MPI_SYS_Bind(const void* src, const void* dst)
{
    return Expect(src, {7, 1, 0}) | Expect(dst, {8, 0, 4});
}

int HI_MPI_SYS_UnBind(const void* src, const void* dst)
{
    return HI_MPI_SYS_Bind(src, dst);
}

int HI_MPI_VENC_StartRecvFrame(int, const void* param)
{
    return Expect(param, {1});
}

int HI_MPI_VENC_StopRecvFrame(int)
{
    return 0;
}

int HI_MPI_VENC_GetFd(int)
{
    static const int always = eventfd(1, 0); // readable from the start
    return always;
}

int HI_MPI_VENC_QueryStatus(int, void* status)
{
    std::memset(status, 0x33, 88);
    SetWord(status, 12, 3);
    return 0;
}

int HI_MPI_VENC_GetStream(int, void* record, int)
{
    LoadStream();
    uint8_t* const packs = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(Word(record, 0)));
    if (Word(record, 4) != 3 || stream.empty()) {
        return REFUSED;
    }
    std::memset(packs, 0x44, 3 * 136);
    for (size_t i = 0; i < 3; ++i) {
        SetWord(packs + 136 * i, 8, Address(&stream[packAt[i]]));
        SetWord(packs + 136 * i, 12, static_cast<uint32_t>(packAt[i + 1] - packAt[i]));
        SetWord(packs + 136 * i, 32, SKIPPED[i]);
    }
    std::memset(static_cast<uint8_t*>(record) + 8, 0x55, 384 - 8);
    return 0;
}

int HI_MPI_VENC_ReleaseStream(int, void* record)
{
    stream.assign(stream.size(), 0);
    return Word(record, 4) == 3 && Word(record, 380) == 0x55555555U ? 0 : REFUSED;
}
}
