#include "card_check.h"

#include <cstdio>
#include <opencv2/imgproc.hpp>

#include "camera_picture.h"
#include "snap_channel.h"

namespace
{

const char* const VERDICT_NAMES[] = {"not made", "right", "not read", "too short", "wrong"};

WatchedReading Read(const cv::Mat& view)
{
    cv::Mat colour = view;
    if (view.channels() == 1) {
        cv::cvtColor(view, colour, cv::COLOR_GRAY2BGR);
    }
    cv::Mat grey;
    return Reading_Take(
        Sim_EncodeFrame(Sim_CameraFrame(colour, SNAP_WIDTH, SNAP_HEIGHT), SNAP_QUALITY), grey);
}

} // namespace

const char* Card_VerdictName(CardVerdict verdict)
{
    return VERDICT_NAMES[verdict];
}

CardVerdict Card_Judge(const ExpectedText& expected, const WatchedReading& reading)
{
    const bool reported = Reading_IsReported(reading);
    if (Expected_JudgeReport(expected, reported, reading.text) == VERDICT_RIGHT) {
        return CARD_RIGHT;
    }
    return reported ? CARD_WRONG : reading.outcome == READING_SHORT ? CARD_SHORT : CARD_UNREAD;
}

CardRecord Card_Check(const Card& card, bool straightOnly)
{
    CardRecord record;
    record.version = card.version;
    record.mask = card.mask;
    for (int size = 0; size < VIEW_SIZES; ++size) {
        for (int kind = 0; kind < (straightOnly ? 1 : View_Kinds()); ++kind) {
            const cv::Mat view = View_Draw(card, size, kind);
            if (view.empty()) {
                continue;
            }
            const WatchedReading reading = Read(view);
            CardSight sight = {size, kind, Card_Judge(card.expected, reading), {}, {}};
            std::snprintf(sight.text, sizeof(sight.text), "%s", reading.text);
            std::snprintf(sight.symbologies, sizeof(sight.symbologies), "%s", reading.symbologies);
            record.verdicts[size][kind] = static_cast<uint8_t>(sight.verdict);
            if (sight.verdict > record.worst.verdict) {
                record.worst = sight;
            }
            if (sight.verdict == CARD_WRONG && record.wrongKept < CARD_WRONG_KEPT) {
                record.wrong[record.wrongKept++] = sight;
            }
        }
    }
    return record;
}
