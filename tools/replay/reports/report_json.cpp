#include <functional>
#include <utility>

#include <nlohmann/json.hpp>

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
        n += s.trace->skippedCount;
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

// The report is written a piece at a time, as nlohmann's dump(2) would write
// the whole: a document is dumped with a marker string where a long array
// belongs, and the line holding the marker is replaced by the array, written
// item by item. Dumped strings escape their newlines, so every line break in
// a dump is structure and a marker line cannot be mistaken for data.
using Hole = std::function<void(std::ostream &out, const std::string &indent)>;

std::string Marker(const std::string &name) { return "\x01" + name; }

// Writes doc as dump(2) at the given indent; a line ending in a hole's marker
// (after a key, or alone in an array) gets what the hole writes instead.
void WriteDoc(std::ostream &out, const json &doc, const std::string &indent,
              const std::vector<std::pair<std::string, Hole>> &holes)
{
    const std::string text = doc.dump(2);
    size_t begin = 0;
    bool firstLine = true;
    while (begin <= text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) {
            end = text.size();
        }
        std::string line = text.substr(begin, end - begin);
        if (!firstLine) {
            out << '\n' << indent;
        }
        firstLine = false;
        const bool comma = !line.empty() && line.back() == ',';
        if (comma) {
            line.pop_back();
        }
        bool filled = false;
        for (const auto &hole : holes) {
            const std::string marker = json(Marker(hole.first)).dump();
            if (line.size() >= marker.size() && line.compare(line.size() - marker.size(), marker.size(), marker) == 0) {
                out << line.substr(0, line.size() - marker.size());
                hole.second(out, indent + std::string(line.find_first_not_of(' '), ' '));
                filled = true;
                break;
            }
        }
        if (!filled) {
            out << line;
        }
        if (comma) {
            out << ',';
        }
        begin = end + 1;
    }
}

// An array written one item at a time.
class ArrayWriter {
public:
    ArrayWriter(std::ostream &out, const std::string &indent) : out_(out), indent_(indent), inner_(indent + "  ")
    {
        out_ << '[';
    }
    // Starts an item; returns the indent to write it at.
    const std::string &Next()
    {
        out_ << (any_ ? ",\n" : "\n") << inner_;
        any_ = true;
        return inner_;
    }
    void Item(const json &value) { WriteDoc(out_, value, Next(), {}); }
    void End()
    {
        if (any_) {
            out_ << '\n' << indent_;
        }
        out_ << ']';
    }

private:
    std::ostream &out_;
    const std::string indent_, inner_;
    bool any_ = false;
};

void WritePages(std::ostream &out, const PageRows &pages, const std::string &indent)
{
    ArrayWriter array(out, indent);
    pages.ForEach([&](const PageResult &p) { array.Item(PageJson(p)); });
    array.End();
}

void WriteEvents(std::ostream &out, const SessionReport &s, const std::string &indent)
{
    const Trace &t = *s.trace;
    ArrayWriter array(out, indent);
    for (size_t i = 0; i < t.events.size(); ++i) {
        const TraceEvent &ev = t.events[i];
        const EventOutcome o = i < s.result.outcomes.size() ? s.result.outcomes[i] : EventOutcome{};
        array.Item({{"origin", ev.origin},
                    {"kind", ev.kind == EventKind::kRequest ? "req" : "rsp"},
                    {"flow", ev.flow},
                    {"begin_ns", ev.begin},
                    {"event", EventText(ev)},
                    {"rc", o.rc},
                    {"page", o.pageId},
                    {"black", o.black}});
    }
    array.End();
}

void WriteSession(std::ostream &out, const SessionReport &s, const ReportOptions &options, const std::string &indent)
{
    const Trace &t = *s.trace;
    json j{{"file", t.file}, {"format", t.format}};
    if (!t.fatal.empty()) {
        j["error"] = t.fatal;
        WriteDoc(out, j, indent, {});
        return;
    }
    if (!s.result.setupError.empty()) {
        j["error"] = s.result.setupError;
        WriteDoc(out, j, indent, {});
        return;
    }
    json skipped = json::array();
    for (const Issue &issue : t.skipped) {
        skipped.push_back({{"where", issue.where}, {"reason", issue.what}});
    }
    j["skipped"] = skipped;
    if (t.skippedCount > t.skipped.size()) {
        j["skipped_not_listed"] = t.skippedCount - t.skipped.size();
    }
    j["late"] = s.result.late;
    j["cache_hits"] = t.cacheHits;
    j["not_http"] = t.notHttp;
    j["library_errors"] = s.result.libraryErrors;
    j["timer_runs"] = s.result.timerRuns;
    j["clock_begin_ns"] = s.result.clockBegin;
    j["clock_end_ns"] = s.result.clockEnd;
    // Captures: what the packets held besides the events, and the flows
    // that were seen but not decoded (never fed).
    if (t.format == "pcap" || t.format == "pcapng") {
        const CaptureStats &c = t.capture;
        j["capture"] = {{"packets", c.packets},
                        {"tcp_connections", c.tcpConnections},
                        {"http_connections", c.httpConnections},
                        {"cut_transactions", c.cutTransactions},
                        {"malformed_packets", c.malformed},
                        {"snap_cut_packets", c.snapCut},
                        {"truncated", c.truncated}};
        json undecoded = json::array();
        for (const UndecodedFlow &f : t.undecoded) {
            undecoded.push_back({{"kind", f.kind},
                                 {"client", f.client},
                                 {"server", f.server},
                                 {"sni", f.sni},
                                 {"begin_ns", f.begin},
                                 {"bytes", f.bytes}});
        }
        j["undecoded"] = undecoded;
    }
    j["pages"] = Marker("pages");
    std::vector<std::pair<std::string, Hole>> holes;
    holes.emplace_back("pages", [&](std::ostream &o, const std::string &in) { WritePages(o, s.result.pages, in); });
    if (options.events) {
        j["events"] = Marker("events");
        holes.emplace_back("events", [&](std::ostream &o, const std::string &in) { WriteEvents(o, s, in); });
    }
    if (options.eval) {
        j["eval"] = EvalJson(s.eval);
    }
    WriteDoc(out, j, indent, holes);
}

}  // namespace

void WriteJson(std::ostream &out, const std::vector<SessionReport> &sessions, const ReportOptions &options)
{
    EvalResult total;
    size_t events = 0, pages = 0, unreadable = 0;
    for (const SessionReport &s : sessions) {
        const bool replayed = s.trace->fatal.empty() && s.result.setupError.empty();
        unreadable += replayed ? 0 : 1;
        if (replayed) {
            total.Add(s.eval);
            events += s.result.events;
            pages += s.result.pages.size();
        }
    }
    json summary{{"sessions", sessions.size()},
                 {"events", events},
                 {"pages", pages},
                 {"skipped", SkippedTotal(sessions)},
                 {"not_replayed", unreadable}};
    if (options.eval) {
        summary["eval"] = EvalJson(total);
    }
    json doc{{"sessions", Marker("sessions")}, {"summary", summary}};
    WriteDoc(out, doc, "", {{"sessions", [&](std::ostream &o, const std::string &indent) {
                                 ArrayWriter array(o, indent);
                                 for (const SessionReport &s : sessions) {
                                     WriteSession(o, s, options, array.Next());
                                 }
                                 array.End();
                             }}});
    out << "\n";
}

}  // namespace replay
