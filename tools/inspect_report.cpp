#include "inspect_report.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "shown_text.h"
#include "text_escape.h"

static const double MEDIAN = 0.5;
static const double MOST = 0.95;

static const char* OutcomeName(ReadingOutcome outcome)
{
    switch (outcome) {
    case READING_TEXT:
        return "read";
    case READING_SHORT:
        return "too short";
    case READING_NO_CODE:
        return "no code";
    case READING_NOT_DECODABLE:
        return "not decodable";
    case READING_NO_PICTURE:
        break;
    }
    return "no picture";
}

static const char* VerdictName(InspectVerdict verdict)
{
    switch (verdict) {
    case VERDICT_RIGHT:
        return "right";
    case VERDICT_WRONG:
        return "WRONG";
    case VERDICT_MISSED:
        return "MISSED";
    case VERDICT_AS_EMPTY:
    case VERDICT_NONE:
        break;
    }
    return "-";
}

static bool HasText(const WatchedReading& reading)
{
    return reading.outcome == READING_TEXT || reading.outcome == READING_SHORT;
}

InspectVerdict Report_Verdict(const InspectedPicture& picture)
{
    if (!picture.bTruth || !picture.expected.bKnown) {
        return VERDICT_NONE;
    }
    if (!HasText(picture.reading)) {
        return picture.expected.text.empty() ? VERDICT_AS_EMPTY : VERDICT_MISSED;
    }
    return Expected_Is(picture.expected, picture.reading.szText) ? VERDICT_RIGHT : VERDICT_WRONG;
}

bool Report_IsWell(const InspectedPicture& picture)
{
    switch (Report_Verdict(picture)) {
    case VERDICT_RIGHT:
        return true;
    case VERDICT_AS_EMPTY:
        return picture.reading.outcome == READING_NO_CODE;
    case VERDICT_WRONG:
    case VERDICT_MISSED:
        return false;
    case VERDICT_NONE:
        break;
    }
    return picture.reading.outcome == READING_TEXT;
}

__attribute__((format(printf, 1, 2))) static std::string Format(const char* szFormat, ...)
{
    char szLine[2 * READING_NOTE_SIZE];
    va_list args;
    va_start(args, szFormat);
    std::vsnprintf(szLine, sizeof(szLine), szFormat, args);
    va_end(args);
    return szLine;
}

// One line's columns behind the file's.
static std::string Columns(const char* szOutcome, const char* szVerdict, const std::string& bytes,
                           const std::string& symbologies, const std::string& attempt,
                           const std::string& scans, const std::string& ms)
{
    const std::string verdict = szVerdict[0] == '\0' ? "" : Format("  %-7s", szVerdict);
    return Format("  %-13s%s  %5s  %-17s  %-21s  %5s  %7s", szOutcome, verdict.c_str(),
                  bytes.c_str(), symbologies.c_str(), attempt.c_str(), scans.c_str(), ms.c_str());
}

std::string Report_Heading(size_t nPathWidth, bool bTruth)
{
    return Text_Padded("file", nPathWidth) +
           Columns("outcome", bTruth ? "verdict" : "", "bytes", "symbology", "attempt", "scans",
                   "ms") +
           "  text";
}

std::string Report_Line(const InspectedPicture& picture, size_t nPathWidth)
{
    const WatchedReading& reading = picture.reading;
    const bool bText = HasText(reading);
    const bool bDecoded = bText || reading.outcome == READING_NO_CODE;
    const InspectVerdict verdict = Report_Verdict(picture);
    std::string line =
        Text_Padded(Panel_EscapeText(picture.path), nPathWidth) +
        Columns(OutcomeName(reading.outcome), picture.bTruth ? VerdictName(verdict) : "",
                bText ? std::to_string(std::strlen(reading.szText)) : "-",
                bText ? reading.szSymbologies : "-",
                bText ? Reading_AttemptName(reading.nAttempt) + (reading.bOpened ? ", opened" : "")
                      : "-",
                bDecoded ? std::to_string(reading.nScans) : "-",
                bDecoded ? Format("%.1f", reading.ms) : "-") +
        "  " + (bText ? Text_Shown(reading.szText) : Panel_EscapeText(reading.szRemark));
    if (verdict == VERDICT_WRONG || verdict == VERDICT_MISSED) {
        line += (bText ? ", expected " : "expected ") +
                (picture.expected.text.empty() ? "nothing" : Text_Shown(picture.expected.text));
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

std::string Report_Json(const InspectedPicture& picture)
{
    const WatchedReading& reading = picture.reading;
    const bool bText = HasText(reading);
    const std::string text = bText ? reading.szText : "";
    nlohmann::ordered_json json;
    json["file"] = picture.path;
    json["fileHex"] = Panel_HexText(picture.path);
    json["outcome"] = OutcomeName(reading.outcome);
    json["text"] = nullptr;
    json["hex"] = nullptr;
    json["bytes"] = text.size();
    json["symbologies"] = nlohmann::ordered_json::array();
    json["attempt"] = nullptr;
    if (bText) {
        json["text"] = text;
        json["hex"] = Panel_HexText(text);
        json["attempt"] = Reading_AttemptName(reading.nAttempt);
        const std::string symbologies = reading.szSymbologies;
        for (size_t at = 0; at < symbologies.size();) {
            const size_t end = std::min(symbologies.find(", ", at), symbologies.size());
            json["symbologies"].push_back(symbologies.substr(at, end - at));
            at = end + 2;
        }
    }
    json["opened"] = reading.bOpened;
    json["scans"] = reading.nScans;
    json["ms"] = std::round(reading.ms * 1000.0) / 1000.0;
    json["remark"] = nullptr;
    if (reading.szRemark[0] != '\0') {
        json["remark"] = reading.szRemark;
    }
    if (picture.bTruth && picture.expected.bKnown) {
        static const char* const aNames[] = {"", "right", "wrong", "missed", "none as expected"};
        json["verdict"] = aNames[Report_Verdict(picture)];
        json["expected"] = picture.expected.text;
    }
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void Report_Count(InspectTally& tally, const InspectedPicture& picture)
{
    const WatchedReading& reading = picture.reading;
    const InspectVerdict verdict = Report_Verdict(picture);
    InspectTally::Attempt& attempt = tally.aAttempts[reading.nAttempt];
    ++tally.nPictures;
    tally.bTruth = tally.bTruth || picture.bTruth;
    tally.nRead += reading.outcome == READING_TEXT;
    tally.nShort += reading.outcome == READING_SHORT;
    tally.nNotDecodable += reading.outcome == READING_NOT_DECODABLE;
    tally.nNoPicture += reading.outcome == READING_NO_PICTURE;
    tally.nRight += verdict == VERDICT_RIGHT;
    tally.nWrong += verdict == VERDICT_WRONG;
    tally.nMissed += verdict == VERDICT_MISSED;
    tally.nAsEmpty += verdict == VERDICT_AS_EMPTY;
    tally.nUnknown += picture.bTruth && !picture.expected.bKnown;
    attempt.nRead += HasText(reading);
    attempt.nOpened += reading.bOpened;
    attempt.nRight += verdict == VERDICT_RIGHT;
    attempt.nWrong += verdict == VERDICT_WRONG;
    if (HasText(reading)) {
        tally.readMs.push_back(reading.ms);
    } else if (reading.outcome == READING_NO_CODE) {
        tally.unreadMs.push_back(reading.ms);
    }
    tally.bAllWell = tally.bAllWell && Report_IsWell(picture);
}

// The smallest value that so large a share of them does not exceed.
static double Percentile(std::vector<double> values, double share)
{
    std::sort(values.begin(), values.end());
    const double rank = std::ceil(share * static_cast<double>(values.size()));
    return values[static_cast<size_t>(std::max(rank, 1.0)) - 1];
}

static std::string TimeLine(const char* szWhat, const std::vector<double>& ms)
{
    if (ms.empty()) {
        return Format("  %-15s %6d\n", szWhat, 0);
    }
    return Format("  %-15s %6zu  %8.1f  %8.1f\n", szWhat, ms.size(), Percentile(ms, MEDIAN),
                  Percentile(ms, MOST));
}

std::string Report_Table(const InspectTally& tally)
{
    const int nUnread = tally.nPictures - tally.nRead - tally.nShort;
    std::string table = Format("\nPictures: %d, read: %d, too short: %d, unread: %d",
                               tally.nPictures, tally.nRead, tally.nShort, nUnread);
    if (tally.nNotDecodable + tally.nNoPicture > 0) {
        table += Format(" (of them not decodable: %d, no picture: %d)", tally.nNotDecodable,
                        tally.nNoPicture);
    }
    table += "\n";
    if (tally.bTruth) {
        table += Format("Texts right: %d, wrong: %d, missed: %d, none as expected: %d",
                        tally.nRight, tally.nWrong, tally.nMissed, tally.nAsEmpty);
        table +=
            tally.nUnknown > 0 ? Format(", without an expected text: %d\n", tally.nUnknown) : "\n";
    }
    table += Format("\n  %-15s %6s  %8s", "attempt", "read", "opened");
    table += tally.bTruth ? Format("  %6s  %6s\n", "right", "wrong") : "\n";
    for (int n = ATTEMPT_PLAIN; n <= ATTEMPT_COUNT; ++n) {
        const InspectTally::Attempt& attempt = tally.aAttempts[n];
        table += Format("  %-15s %6d  %8d", Reading_AttemptName(n).c_str(), attempt.nRead,
                        attempt.nOpened);
        table += tally.bTruth ? Format("  %6d  %6d\n", attempt.nRight, attempt.nWrong) : "\n";
    }
    table += Format("\n  %-15s %6s  %8s  %8s\n", "ms", "", "median", "95 %");
    return table + TimeLine("with a text", tally.readMs) + TimeLine("without", tally.unreadMs);
}
