// Any bytes straight into the step from JPEG to grey picture, without a platform and without scans.
// Every input is decoded twice, in memory that holds something else each time: a picture that
// differs was made from old memory.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <opencv2/core.hpp>
#include <sanitizer/allocator_interface.h>
#include <vector>

#include "capture_decode.h"
#include "decoder_limits.h"
#include "snap_channel.h"

namespace
{
// All that the decoder is shown of the picture buffer; the sanitizer sees a read past its end.
enum { SHOWN_BYTES = SNAP_WIDTH * SNAP_HEIGHT * 3 };
// What new memory is filled with; -1 leaves it as it is. Large pieces of calloc's are filled too:
// what is called here takes none.
int fill = -1;
[[maybe_unused]] void FillNew(const volatile void* memory, size_t size)
{
    if (fill >= 0) {
        std::memset(const_cast<void*>(memory), fill, size);
    }
}

bool WellMade(const cv::Mat& grey)
{
    bool well = grey.type() == CV_8UC1 && grey.isContinuous() && grey.rows > 0 && grey.cols > 0 &&
                grey.rows < SHRT_MAX && grey.cols < SHRT_MAX;
    for (int i = 0; well && i < grey.rows; ++i) {
        well = *grey.ptr(i) == 0; // the mirror is one column off
    }
    return well;
}

// Returns whether there is a picture, in `grey`. Ends the run where a promise is broken.
bool Decode(const std::vector<uint8_t>& shown, int oldMemory, cv::Mat& grey)
{
    std::vector<uint8_t> handed = shown;
    bool decoded = false;
    bool well = true;
    fill = oldMemory;
    try {
        decoded = Qrcode_DecodeMirrorGrey(handed.data(), SNAP_WIDTH, SNAP_HEIGHT, grey);
    } catch (const cv::Exception& exception) {
        well = DecoderLimits_Known(exception);
    }
    fill = -1;
    if (!well || handed != shown || (decoded ? !WellMade(grey) : !grey.empty())) {
        std::abort();
    }
    return decoded;
}

} // namespace

extern "C" {
int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
}

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    cv::setNumThreads(0);
#if __has_feature(address_sanitizer) // where lines are counted, memory stays as it is
    __sanitizer_install_malloc_and_free_hooks(FillNew, [](const volatile void*) {});
#endif
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> shown(SHOWN_BYTES);
    std::copy_n(data, std::min(size, shown.size()), shown.begin());
    cv::Mat first, second;
    const bool decoded = Decode(shown, 0x00, first);
    if (decoded != Decode(shown, 0xff, second) || first.size() != second.size() ||
        !std::equal(first.datastart, first.dataend, second.datastart)) {
        std::abort();
    }
    return 0;
}
