#include "demo_screen.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unistd.h>

#include "text.h"

namespace
{

enum {
    NAME_MIN = 12, // characters, width of the names' column
    NAME_WIDEST = 40,
    OUTCOME_WIDTH = 17
};

const char GREEN[] = "\033[32m";
const char RED[] = "\033[31m";
const char FAINT[] = "\033[2m";

struct OutcomeLook {
    const char* word;
    const char* colour;
};

// By DemoOutcome.
const OutcomeLook LOOKS[] = {
    {"ok", GREEN},   {"WRONG", RED},      {"MISSED", RED},    {"nothing to report", FAINT},
    {"read", GREEN}, {"not read", FAINT}, {"skipped", FAINT}, {"WRONG", RED}};

std::string NameOf(const std::string& picture)
{
    return Text_Escape(std::filesystem::path(picture).filename().string());
}

std::string Remark(const DemoNews& news)
{
    switch (news.outcome) {
    case OUTCOME_MISSED:
        return "expected " + Text_Shown(news.expected.text);
    case OUTCOME_WRONG:
        return Text_Shown(news.text) + (Expected_IsReportable(news.expected)
                                            ? ", expected " + Text_Shown(news.expected.text)
                                            : ", nothing was to be reported");
    case OUTCOME_STRAY:
        return Text_Shown(news.text) + ", before any picture";
    case OUTCOME_UNREADABLE:
        return Text_Escape(news.text);
    case OUTCOME_SILENT:
        return news.expected.text.empty() ? "no code"
                                          : Text_Shown(news.expected.text) + " is too short";
    case OUTCOME_OK:
    case OUTCOME_READ:
        return Text_Shown(news.text);
    case OUTCOME_NOT_READ:
        break;
    }
    return "";
}

std::string Bad(const DemoScreen& screen, int count)
{
    const std::string number = std::to_string(count);
    return screen.coloured && count > 0 ? RED + number + SCREEN_PLAIN : number;
}

} // namespace

bool Screen_CanWrite()
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    Screen_Error("the output cannot be written");
    return false;
}

void Screen_Error(const std::string& what)
{
    std::fprintf(stderr, "demo: %s\n", what.c_str());
}

bool Screen_IsNoise(const std::string& line)
{
    return line.rfind("WARNING: ", 0) == 0 || line.rfind('\t', 0) == 0 ||
           line.rfind("sim: skipped ", 0) == 0;
}

DemoScreen Screen_Open(const std::vector<std::string>& pictures, double begin)
{
    DemoScreen screen;
    screen.coloured = Text_MayEscape(STDOUT_FILENO);
    screen.nameWidth = NAME_MIN;
    screen.begin = begin;
    for (const std::string& picture : pictures) {
        screen.nameWidth = std::max(screen.nameWidth, Text_Columns(NameOf(picture)));
    }
    screen.nameWidth = std::min<size_t>(screen.nameWidth, NAME_WIDEST);
    return screen;
}

void Screen_News(const DemoScreen& screen, const DemoNews& news)
{
    const OutcomeLook& look = LOOKS[news.outcome];
    const std::string name = Text_Fitted(NameOf(news.picture), screen.nameWidth);
    const std::string remark = Remark(news);
    std::printf("%6.1f s  %s  %s%-*s%s%s%s\n", news.time - screen.begin, name.c_str(),
                screen.coloured ? look.colour : "", remark.empty() ? 0 : OUTCOME_WIDTH, look.word,
                screen.coloured ? SCREEN_PLAIN : "", remark.empty() ? "" : "  ", remark.c_str());
}

void Screen_Summary(const DemoScreen& screen, const DemoSummary& summary)
{
    std::puts("");
    if (summary.reportable > 0 || summary.wrong > 0) {
        std::printf("Pictures with a reportable code: %d, reported: %d, missed: %s, wrong: %s\n",
                    summary.reportable, summary.reported, Bad(screen, summary.missed).c_str(),
                    Bad(screen, summary.wrong).c_str());
    }
    if (summary.nothing > 0) {
        std::printf("Pictures with nothing to report: %d\n", summary.nothing);
    }
    if (summary.withoutText > 0) {
        std::printf("Pictures without an expected text: %d, read: %d, not read: %d\n",
                    summary.withoutText, summary.withoutTextRead,
                    summary.withoutText - summary.withoutTextRead);
    }
    if (summary.unreadable > 0) {
        std::printf("Files that are no pictures: %d\n", summary.unreadable);
    }
}
