#include "inspect_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "charsets.h"
#include "quantile.h"
#include "text.h"

namespace
{

const double MEDIAN = 0.5;
const double MOST = 0.95;

// By ReadingOutcome, and by Verdict in the table and in JSON.
const char* const OUTCOME_NAMES[] = {"read",    "altered",       "too short",
                                     "no code", "not decodable", "no picture"};
const char* const VERDICT_NAMES[] = {"-", "right", "WRONG", "MISSED", "-"};
const char* const VERDICT_WORDS[] = {"", "right", "wrong", "missed", "none as expected"};

// By ReportGrade: green, yellow, red of a terminal.
const char* const COLOURS[] = {"\033[32m", "\033[33m", "\033[31m"};
const char PLAIN[] = "\033[0m";

const char GUIDE[] = "docs/reading-a-sheet.md";
const char INDENT[] = "\n    ";

// Columns of the table.
enum { OUTCOME_WIDTH = 13, SYMBOLOGIES_WIDTH = 17 };

bool HasText(const WatchedReading& reading)
{
    return reading.outcome == READING_TEXT || reading.outcome == READING_ALTERED ||
           reading.outcome == READING_SHORT;
}

// One line's columns behind the file's.
std::string Columns(const std::string& outcome, const char* verdict, const std::string& bytes,
                    const std::string& symbologies, const std::string& attempt,
                    const std::string& scans, const std::string& ms)
{
    const std::string judged = verdict[0] == '\0' ? "" : Text_Format("  %-7s", verdict);
    return "  " + outcome +
           Text_Format("%s  %5s  %s  %-21s  %5s  %7s", judged.c_str(), bytes.c_str(),
                       Text_Fitted(symbologies, SYMBOLOGIES_WIDTH).c_str(), attempt.c_str(),
                       scans.c_str(), ms.c_str());
}

double Rounded(double value)
{
    return std::round(value * 1000.0) / 1000.0;
}

std::string TextOf(const WatchedText& text)
{
    return {text.text, static_cast<size_t>(std::min<int>(text.bytes, QRCODE_TEXT_SIZE))};
}

std::string TimeLine(const char* what, const std::vector<double>& ms)
{
    if (ms.empty()) {
        return Text_Format("  %-15s %6d\n", what, 0);
    }
    return Text_Format("  %-15s %6zu  %8.1f  %8.1f\n", what, ms.size(), Quantile(ms, MEDIAN),
                       Quantile(ms, MOST));
}

} // namespace

Verdict Report_Verdict(const InspectedPicture& picture)
{
    return picture.truth
               ? Expected_Judge(picture.expected, HasText(picture.reading), picture.reading.text)
               : VERDICT_NONE;
}

bool Report_IsWell(const InspectedPicture& picture)
{
    switch (Report_Verdict(picture)) {
    case VERDICT_RIGHT:
        return true;
    case VERDICT_NONE_AS_EXPECTED:
        return picture.reading.outcome == READING_NO_CODE;
    case VERDICT_NONE:
        return picture.reading.outcome == READING_TEXT;
    default:
        return false;
    }
}

std::string Report_Heading(size_t pathWidth, bool truth)
{
    return Text_Padded("file", pathWidth) +
           Columns(Text_Padded("outcome", OUTCOME_WIDTH), truth ? "verdict" : "", "bytes",
                   "symbology", "attempt", "scans", "ms") +
           "  text";
}

ReportGrade Report_Grade(const WatchedReading& reading)
{
    const bool found = HasText(reading) || reading.textCount > 0;
    return reading.outcome == READING_TEXT ? GRADE_TOLD
           : found                         ? GRADE_TOLD_OTHERWISE
                                           : GRADE_NOTHING;
}

std::string Report_Remark(const WatchedReading& reading)
{
    std::string remark = reading.remark;
    const auto add = [&](const std::string& what) {
        remark += (remark.empty() ? "" : "; ") + what;
    };
    const size_t bytes = HasText(reading) ? std::strlen(reading.text) : 0;
    if (reading.outcome == READING_SHORT) {
        add(Text_Format("read, never reported: %zu of %d bytes", bytes, QRCODE_TEXT_REPORT_MIN));
    }
    if (reading.outcome == READING_NO_CODE && reading.textCount > 0) {
        const WatchedText* const end =
            reading.texts + std::min<int>(reading.textCount, READING_TEXTS);
        const bool other = std::any_of(
            reading.texts, end, [](const WatchedText& text) { return text.text[0] != '\0'; });
        add(std::string("read, never reported: ") + (other ? "the last code's" : "the") +
            " text is empty or begins with a zero byte");
    }
    const int last = std::min<int>(reading.textCount, READING_TEXTS) - 1;
    if ((reading.flaws & FLAW_OVERLAID) != 0) {
        add(Text_Format("%d texts over each other, the last one on top", reading.textCount));
    }
    if ((reading.flaws & FLAW_ZERO) != 0) {
        add(Text_Format("a zero byte in the text: what stands behind it is lost, of %d bytes",
                        reading.texts[last].bytes));
    }
    if ((reading.flaws & FLAW_LONG) != 0) {
        add(Text_Format("too long: the first %d of %d bytes", QRCODE_TEXT_SIZE - 1,
                        reading.texts[last].bytes));
    }
    return remark;
}

std::vector<std::string> Report_Details(const WatchedReading& reading, const LikelyCauses& causes)
{
    std::vector<std::string> details;
    const int kept = std::min<int>(reading.textCount, READING_TEXTS);
    const bool otherTexts = (reading.flaws & (FLAW_OVERLAID | FLAW_ZERO)) != 0 || !HasText(reading);
    for (int n = 0; n < kept && otherTexts; ++n) {
        const WatchedText& text = reading.texts[n];
        details.push_back(
            Text_Format("code %d: %s ", reading.textCount - kept + n + 1, text.symbology) +
            Text_Shown(TextOf(text)));
    }
    for (int n = 0; n < causes.count; ++n) {
        const LikelyCause& cause = causes.causes[n];
        details.push_back(Text_Format("%s: %s (%s#%s)", n == 0 ? "why" : "and", cause.sentence,
                                      GUIDE, Causes_Anchor(cause.kind)));
    }
    return details;
}

std::string Report_Line(const InspectedPicture& picture, size_t pathWidth, bool coloured)
{
    const WatchedReading& reading = picture.reading;
    const bool hasText = HasText(reading);
    const bool decoded = hasText || reading.outcome == READING_NO_CODE;
    std::string outcome = Text_Padded(OUTCOME_NAMES[reading.outcome], OUTCOME_WIDTH);
    if (coloured) {
        outcome = COLOURS[Report_Grade(reading)] + outcome + PLAIN;
    }
    const Verdict verdict = Report_Verdict(picture);
    std::string line = Text_Fitted(Text_Escape(picture.path), pathWidth) +
                       Columns(outcome, picture.truth ? VERDICT_NAMES[verdict] : "",
                               hasText ? std::to_string(std::strlen(reading.text)) : "-",
                               hasText ? reading.symbologies : "-",
                               hasText ? std::string(Qrcode_AttemptName(reading.attempt)) +
                                             (reading.opened ? ", opened" : "")
                                       : "-",
                               decoded ? std::to_string(reading.scans) : "-",
                               decoded ? Text_Format("%.1f", reading.ms) : "-") +
                       "  " + (hasText ? Text_Shown(reading.text) : Text_Escape(reading.remark));
    if (verdict == VERDICT_WRONG || verdict == VERDICT_MISSED) {
        line += (hasText ? ", expected " : "expected ") +
                (picture.expected.text.empty() ? "nothing" : Text_Shown(picture.expected.text));
    }
    line.erase(line.find_last_not_of(' ') + 1);
    if (decoded && !Report_Remark(reading).empty()) {
        line += INDENT + Report_Remark(reading);
    }
    for (const std::string& detail : Report_Details(reading, picture.causes)) {
        line += INDENT + detail;
    }
    return line;
}

std::string Report_Json(const InspectedPicture& picture)
{
    const WatchedReading& reading = picture.reading;
    const bool hasText = HasText(reading);
    const std::string text = hasText ? reading.text : "";
    nlohmann::ordered_json json;
    json["file"] = picture.path;
    json["fileHex"] = Text_Hex(picture.path);
    json["charsets"] = Charsets_Used();
    json["outcome"] = OUTCOME_NAMES[reading.outcome];
    json["text"] = nullptr;
    json["hex"] = nullptr;
    json["bytes"] = text.size();
    json["symbologies"] = nlohmann::ordered_json::array();
    json["attempt"] = nullptr;
    if (hasText) {
        json["text"] = text;
        json["hex"] = Text_Hex(text);
        json["attempt"] = Qrcode_AttemptName(reading.attempt);
        const std::string symbologies = reading.symbologies;
        for (size_t at = 0; at < symbologies.size();) {
            const size_t end = std::min(symbologies.find(", ", at), symbologies.size());
            json["symbologies"].push_back(symbologies.substr(at, end - at));
            at = end + 2;
        }
    }
    json["opened"] = reading.opened;
    json["scans"] = reading.scans;
    json["ms"] = Rounded(reading.ms);
    json["remark"] = nullptr;
    const std::string remark = Report_Remark(reading);
    if (!remark.empty()) {
        json["remark"] = remark;
    }
    json["texts"] = nlohmann::ordered_json::array();
    for (int n = 0; n < std::min<int>(reading.textCount, READING_TEXTS); ++n) {
        const WatchedText& one = reading.texts[n];
        json["texts"].push_back({{"symbology", one.symbology},
                                 {"text", TextOf(one)},
                                 {"hex", Text_Hex(TextOf(one))},
                                 {"bytes", one.bytes}});
    }
    json["causes"] = nlohmann::ordered_json::array();
    const LikelyCauses& causes = picture.causes;
    for (int n = 0; n < causes.count; ++n) {
        const LikelyCause& cause = causes.causes[n];
        json["causes"].push_back({{"cause", Causes_Name(cause.kind)},
                                  {"value", Rounded(cause.value)},
                                  {"unit", Causes_Unit(cause.kind, causes.code.shape)},
                                  {"sentence", cause.sentence},
                                  {"more", std::string(GUIDE) + "#" + Causes_Anchor(cause.kind)}});
    }
    json["located"] = nullptr;
    if (causes.code.shape != CODE_NONE) {
        nlohmann::ordered_json outline;
        for (const cv::Point2d& corner : causes.code.outline) {
            outline.push_back({Rounded(corner.x), Rounded(corner.y)});
        }
        json["located"] = {{"shape", causes.code.shape == CODE_SQUARE ? "QR" : "bars"},
                           {"modulePixels", Rounded(causes.code.modulePixels)},
                           {"outline", outline}};
    }
    if (picture.truth && picture.expected.known) {
        json["verdict"] = VERDICT_WORDS[Report_Verdict(picture)];
        json["expected"] = picture.expected.text;
    }
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void Report_Count(InspectTally& tally, const InspectedPicture& picture)
{
    const WatchedReading& reading = picture.reading;
    const Verdict verdict = Report_Verdict(picture);
    InspectTally::Attempt& attempt = tally.attempts[static_cast<size_t>(reading.attempt)];
    ++tally.pictures;
    tally.truth = tally.truth || picture.truth;
    ++tally.outcomes[reading.outcome];
    ++tally.verdicts[verdict];
    attempt.read += HasText(reading);
    attempt.opened += reading.opened;
    attempt.right += verdict == VERDICT_RIGHT;
    attempt.wrong += verdict == VERDICT_WRONG;
    if (HasText(reading)) {
        tally.readMs.push_back(reading.ms);
    } else if (reading.outcome == READING_NO_CODE) {
        tally.unreadMs.push_back(reading.ms);
    }
    tally.allWell = tally.allWell && Report_IsWell(picture);
}

std::string Report_Table(const InspectTally& tally)
{
    const int* const outcomes = tally.outcomes;
    const int* const verdicts = tally.verdicts;
    const int unread = tally.pictures - outcomes[READING_TEXT] - outcomes[READING_ALTERED] -
                       outcomes[READING_SHORT];
    std::string table = Text_Format(
        "\nPictures: %d, read: %d, altered: %d, too short: %d, unread: %d", tally.pictures,
        outcomes[READING_TEXT], outcomes[READING_ALTERED], outcomes[READING_SHORT], unread);
    if (unread > outcomes[READING_NO_CODE]) {
        table += Text_Format(" (of them not decodable: %d, no picture: %d)",
                             outcomes[READING_NOT_DECODABLE], outcomes[READING_NO_PICTURE]);
    }
    table += "\n";
    if (tally.truth) {
        table += Text_Format("Texts right: %d, wrong: %d, missed: %d, none as expected: %d",
                             verdicts[VERDICT_RIGHT], verdicts[VERDICT_WRONG],
                             verdicts[VERDICT_MISSED], verdicts[VERDICT_NONE_AS_EXPECTED]);
        table += verdicts[VERDICT_NONE] > 0
                     ? Text_Format(", without an expected text: %d\n", verdicts[VERDICT_NONE])
                     : "\n";
    }
    table += Text_Format("\n  %-15s %6s  %8s", "attempt", "read", "opened");
    table += tally.truth ? Text_Format("  %6s  %6s\n", "right", "wrong") : "\n";
    for (int n = 1; n <= Qrcode_AttemptCount(); ++n) {
        const InspectTally::Attempt& attempt = tally.attempts[static_cast<size_t>(n)];
        table +=
            Text_Format("  %-15s %6d  %8d", Qrcode_AttemptName(n), attempt.read, attempt.opened);
        table += tally.truth ? Text_Format("  %6d  %6d\n", attempt.right, attempt.wrong) : "\n";
    }
    table += Text_Format("\n  %-15s %6s  %8s  %8s\n", "ms", "", "median", "95 %");
    return table + TimeLine("with a text", tally.readMs) + TimeLine("without", tally.unreadMs);
}
