#include "card_report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "charsets.h"
#include "text.h"

namespace
{

enum { WORST_WIDTH = 37 }; // characters of the column

const CardVerdict COUNTED[] = {CARD_RIGHT, CARD_WRONG, CARD_SHORT, CARD_UNREAD};
const char* const COUNT_KEYS[] = {"right", "wrong", "tooShort", "notRead"}; // in JSON

Card Described(const CardRecord& record)
{
    Card card;
    card.version = record.version;
    return card;
}

nlohmann::ordered_json SightJson(const CardRecord& record, const CardSight& sight)
{
    const Card card = Described(record);
    nlohmann::ordered_json json;
    json["view"] = View_Name(card, sight.sizeNumber, sight.kind);
    json["size"] = View_Size(card, sight.sizeNumber);
    json["held"] = View_KindName(sight.kind);
    json["verdict"] = Card_VerdictName(sight.verdict);
    json["text"] = sight.text;
    json["hex"] = Text_Hex(sight.text);
    json["symbologies"] = sight.symbologies;
    return json;
}

std::string CountRow(const std::string& name, const long (&counts)[CARD_VERDICTS])
{
    long made = 0;
    for (const CardVerdict verdict : COUNTED) {
        made += counts[verdict];
    }
    if (made == 0) {
        return "";
    }
    std::string row = Text_Format("  %-26s %9ld", name.c_str(), made);
    for (const CardVerdict verdict : COUNTED) {
        row += Text_Format("  %9ld", counts[verdict]);
    }
    return row + "\n";
}

} // namespace

int CardReport_Views(const CardRecord& record, CardVerdict verdict)
{
    int views = 0;
    for (const auto& row : record.verdicts) {
        views += static_cast<int>(std::count(std::begin(row), std::end(row), verdict));
    }
    return views;
}

bool CardReport_IsWell(const CardRecord& record)
{
    return record.error[0] == '\0' && CardReport_Views(record, CARD_RIGHT) > 0 &&
           CardReport_Views(record, CARD_WRONG) == 0;
}

std::string CardReport_Heading()
{
    return Text_Format("%6s  %5s  %5s  %5s  %5s  %8s  %-*s  %s", "card", "views", "right", "wrong",
                       "short", "not read", WORST_WIDTH, "worst view", "text");
}

std::string CardReport_Line(const CheckedCard& card)
{
    const CardRecord& record = card.record;
    if (record.error[0] != '\0') {
        return Text_Format("%6zu  %s: not checked", card.number, Text_Escape(card.source).c_str());
    }
    int views[CARD_VERDICTS];
    int made = 0;
    for (const CardVerdict verdict : COUNTED) {
        views[verdict] = CardReport_Views(record, verdict);
        made += views[verdict];
    }
    const CardSight& worst = record.worst;
    const std::string worstName =
        worst.verdict == CARD_RIGHT
            ? "-"
            : std::string(worst.verdict == CARD_WRONG ? "WRONG" : Card_VerdictName(worst.verdict)) +
                  ": " + View_Name(Described(record), worst.sizeNumber, worst.kind);
    std::string line =
        Text_Format("%6zu  %5d  %5d  %5d  %5d  %8d  ", card.number, made, views[CARD_RIGHT],
                    views[CARD_WRONG], views[CARD_SHORT], views[CARD_UNREAD]) +
        Text_Padded(worstName, WORST_WIDTH) + "  " + Text_Shown(card.text);
    if (worst.verdict >= CARD_SHORT && card.text != worst.text) {
        line += " came as " + Text_Shown(worst.text) + " (" + worst.symbologies + ")";
    }
    return line;
}

std::string CardReport_Json(const CheckedCard& card)
{
    const CardRecord& record = card.record;
    nlohmann::ordered_json json;
    json["card"] = card.number;
    json["source"] = card.source;
    json["text"] = card.text;
    json["hex"] = Text_Hex(card.text);
    json["charsets"] = Charsets_Used();
    json["level"] = nullptr;
    json["version"] = nullptr;
    json["mask"] = nullptr;
    if (record.version > 0) {
        json["level"] = std::string(1, card.level);
        json["version"] = record.version;
        json["mask"] = record.mask;
    }
    json["views"] = 0;
    int made = 0;
    for (size_t n = 0; n < std::size(COUNTED); ++n) {
        const int views = CardReport_Views(record, COUNTED[n]);
        json[COUNT_KEYS[n]] = views;
        made += views;
    }
    json["views"] = made;
    json["worst"] = nullptr;
    if (made > 0) {
        json["worst"] = SightJson(record, record.worst);
    }
    json["wrongViews"] = nlohmann::ordered_json::array();
    for (int n = 0; n < record.wrongKept; ++n) {
        json["wrongViews"].push_back(SightJson(record, record.wrong[n]));
    }
    json["sizes"] = nlohmann::ordered_json::array();
    for (int n = 0; n < VIEW_SIZES; ++n) {
        const auto& row = record.verdicts[n];
        if (row[0] != CARD_NOT_MADE) {
            nlohmann::ordered_json size;
            size["size"] = View_Size(Described(record), n);
            for (size_t k = 0; k < std::size(COUNTED); ++k) {
                size[COUNT_KEYS[k]] = std::count(std::begin(row), std::end(row), COUNTED[k]);
            }
            json["sizes"].push_back(size);
        }
    }
    json["picture"] = nullptr;
    if (record.picture[0] != '\0') {
        json["picture"] = record.picture;
    }
    json["error"] = nullptr;
    if (record.error[0] != '\0') {
        json["error"] = record.error;
    }
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void CardReport_Count(CardTally& tally, const CheckedCard& card)
{
    const CardRecord& record = card.record;
    const bool checked = record.error[0] == '\0';
    ++tally.cards;
    tally.unchecked += !checked;
    tally.wrong += CardReport_Views(record, CARD_WRONG) > 0;
    tally.neverRight += checked && CardReport_Views(record, CARD_RIGHT) == 0;
    for (int size = 0; size < VIEW_SIZES; ++size) {
        for (int kind = 0; kind < CARD_KINDS_MAX; ++kind) {
            const uint8_t verdict = record.verdicts[size][kind];
            ++tally.sizes[record.version > 0 ? 0 : 1][size][verdict];
            ++tally.kinds[kind][verdict];
        }
    }
}

std::string CardReport_Table(const CardTally& tally, double seconds)
{
    long views = 0;
    std::string sizes;
    for (int picture = 0; picture < 2; ++picture) {
        Card card;
        card.version = picture == 0 ? 1 : 0;
        for (int size = 0; size < VIEW_SIZES; ++size) {
            sizes += CountRow(std::to_string(View_Size(card, size)) +
                                  (picture == 0 ? " pixels a module" : " % of the view"),
                              tally.sizes[picture][size]);
        }
    }
    std::string kinds;
    for (int kind = 0; kind < View_Kinds(); ++kind) {
        kinds += CountRow(View_KindName(kind), tally.kinds[kind]);
        for (const CardVerdict verdict : COUNTED) {
            views += tally.kinds[kind][verdict];
        }
    }
    std::string table =
        Text_Format("\nCards: %d, ever wrong: %d, never right: %d, not checked: %d\n"
                    "Views: %ld, %.0f a second\n",
                    tally.cards, tally.wrong, tally.neverRight, tally.unchecked, views,
                    seconds > 0.0 ? static_cast<double>(views) / seconds : 0.0);
    table += Text_Format("\n  %-26s %9s  %9s  %9s  %9s  %9s\n", "views", "made", "right", "wrong",
                         "too short", "not read");
    return table + sizes + (sizes.empty() ? "" : "\n") + kinds;
}
