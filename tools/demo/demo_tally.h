// Which text belongs to which picture, what became of each picture, and the count of it all.
//
// The camera's events and the service's results arrive separately, but both carry the time of one
// clock. They are judged in the order of their times: a text belongs to the picture that came into
// view last, and the result of a frame is sent before the camera's next event.
#ifndef TOOLS_DEMO_TALLY_H
#define TOOLS_DEMO_TALLY_H

#include <map>
#include <string>
#include <vector>

#include "expected_text.h"

enum DemoOutcome {
    OUTCOME_OK,         // the expected text, reported
    OUTCOME_WRONG,      // another text, or one where none was to be reported
    OUTCOME_MISSED,     // a reportable text was expected and not reported
    OUTCOME_SILENT,     // nothing to report, and nothing was
    OUTCOME_READ,       // no expected text is known; one was reported
    OUTCOME_NOT_READ,   // no expected text is known; none was reported
    OUTCOME_UNREADABLE, // the file is no picture
    OUTCOME_STRAY       // a text before any picture came into view
};

enum DemoEventKind { DEMO_VIEW, DEMO_BLANK, DEMO_UNREADABLE, DEMO_RESULT };

struct DemoEvent {
    DemoEventKind kind;
    std::string picture; // of a view or an unreadable file
    std::string text;    // of a result; why a file is unreadable
};

// One picture's time before the camera.
struct DemoView {
    std::string picture;
    ExpectedText expected;
    double time = 0.0; // seconds since the epoch
    bool open = false;
    bool unreadable = false;
    bool right = false;
    bool wrong = false;
    std::vector<std::string> texts; // reported during it, each once
};

// What became known.
struct DemoNews {
    double time;
    std::string picture;
    DemoOutcome outcome;
    std::string text; // reported, or why the file is unreadable
    ExpectedText expected;
};

struct DemoTally {
    std::multimap<double, DemoEvent> waiting; // by time, seconds since the epoch
    DemoView view;                            // the latest
    std::map<std::string, DemoView> last;     // each picture's latest view, once it was closed
    int stray = 0;
};

void Tally_Add(DemoTally& tally, double time, const DemoEvent& event);

// Judges what happened before `time`; nothing earlier may be added later. A text that was already
// reported during the same view is no news.
std::vector<DemoNews> Tally_Judge(DemoTally& tally, double time);

// Ends the run in the middle: judges what is waiting; an open view with a text is closed, one
// without is discarded.
std::vector<DemoNews> Tally_Break(DemoTally& tally);

// Pictures, each with its latest view.
struct DemoSummary {
    int reportable = 0;      // with a reportable expected text
    int reported = 0;        // ... that was reported
    int missed = 0;          // ... of which nothing was reported
    int wrong = 0;           // with a wrong text, reportable or not; stray texts too
    int nothing = 0;         // with an expected text that is not reportable
    int withoutText = 0;     // without an expected text
    int withoutTextRead = 0; // ... of which one was reported
    int unreadable = 0;      // files that are no pictures
    int shown = 0;           // all that were on view
};

// Counts the closed views. Pictures of `listed` that never came up count as missed when something
// was to be reported of them.
DemoSummary Tally_Summary(const DemoTally& tally, const std::vector<std::string>& listed);

#endif
