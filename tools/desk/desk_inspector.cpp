#include "desk_inspector.h"

#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <unistd.h>

#include "cascade.h"
#include "command_line.h"
#include "inspect_picture.h"
#include "inspect_report.h"
#include "inspect_sheet.h"
#include "inspect_worker.h"
#include "process_setup.h"

namespace
{

enum {
    TILES = 16,
    ABREAST = 4,
    SIDE = 400, // pixels of a tile
    QUALITY = 85,
    LESS_URGENT = 10 // than the service, whose pace counts
};

// Flat: crosses a pipe.
struct DeskRecord {
    InspectRecord inspected;
    int tileCount = 0;
    char findings[TILES][200] = {};
};

// In the worker.
DeskRecord Inspect(const std::string& folder, const std::string& name)
{
    DeskRecord record;
    cv::Mat grey;
    record.inspected = Inspect_Picture(folder + "/" + name, false, grey);
    if (grey.empty()) {
        return record;
    }
    cv::Mat all(SIDE * TILES / ABREAST, SIDE * ABREAST, CV_8UC3, cv::Scalar::all(0));
    for (const SheetTile& tile :
         Sheet_Tiles(record.inspected.reading, record.inspected.causes, grey, {}, SIDE)) {
        const int n = record.tileCount++;
        const cv::Point at(n / 2 % ABREAST * SIDE, (n / 2 / ABREAST * 2 + n % 2) * SIDE);
        tile.drawn.copyTo(all(cv::Rect(at, tile.drawn.size())));
        std::snprintf(record.findings[n], sizeof(record.findings[n]), "%s", tile.finding.c_str());
    }
    const std::string unfinished = folder + "/new-" + TILES_FILE; // the page may fetch at any time
    cv::imwrite(unfinished, all, {cv::IMWRITE_JPEG_QUALITY, QUALITY});
    std::rename(unfinished.c_str(), (folder + "/" + TILES_FILE).c_str());
    return record;
}

void Print(const std::string& name, const DeskRecord& record, const std::string& death)
{
    InspectedPicture picture = {name, record.inspected.reading, record.inspected.causes, false, {}};
    if (!death.empty()) {
        std::snprintf(picture.reading.remark, READING_NOTE_SIZE, "%s", death.c_str());
    }
    nlohmann::ordered_json json = nlohmann::ordered_json::parse(Report_Json(picture));
    json["findings"] = nlohmann::ordered_json::array();
    for (int n = 0; n < record.tileCount; ++n) {
        json["findings"].push_back(record.findings[n]);
    }
    std::cout << json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
}

} // namespace

int Inspector_Run(const std::string& folder)
{
    if (2 * Qrcode_AttemptCount() != TILES || nice(LESS_URGENT) == -1) {
        return EXIT_FAILED;
    }
    Qrcode_SetUpProcess(); // its times are those of the service
    Inspect_WarmUp();
    std::string error;
    for (std::string name; std::getline(std::cin, name);) {
        if (!Worker_ForEach<DeskRecord>(
                1, [&](size_t) { return Inspect(folder, name); },
                [&](size_t, const DeskRecord& record, const std::string& death) {
                    Print(name, record, death);
                },
                WORKER_SECONDS, error)) {
            std::cerr << "desk: " << error << std::endl;
            return EXIT_FAILED;
        }
    }
    return 0;
}
