// The page report in its three forms: a text table, JSON and an HTML
// waterfall.
#ifndef ORVANE_REPLAY_REPORT_HPP
#define ORVANE_REPLAY_REPORT_HPP

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "evaluate.hpp"
#include "replayer.hpp"
#include "trace.hpp"

namespace replay {

struct SessionReport {
    std::unique_ptr<Trace> trace;
    SessionResult result;
    EvalResult eval;
};

struct ReportOptions {
    bool events = false;  // which page each event joined
    bool eval = false;    // the comparison with the recording's pages
};

// Each writes page rows and events one at a time, never the whole report at
// once; the JSON is the same text as nlohmann's dump(2) of the whole.
void WriteText(std::ostream &out, const std::vector<SessionReport> &sessions, const ReportOptions &options);
void WriteJson(std::ostream &out, const std::vector<SessionReport> &sessions, const ReportOptions &options);
void WriteHtml(std::ostream &out, const std::vector<SessionReport> &sessions);

// Helpers shared by the three forms.
std::string PageLabel(const EventOutcome &outcome);
std::string EventText(const TraceEvent &ev);
double ToMs(uint64_t ns);
size_t SkippedTotal(const std::vector<SessionReport> &sessions);

}  // namespace replay

#endif
