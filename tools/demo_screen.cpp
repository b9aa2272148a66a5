#include "demo_screen.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

#include "shown_text.h"
#include "text_escape.h"

enum {
    NAME_MIN = 12, // characters, width of the names' column
    NAME_WIDEST = 40,
    OUTCOME_WIDTH = 17
};

static const char GREEN[] = "\033[32m";
static const char RED[] = "\033[31m";
static const char FAINT[] = "\033[2m";
static const char PLAIN[] = "\033[0m";

struct OutcomeLook {
    const char* szWord;
    const char* szColour;
};

static OutcomeLook Look(DemoOutcome outcome)
{
    switch (outcome) {
    case OUTCOME_OK:
        return {"ok", GREEN};
    case OUTCOME_WRONG:
        return {"WRONG", RED};
    case OUTCOME_MISSED:
        return {"MISSED", RED};
    case OUTCOME_SILENT:
        return {"nothing to report", FAINT};
    case OUTCOME_READ:
        return {"read", GREEN};
    case OUTCOME_NOT_READ:
        return {"not read", FAINT};
    case OUTCOME_UNREADABLE:
        return {"skipped", FAINT};
    case OUTCOME_STRAY:
        break;
    }
    return {"WRONG", RED};
}

static std::string NameOf(const std::string& picture)
{
    return Panel_EscapeText(std::filesystem::path(picture).filename().string());
}

static std::string Remark(const DemoNews& news)
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
        return Panel_EscapeText(news.text);
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

DemoScreen Screen_Open(const std::vector<std::string>& pictures, double begin)
{
    DemoScreen screen;
    const char* szNoColour = std::getenv("NO_COLOR");
    const char* szTerm = std::getenv("TERM");
    const bool bDumb = szTerm == nullptr || std::strcmp(szTerm, "dumb") == 0;
    const bool bUnwanted = szNoColour != nullptr && szNoColour[0] != '\0';
    screen.bColour = isatty(STDOUT_FILENO) == 1 && !bDumb && !bUnwanted;
    screen.nameWidth = NAME_MIN;
    screen.begin = begin;
    for (const std::string& picture : pictures) {
        screen.nameWidth = std::max(screen.nameWidth, Text_Characters(NameOf(picture)));
    }
    screen.nameWidth = std::min<size_t>(screen.nameWidth, NAME_WIDEST);
    return screen;
}

void Screen_News(const DemoScreen& screen, const DemoNews& news)
{
    const OutcomeLook look = Look(news.outcome);
    const std::string name = Text_Padded(NameOf(news.picture), screen.nameWidth);
    const std::string remark = Remark(news);
    std::printf("%6.1f s  %s  %s%-*s%s%s%s\n", news.time - screen.begin, name.c_str(),
                screen.bColour ? look.szColour : "", remark.empty() ? 0 : OUTCOME_WIDTH,
                look.szWord, screen.bColour ? PLAIN : "", remark.empty() ? "" : "  ",
                remark.c_str());
}

static std::string Bad(const DemoScreen& screen, int nCount)
{
    const std::string number = std::to_string(nCount);
    return screen.bColour && nCount > 0 ? RED + number + PLAIN : number;
}

void Screen_Summary(const DemoScreen& screen, const DemoSummary& summary)
{
    std::puts("");
    if (summary.nReportable > 0 || summary.nWrong > 0) {
        std::printf("Pictures with a reportable code: %d, reported: %d, missed: %s, wrong: %s\n",
                    summary.nReportable, summary.nReported, Bad(screen, summary.nMissed).c_str(),
                    Bad(screen, summary.nWrong).c_str());
    }
    if (summary.nNothing > 0) {
        std::printf("Pictures with nothing to report: %d\n", summary.nNothing);
    }
    if (summary.nFree > 0) {
        std::printf("Pictures without an expected text: %d, read: %d, not read: %d\n",
                    summary.nFree, summary.nFreeRead, summary.nFree - summary.nFreeRead);
    }
    if (summary.nUnreadable > 0) {
        std::printf("Files that are no pictures: %d\n", summary.nUnreadable);
    }
}
