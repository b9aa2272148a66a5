#include "inspect_picture.h"

#include <cstdio>
#include <vector>

#include "camera_picture.h"
#include "snap_channel.h"

void Inspect_WarmUp()
{
    cv::Mat ignoredGrey;
    Reading_Take(Sim_EncodeFrame(Sim_EmptyFrame(SNAP_WIDTH, SNAP_HEIGHT), SNAP_QUALITY),
                 ignoredGrey);
}

InspectRecord Inspect_Picture(const std::string& path, bool snapshot, cv::Mat& grey)
{
    InspectRecord record;
    std::vector<uint8_t> jpeg;
    std::string error;
    grey.release();
    if (!(snapshot ? Reading_SavedJpeg : Reading_CameraJpeg)(path, jpeg, error)) {
        std::snprintf(record.reading.remark, sizeof(record.reading.remark), "%s", error.c_str());
        return record;
    }
    record.reading = Reading_Take(jpeg, grey);
    if (snapshot && !grey.empty() && grey.size() != cv::Size(SNAP_WIDTH, SNAP_HEIGHT)) {
        record.reading = {}; // its header hid that
        std::snprintf(record.reading.remark, sizeof(record.reading.remark),
                      "no snapshot: %d x %d pixels", grey.cols, grey.rows);
        grey.release();
    } else if (record.reading.outcome == READING_NO_CODE && record.reading.textCount == 0) {
        record.causes = Causes_Find(grey);
    }
    return record;
}
