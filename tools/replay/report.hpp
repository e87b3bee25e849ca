// The page report in its three forms: a text table, JSON and an HTML
// waterfall.
#ifndef ORVANE_REPLAY_REPORT_HPP
#define ORVANE_REPLAY_REPORT_HPP

#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "evaluate.hpp"
#include "replayer.hpp"
#include "trace.hpp"

namespace replay {

struct SessionReport {
    const Trace *trace = nullptr;
    SessionResult result;
    EvalResult eval;
};

struct ReportOptions {
    bool events = false;  // which page each event joined
    bool eval = false;    // the comparison with the recording's pages
};

void WriteText(std::ostream &out, const std::vector<SessionReport> &sessions, const ReportOptions &options);
nlohmann::json ToJson(const std::vector<SessionReport> &sessions, const ReportOptions &options);
void WriteHtml(std::ostream &out, const std::vector<SessionReport> &sessions);

// Helpers shared by the three forms.
std::string PageLabel(const EventOutcome &outcome);
std::string EventText(const TraceEvent &ev);
double ToMs(uint64_t ns);
size_t SkippedTotal(const std::vector<SessionReport> &sessions);

}  // namespace replay

#endif
