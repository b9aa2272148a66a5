#include "demo_tally.h"

#include <algorithm>
#include <limits>

namespace
{

DemoOutcome OutcomeOf(const DemoView& view, bool reported, const std::string& text)
{
    switch (Expected_JudgeReport(view.expected, reported, text)) {
    case VERDICT_RIGHT:
        return OUTCOME_OK;
    case VERDICT_MISSED:
        return OUTCOME_MISSED;
    case VERDICT_NONE:
        return reported ? OUTCOME_READ : OUTCOME_NOT_READ;
    default:
        return reported ? OUTCOME_WRONG : OUTCOME_SILENT;
    }
}

void CloseView(DemoTally& tally, std::vector<DemoNews>& news)
{
    DemoView& view = tally.view;
    if (!view.open) {
        return;
    }
    view.open = false;
    if (view.texts.empty()) {
        news.push_back({view.time, view.picture, OutcomeOf(view, false, ""), "", view.expected});
    }
    tally.last[view.picture] = view;
}

void JudgeResult(DemoTally& tally, double time, const std::string& text,
                 std::vector<DemoNews>& news)
{
    DemoView& view = tally.view;
    if (view.picture.empty()) {
        ++tally.stray;
        news.push_back({time, "", OUTCOME_STRAY, text, {}});
        return;
    }
    if (std::find(view.texts.begin(), view.texts.end(), text) != view.texts.end()) {
        return;
    }
    const DemoOutcome outcome = OutcomeOf(view, true, text);
    view.texts.push_back(text);
    view.right = view.right || outcome == OUTCOME_OK;
    view.wrong = view.wrong || outcome == OUTCOME_WRONG;
    if (!view.open) {
        tally.last[view.picture] = view;
    }
    news.push_back({time, view.picture, outcome, text, view.expected});
}

void JudgeEvent(DemoTally& tally, double time, const DemoEvent& event, std::vector<DemoNews>& news)
{
    if (event.kind == DEMO_RESULT) {
        JudgeResult(tally, time, event.text, news);
        return;
    }
    CloseView(tally, news);
    DemoView view;
    view.time = time;
    view.picture = event.picture;
    view.expected = Expected_Read(event.picture);
    if (event.kind == DEMO_VIEW) {
        tally.view = view;
        tally.view.open = true;
    } else if (event.kind == DEMO_UNREADABLE) {
        view.unreadable = true;
        tally.last[view.picture] = view;
        news.push_back({time, view.picture, OUTCOME_UNREADABLE, event.text, view.expected});
    }
}

void Count(DemoSummary& summary, const DemoView& view)
{
    summary.shown += view.unreadable ? 0 : 1;
    summary.unreadable += view.unreadable ? 1 : 0;
    summary.wrong += view.wrong ? 1 : 0;
    if (Expected_IsReportable(view.expected)) {
        ++summary.reportable;
        summary.reported += view.right ? 1 : 0;
        summary.missed += view.right || view.wrong ? 0 : 1;
    } else if (view.expected.known) {
        ++summary.nothing;
    } else if (!view.unreadable) {
        ++summary.withoutText;
        summary.withoutTextRead += view.texts.empty() ? 0 : 1;
    }
}

} // namespace

void Tally_Add(DemoTally& tally, double time, const DemoEvent& event)
{
    tally.waiting.emplace(time, event);
}

std::vector<DemoNews> Tally_Judge(DemoTally& tally, double time)
{
    std::vector<DemoNews> news;
    while (!tally.waiting.empty() && tally.waiting.begin()->first < time) {
        JudgeEvent(tally, tally.waiting.begin()->first, tally.waiting.begin()->second, news);
        tally.waiting.erase(tally.waiting.begin());
    }
    return news;
}

std::vector<DemoNews> Tally_Break(DemoTally& tally)
{
    std::vector<DemoNews> news = Tally_Judge(tally, std::numeric_limits<double>::infinity());
    if (tally.view.open && !tally.view.texts.empty()) {
        CloseView(tally, news);
    }
    return news;
}

DemoSummary Tally_Summary(const DemoTally& tally, const std::vector<std::string>& listed)
{
    DemoSummary summary;
    for (const auto& entry : tally.last) {
        Count(summary, entry.second);
    }
    for (const std::string& picture : listed) {
        if (tally.last.count(picture) == 0 && Expected_IsReportable(Expected_Read(picture))) {
            ++summary.reportable;
            ++summary.missed;
        }
    }
    summary.wrong += tally.stray;
    return summary;
}
