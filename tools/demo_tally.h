// Which text belongs to which picture, what became of each picture, and the count of it all.
//
// The camera's events and the panel's results come over two roads, but both carry the time of one
// clock: a result belongs to the last picture that came into view at or before its time. A view's
// end is judged only after it was closed, when no result of it can still be on the road.
#ifndef TOOLS_DEMO_TALLY_H
#define TOOLS_DEMO_TALLY_H

#include <deque>
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

// One picture's time before the camera.
struct DemoView {
    double time = 0.0; // seconds since the epoch
    std::string picture;
    ExpectedText expected;
    std::string unreadable; // why the file was skipped; otherwise empty
    bool bRight = false;
    bool bWrong = false;
    std::vector<std::string> texts; // reported during it, each once
};

// What there is to tell as it happens.
struct DemoNews {
    double time;
    std::string picture;
    DemoOutcome outcome;
    std::string text; // reported, or why the file is unreadable
    ExpectedText expected;
};

struct DemoTally {
    std::deque<DemoView> open;            // not closed yet, in the order of their times
    DemoView lastClosed;                  // for a result that comes late all the same
    std::map<std::string, DemoView> last; // each picture's latest view, closed
    int nStray = 0;
};

// A picture came into view, or was skipped with a reason.
void Tally_View(DemoTally& tally, double time, const std::string& picture);
void Tally_Unreadable(DemoTally& tally, double time, const std::string& picture,
                      const std::string& reason);

// A text was reported at `time`. Closes the views before the one that it belongs to. Nothing is
// told of a text that was reported during the same view already.
void Tally_Result(DemoTally& tally, double time, const std::string& text,
                  std::vector<DemoNews>& news);

// Closes the views that came before `time`.
void Tally_Close(DemoTally& tally, double time, std::vector<DemoNews>& news);

// Ends the run in the middle: of the open views, those with a result are closed, the others never
// were.
void Tally_Break(DemoTally& tally);

// Pictures, each with its latest view.
struct DemoSummary {
    int nReportable = 0; // with a reportable expected text
    int nReported = 0;   // ... that was reported
    int nMissed = 0;     // ... of which nothing was reported
    int nWrong = 0;      // with a wrong text, reportable or not; stray texts too
    int nNothing = 0;    // with an expected text that is not reportable
    int nFree = 0;       // without an expected text
    int nFreeRead = 0;   // ... of which one was reported
    int nUnreadable = 0; // files that are no pictures
    int nShown = 0;      // all that were on view
};

// Counts the closed views. Pictures of `listed` that never came up count as missed when something
// was to be reported of them.
DemoSummary Tally_Summary(const DemoTally& tally, const std::vector<std::string>& listed);

#endif
