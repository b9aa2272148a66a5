#include "demo_tally.h"

#include <algorithm>

void Tally_View(DemoTally& tally, double time, const std::string& picture)
{
    DemoView view;
    view.time = time;
    view.picture = picture;
    view.expected = Expected_Read(picture);
    tally.open.push_back(view);
}

void Tally_Unreadable(DemoTally& tally, double time, const std::string& picture,
                      const std::string& reason)
{
    Tally_View(tally, time, picture);
    tally.open.back().unreadable = reason.empty() ? "no picture" : reason;
}

static DemoOutcome ResultOutcome(const DemoView& view, const std::string& text)
{
    if (!view.expected.bKnown) {
        return OUTCOME_READ;
    }
    return Expected_IsReportable(view.expected) && Expected_Is(view.expected, text) ? OUTCOME_OK
                                                                                    : OUTCOME_WRONG;
}

// Of a view without any result.
static DemoOutcome EndOutcome(const DemoView& view)
{
    if (!view.unreadable.empty()) {
        return OUTCOME_UNREADABLE;
    }
    if (!view.expected.bKnown) {
        return OUTCOME_NOT_READ;
    }
    return Expected_IsReportable(view.expected) ? OUTCOME_MISSED : OUTCOME_SILENT;
}

static void CloseFirst(DemoTally& tally, std::vector<DemoNews>& news)
{
    const DemoView view = tally.open.front();
    tally.open.pop_front();
    if (view.texts.empty()) {
        news.push_back({view.time, view.picture, EndOutcome(view), view.unreadable, view.expected});
    }
    tally.last[view.picture] = view;
    if (view.unreadable.empty()) {
        tally.lastClosed = view;
    }
}

// The view that a result of this time belongs to, or null.
static DemoView* FindView(DemoTally& tally, double time)
{
    for (auto view = tally.open.rbegin(); view != tally.open.rend(); ++view) {
        if (view->time <= time && view->unreadable.empty()) {
            return &*view;
        }
    }
    const bool bLate = !tally.lastClosed.picture.empty() && tally.lastClosed.time <= time;
    return bLate ? &tally.lastClosed : nullptr;
}

void Tally_Result(DemoTally& tally, double time, const std::string& text,
                  std::vector<DemoNews>& news)
{
    DemoView* const view = FindView(tally, time);
    if (view == nullptr) {
        ++tally.nStray;
        news.push_back({time, "", OUTCOME_STRAY, text, {}});
        return;
    }
    if (std::find(view->texts.begin(), view->texts.end(), text) != view->texts.end()) {
        return;
    }
    const DemoOutcome outcome = ResultOutcome(*view, text);
    view->texts.push_back(text);
    view->bRight = view->bRight || outcome == OUTCOME_OK;
    view->bWrong = view->bWrong || outcome == OUTCOME_WRONG;
    const DemoNews result = {time, view->picture, outcome, text, view->expected};
    if (view == &tally.lastClosed) {
        tally.last[view->picture] = *view;
    } else { // datagrams arrive in order: nothing more can come for the views before
        const double begin = view->time;
        Tally_Close(tally, begin, news);
    }
    news.push_back(result);
}

void Tally_Close(DemoTally& tally, double time, std::vector<DemoNews>& news)
{
    while (!tally.open.empty() && tally.open.front().time < time) {
        CloseFirst(tally, news);
    }
}

void Tally_Break(DemoTally& tally)
{
    for (const DemoView& view : tally.open) {
        if (!view.texts.empty()) {
            tally.last[view.picture] = view;
        }
    }
    tally.open.clear();
}

static void Count(DemoSummary& summary, const DemoView& view)
{
    summary.nShown += view.unreadable.empty() ? 1 : 0;
    summary.nUnreadable += view.unreadable.empty() ? 0 : 1;
    summary.nWrong += view.bWrong ? 1 : 0;
    if (Expected_IsReportable(view.expected)) {
        ++summary.nReportable;
        summary.nReported += view.bRight ? 1 : 0;
        summary.nMissed += view.bRight || view.bWrong ? 0 : 1;
    } else if (view.expected.bKnown) {
        ++summary.nNothing;
    } else if (view.unreadable.empty()) {
        ++summary.nFree;
        summary.nFreeRead += view.texts.empty() ? 0 : 1;
    }
}

DemoSummary Tally_Summary(const DemoTally& tally, const std::vector<std::string>& listed)
{
    DemoSummary summary;
    for (const auto& entry : tally.last) {
        Count(summary, entry.second);
    }
    for (const std::string& picture : listed) {
        if (tally.last.count(picture) == 0 && Expected_IsReportable(Expected_Read(picture))) {
            ++summary.nReportable;
            ++summary.nMissed;
        }
    }
    summary.nWrong += tally.nStray;
    return summary;
}
