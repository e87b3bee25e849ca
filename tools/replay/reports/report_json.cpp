#include <functional>
#include <utility>

#include <nlohmann/json.hpp>

#include "report.hpp"

namespace replay {

using nlohmann::json;

// The --json layout, described by tools/replay/report.schema.json. Keys may
// be added without a new version; a key removed, renamed or changed in type
// or meaning takes the next one.
constexpr int kJsonSchemaVersion = 1;

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

// Scores are null where nothing was labelled; delays are null where unknown.
json EvalJson(const EvalResult &e, bool withPages)
{
    const bool ok = e.Labelled();
    auto score = [ok](double v) { return ok ? json(v) : json(nullptr); };
    auto ms = [](double v) { return v < 0.0 ? json(nullptr) : json(v); };
    json j{{"transactions", e.transactions},
           {"unlabelled", e.unlabelled},
           {"background", e.background},
           {"true_pages", e.truePages},
           {"reported_pages", e.reportedPages},
           {"web_pages", e.webPages},
           {"counted_pages", e.countedPages},
           {"true_pairs", e.truePairs},
           {"predicted_pairs", e.predictedPairs},
           {"agreeing_pairs", e.agreeingPairs},
           {"precision", score(e.Precision())},
           {"recall", score(e.Recall())},
           {"f1", score(e.F1())},
           {"page_f1_mean", score(e.PageF1Mean())},
           {"file_f1_mean", e.files == 0 ? json(nullptr) : json(e.FileF1Mean())},
           {"files_labelled", e.files},
           {"main_request_found", e.mainFound},
           {"main_request_recall", score(e.MainRecall())},
           {"pages_split", e.split},
           {"pages_merged", e.merged}};
    json delay = json::object();
    const std::pair<const char *, DelayStats> kinds[] = {{"on_load", e.Delay(true)},
                                                         {"on_load_measured", e.Delay(true, true)},
                                                         {"on_content_load", e.Delay(false)}};
    for (const auto &kind : kinds) {
        const DelayStats &d = kind.second;
        json stats{{"pages", d.pages}};
        stats["median_abs_error_ms"] = d.pages == 0 ? json(nullptr) : json(d.medianMs);
        stats["p90_abs_error_ms"] = d.pages == 0 ? json(nullptr) : json(d.p90Ms);
        stats["share_within_20pct"] = d.pages == 0 ? json(nullptr) : json(d.within20);
        delay[kind.first] = stats;
    }
    j["page_delay"] = delay;
    if (withPages) {
        json pages = json::array();
        for (const TruePageScore &p : e.pages) {
            pages.push_back({{"id", p.id},
                             {"title", p.title},
                             {"transactions", p.transactions},
                             {"on_best_page", p.overlap},
                             {"best_page_size", p.bestSize},
                             {"f1", p.F1()},
                             {"pages_opened", p.opened},
                             {"main_request_found", p.mainFound},
                             {"split", p.split()},
                             {"merged", p.merged},
                             {"page_delay_ms", ms(p.delayMs)},
                             {"cause", p.delayMs < 0.0 ? json(nullptr) : json(p.cause)},
                             {"on_content_load_ms", ms(p.onContentLoadMs)},
                             {"on_load_ms", ms(p.onLoadMs)}});
        }
        j["pages"] = pages;
    }
    return j;
}

// Times are integers of nanoseconds on the trace's clock (`_ns`), the DNS
// delay the daemon's milliseconds as the library reports them (`_ms`), flags
// booleans: nothing is rounded.
json PageJson(const PageResult &p)
{
    json j{{"id", p.id},
           {"type", KindName(p.kind)},
           {"host", p.host},
           {"url", p.uri},
           {"requests", p.requests},
           {"responses", p.responses},
           {"opened_at_ns", p.openedAt},
           {"reported", p.reported}};
    if (p.reported) {
        j["success"] = p.kqi.ucSuccFlag == 1;
        j["counted"] = p.kqi.ucPageFlag == 1;
        j["cause"] = p.kqi.usCauseCode;
        j["page_delay_ns"] = p.kqi.ullPageDelay;
        j["dns_delay_ms"] = p.kqi.uiDnsDelay;
        j["closed_by"] = p.released ? "release" : "timer";
        j["closed_at_ns"] = p.closedAt;
    }
    return j;
}

const char *Outcome(const EventOutcome &o)
{
    return !o.fed ? "not_fed" : o.black ? "black" : o.rc != WEBPAGE_OK ? "no_page" : "page";
}

// An event with the fields the daemon handed the library; strings only when
// the event had them.
json EventJson(const TraceEvent &ev, const EventOutcome &o)
{
    const bool request = ev.kind == EventKind::kRequest;
    json j{{"origin", ev.origin},
           {"kind", request ? "req" : "rsp"},
           {"flow", ev.flow},
           {"begin_ns", ev.begin},
           {"end_ns", ev.end},
           {"syn_ns", ev.syn},
           {"status", ev.status},
           {"client_port", ev.clientPort},
           {"server_port", ev.serverPort},
           {"event", EventText(ev)},
           {"outcome", Outcome(o)},
           {"rc", o.rc},
           {"page", o.pageId},
           {"black", o.black}};
    if (request) {
        j["method"] = ev.methodName;
    }
    const std::pair<const char *, const std::string *> texts[] = {
        {"host", &ev.host},          {"uri", &ev.uri},           {"refer_host", &ev.referHost},
        {"refer_path", &ev.referPath}, {"location", &ev.location}, {"content_type", &ev.contentType}};
    for (const auto &[key, text] : texts) {
        if (!text->empty()) {
            j[key] = *text;
        }
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
    // Text that is not UTF-8 (a file name, say) is written with U+FFFD in its place.
    const std::string text = doc.dump(2, ' ', false, json::error_handler_t::replace);
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
        array.Item(EventJson(ev, o));
    }
    array.End();
}

// A session's object: scalar keys and small objects go into j; a list that
// may be long gets a hole, filled item by item as it is written.
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
    json warnings = json::array();
    for (const Issue &issue : t.warnings) {
        warnings.push_back({{"where", issue.where}, {"reason", issue.what}});
    }
    j["warnings"] = warnings;
    if (t.skippedCount > t.skipped.size()) {
        j["skipped_not_listed"] = t.skippedCount - t.skipped.size();
    }
    j["events_fed"] = s.result.events;
    j["requests_fed"] = s.result.requests;
    j["black_listed"] = s.result.black;
    j["without_page"] = s.result.refused;
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
        j["eval"] = EvalJson(s.eval, true);
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
        summary["eval"] = EvalJson(total, false);
    }
    json doc{{"schema_version", kJsonSchemaVersion},
             {"generator", std::string("orvane-replay ") + ORVANE_VERSION},
             {"sessions", Marker("sessions")},
             {"summary", summary}};
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
