#include "report.hpp"

namespace replay {

using nlohmann::json;

std::string PageLabel(const EventOutcome &outcome)
{
    if (!outcome.fed) {
        return "not fed";
    }
    if (outcome.black) {
        return "black";
    }
    if (outcome.rc != WEBPAGE_OK) {
        return "none (rc " + std::to_string(outcome.rc) + ")";
    }
    return std::to_string(outcome.pageId);
}

std::string EventText(const TraceEvent &ev)
{
    if (ev.kind == EventKind::kResponse) {
        std::string text = "rsp " + std::to_string(ev.status);
        if (!ev.location.empty()) {
            text += " -> " + ev.location;
        }
        return text;
    }
    std::string text = "req " + ev.methodName + " " + ev.host;
    if (!ev.uri.empty() && ev.uri[0] != '/') {
        text += "/";
    }
    text += ev.uri;
    if (ev.status != 0) {
        text += " (" + std::to_string(ev.status) + ")";
    }
    return text;
}

double ToMs(uint64_t ns) { return static_cast<double>(ns) / 1e6; }

size_t SkippedTotal(const std::vector<SessionReport> &sessions)
{
    size_t n = 0;
    for (const SessionReport &s : sessions) {
        n += s.trace->skipped.size();
    }
    return n;
}

namespace {

json EvalJson(const EvalResult &e)
{
    return json{{"transactions", e.transactions},
                {"unlabelled", e.unlabelled},
                {"true_pages", e.truePages},
                {"reported_pages", e.reportedPages},
                {"web_pages", e.webPages},
                {"counted_pages", e.countedPages},
                {"true_pairs", e.truePairs},
                {"predicted_pairs", e.predictedPairs},
                {"agreeing_pairs", e.agreeingPairs},
                {"precision", e.Precision()},
                {"recall", e.Recall()},
                {"f1", e.F1()},
                {"main_request_found", e.mainFound}};
}

json PageJson(const PageResult &p)
{
    json j{{"id", p.id},
           {"type", KindName(p.kind)},
           {"host", p.host},
           {"url", p.uri},
           {"requests", p.requests},
           {"responses", p.responses},
           {"reported", p.reported}};
    if (p.reported) {
        j["success"] = p.kqi.ucSuccFlag;
        j["counted"] = p.kqi.ucPageFlag;
        j["cause"] = p.kqi.usCauseCode;
        j["page_delay_ms"] = ToMs(p.kqi.ullPageDelay);
        j["dns_delay_ms"] = p.kqi.uiDnsDelay;
        j["closed_by"] = p.released ? "release" : "timer";
        j["closed_at_ns"] = p.closedAt;
    }
    return j;
}

json SessionJson(const SessionReport &s, const ReportOptions &options)
{
    const Trace &t = *s.trace;
    json j{{"file", t.file}, {"format", t.format}};
    if (!t.fatal.empty()) {
        j["error"] = t.fatal;
        return j;
    }
    if (!s.result.setupError.empty()) {
        j["error"] = s.result.setupError;
        return j;
    }
    json skipped = json::array();
    for (const Issue &issue : t.skipped) {
        skipped.push_back({{"where", issue.where}, {"reason", issue.what}});
    }
    j["skipped"] = skipped;
    j["cache_hits"] = t.cacheHits;
    j["not_http"] = t.notHttp;
    j["library_errors"] = s.result.libraryErrors;
    j["timer_runs"] = s.result.timerRuns;
    j["clock_begin_ns"] = s.result.clockBegin;
    j["clock_end_ns"] = s.result.clockEnd;
    json pages = json::array();
    for (const PageResult &p : s.result.pages) {
        pages.push_back(PageJson(p));
    }
    j["pages"] = pages;
    if (options.events) {
        json events = json::array();
        for (size_t i = 0; i < t.events.size(); ++i) {
            const TraceEvent &ev = t.events[i];
            const EventOutcome &out = s.result.outcomes[i];
            events.push_back({{"origin", ev.origin},
                              {"kind", ev.kind == EventKind::kRequest ? "req" : "rsp"},
                              {"flow", ev.flow},
                              {"begin_ns", ev.begin},
                              {"event", EventText(ev)},
                              {"rc", out.rc},
                              {"page", out.pageId},
                              {"black", out.black}});
        }
        j["events"] = events;
    }
    if (options.eval) {
        j["eval"] = EvalJson(s.eval);
    }
    return j;
}

}  // namespace

json ToJson(const std::vector<SessionReport> &sessions, const ReportOptions &options)
{
    json out;
    json list = json::array();
    EvalResult total;
    size_t events = 0, pages = 0, unreadable = 0;
    for (const SessionReport &s : sessions) {
        list.push_back(SessionJson(s, options));
        const bool replayed = s.trace->fatal.empty() && s.result.setupError.empty();
        unreadable += replayed ? 0 : 1;
        if (replayed) {
            total.Add(s.eval);
            events += s.trace->events.size();
            pages += s.result.pages.size();
        }
    }
    out["sessions"] = list;
    json summary{{"sessions", sessions.size()},
                 {"events", events},
                 {"pages", pages},
                 {"skipped", SkippedTotal(sessions)},
                 {"not_replayed", unreadable}};
    if (options.eval) {
        summary["eval"] = EvalJson(total);
    }
    out["summary"] = summary;
    return out;
}

}  // namespace replay
