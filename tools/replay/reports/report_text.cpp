#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <map>
#include <sstream>

#include "report.hpp"
#include "text_util.hpp"

namespace replay {

namespace {

// Recorded text in a column: escaped, cut on a character boundary, padded.
std::string Fit(const std::string &s, size_t width) { return Column(s, width); }

constexpr size_t kEventChars = 300;  // the last column has no width, only a limit

std::string Fixed(double v, int digits)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%.*f", digits, v);
    return buf;
}

std::string Delay(uint64_t ns) { return Fixed(ToMs(ns), 0); }

void WriteEvents(std::ostream &out, const SessionReport &s)
{
    const Trace &trace = *s.trace;
    out << "  events in the order fed:\n";
    out << "    " << std::left << std::setw(10) << "T+s" << std::setw(26) << "FLOW" << std::setw(14) << "PAGE"
        << "EVENT\n";
    for (int i : s.result.fedOrder) {
        const TraceEvent &ev = trace.events[static_cast<size_t>(i)];
        // A late line may begin before the first line fed.
        const double rel = ev.begin >= s.result.clockBegin
                               ? static_cast<double>(ev.begin - s.result.clockBegin) / 1e9
                               : -static_cast<double>(s.result.clockBegin - ev.begin) / 1e9;
        out << "    " << std::left << std::setw(10) << Fixed(rel, 3) << Fit(ev.flow, 25) << ' '
            << std::setw(14) << PageLabel(s.result.outcomes[static_cast<size_t>(i)])
            << Printable(EventText(ev), kEventChars) << "  [" << ev.origin << "]\n";
    }
}

void WritePages(std::ostream &out, const SessionReport &s)
{
    size_t hostWidth = 4;
    s.result.pages.ForEach(
        [&](const PageResult &p) { hostWidth = std::max(hostWidth, CharCount(Printable(p.host, 32))); });
    out << "  " << std::right << std::setw(6) << "PAGE" << "  " << std::left << std::setw(7) << "TYPE" << std::right
        << std::setw(5) << "REQ" << std::setw(5) << "RSP" << std::setw(6) << "SUCC" << std::setw(5) << "CNT"
        << std::setw(7) << "CAUSE" << std::setw(10) << "DELAY_MS" << std::setw(8) << "DNS_MS" << "  " << std::left
        << std::setw(static_cast<int>(hostWidth)) << "HOST" << "  URL\n";
    s.result.pages.ForEach([&](const PageResult &p) {
        out << "  " << std::right << std::setw(6) << p.id << "  " << std::left << std::setw(7) << KindName(p.kind)
            << std::right << std::setw(5) << p.requests << std::setw(5) << p.responses;
        if (p.reported) {
            out << std::setw(6) << static_cast<unsigned>(p.kqi.ucSuccFlag) << std::setw(5)
                << static_cast<unsigned>(p.kqi.ucPageFlag) << std::setw(7) << p.kqi.usCauseCode << std::setw(10)
                << Delay(p.kqi.ullPageDelay) << std::setw(8) << p.kqi.uiDnsDelay;
        } else {
            out << std::setw(6) << "-" << std::setw(5) << "-" << std::setw(7) << "open" << std::setw(10) << "-"
                << std::setw(8) << "-";
        }
        out << "  " << Fit(p.host.empty() ? "-" : p.host, hostWidth) << "  " << Printable(p.uri, 60) << "\n";
    });
}

void WriteSummary(std::ostream &out, const SessionReport &s)
{
    const Trace &t = *s.trace;
    const SessionResult &r = s.result;
    size_t web = 0, counted = 0;
    r.pages.ForEach([&](const PageResult &p) {
        web += (p.kind == PageKind::kAssociate || p.kind == PageKind::kUcid) ? 1 : 0;
        counted += p.reported && p.kqi.ucPageFlag == 1 ? 1 : 0;
    });
    out << "  " << r.events << " events (" << r.requests << " requests, " << r.events - r.requests << " responses, "
        << r.black << " black-listed, " << r.refused << " without page); " << r.pages.size() << " pages (" << web
        << " web, " << counted << " counted); " << r.timerRuns << " timer runs over "
        << Fixed(static_cast<double>(r.clockEnd - r.clockBegin) / 1e9, 1) << " s\n";
    out << "  skipped: " << t.skippedCount << " bad";
    if (t.format == "har") {
        out << ", " << t.cacheHits << " cache hits, " << t.notHttp << " not HTTP (never on the wire)";
    }
    if (r.late != 0) {
        out << "; " << r.late << " late (out of time order, fed as they came)";
    }
    if (!t.warnings.empty()) {
        out << "; " << t.warnings.size() << " integration contract rules broken (see the warnings)";
    }
    out << "; library ERROR lines: " << r.libraryErrors << "\n";
}

std::string Score(bool defined, double v) { return defined ? Fixed(v, 3) : "n/a"; }

std::string BaseName(const std::string &file)
{
    const size_t slash = file.find_last_of('/');
    return slash == std::string::npos ? file : file.substr(slash + 1);
}

constexpr const char *kEvalDefinitions = R"(  TX: replayed transactions with a page label (and mixed-in background ones).
  TRUE: the recording's pages.
  PAGES, WEB, CNT: pages the library reported, of them web pages, of them
  counted. PREC, REC, F1: over pairs of transactions, a pair being on one page
  in the recording, in the library's grouping, or both (a request without a
  page stands alone; with no pair on a side that side scores 1). PAGE_F1: mean
  over true pages of 2|T&L|/(|T|+|L|), L the library page holding most of the
  true page T. MAIN: true pages whose first transaction opened a library
  page. SPLIT: true pages whose own transactions opened two or more library
  pages. MERGED: true pages whose first transaction joined a page opened by
  another page's (or background) transaction. n/a: nothing labelled (JSON
  Lines without "page", packet captures, HAR without pageref).
)";

void WriteDelays(std::ostream &out, const EvalResult &total)
{
    bool any = false;
    for (const TruePageScore &p : total.pages) {
        any = any || p.onLoadMs >= 0.0 || p.onContentLoadMs >= 0.0;
    }
    if (!any) {
        return;
    }
    out << "\nPage delay against the browser (ms; the library page that took each true page's first transaction):\n";
    out << "  " << std::left << std::setw(40) << "FILE" << std::setw(12) << "PAGE" << std::right << std::setw(10)
        << "LIBRARY" << std::setw(7) << "CAUSE" << std::setw(10) << "DCL" << std::setw(10) << "ONLOAD" << std::setw(10)
        << "ERROR" << std::setw(8) << "ERR%" << "\n";
    auto ms = [](double v) { return v < 0.0 ? std::string("-") : Fixed(v, 0); };
    for (const TruePageScore &p : total.pages) {
        if (p.onLoadMs < 0.0 && p.onContentLoadMs < 0.0) {
            continue;
        }
        const bool both = p.delayMs >= 0.0 && p.onLoadMs > 0.0;
        out << "  " << std::left << std::setw(40) << Fit(BaseName(p.file), 39) << std::setw(12) << Fit(p.id, 11)
            << std::right << std::setw(10) << ms(p.delayMs) << std::setw(7)
            << (p.delayMs < 0.0 ? std::string("-") : std::to_string(p.cause)) << std::setw(10)
            << ms(p.onContentLoadMs) << std::setw(10) << ms(p.onLoadMs) << std::setw(10)
            << (both ? Fixed(p.delayMs - p.onLoadMs, 0) : "-") << std::setw(8)
            << (both ? Fixed(100.0 * (p.delayMs - p.onLoadMs) / p.onLoadMs, 0) : "-") << "\n";
    }
    const struct {
        bool onLoad, measuredOnly;
        const char *what;
    } lines[] = {{true, false, "onLoad"},
                 {true, true, "onLoad, cause 2001 left out"},
                 {false, false, "onContentLoad"}};
    for (const auto &line : lines) {
        const DelayStats d = total.Delay(line.onLoad, line.measuredOnly);
        out << "  against " << line.what << ": " << d.pages << " pages";
        if (d.pages != 0) {
            out << ", median |error| " << Fixed(d.medianMs, 0) << " ms, 90th percentile " << Fixed(d.p90Ms, 0)
                << " ms, within 20 %: " << Fixed(100.0 * d.within20, 0) << " %";
        }
        out << "\n";
    }
    out << "  LIBRARY: the page delay, from the page's first time (the DNS look-up's begin when the first request\n"
           "  follows it by less than 10 s, else the first request's begin or its flow's SYN up to 5 s before it)\n"
           "  to the end of the page's last message; a page closed with fewer responses than requests reports its\n"
           "  quiet time instead (cause 2001). DCL, ONLOAD: the browser's onContentLoad and onLoad, from the\n"
           "  page's start. ERROR: LIBRARY - ONLOAD.\n";
}

// Flows listed one per line in the summary, unless --events asks for all.
constexpr size_t kListedFlows = 20;

// A capture: its packets, and the flows the daemon could not decode.
void WriteCapture(std::ostream &out, const Trace &t, bool allFlows)
{
    const CaptureStats &c = t.capture;
    out << "  capture: " << c.packets << " packets, " << c.tcpConnections << " TCP connections with data ("
        << c.httpConnections << " HTTP/1.x), " << c.cutTransactions << " cut transactions, " << c.malformed
        << " malformed packets";
    if (c.snapCut != 0) {
        out << ", " << c.snapCut << " cut by the snap length (capture with -s 0)";
    }
    out << (c.truncated ? "; the file ends inside a packet" : "") << "\n";
    if (t.undecoded.empty()) {
        return;
    }
    std::map<std::string, size_t> kinds;
    for (const UndecodedFlow &f : t.undecoded) {
        ++kinds[f.kind];
    }
    out << "  not decoded, not fed: " << t.undecoded.size() << " flows (";
    const char *sep = "";
    for (const auto &[kind, count] : kinds) {
        out << sep << count << " " << kind;
        sep = ", ";
    }
    out << ")\n";
    const size_t listed = allFlows ? t.undecoded.size() : std::min(t.undecoded.size(), kListedFlows);
    for (size_t i = 0; i < listed; ++i) {
        const UndecodedFlow &f = t.undecoded[i];
        out << "    " << std::left << std::setw(7) << f.kind << f.client << " > " << f.server << "  " << f.bytes
            << " bytes" << (f.sni.empty() ? "" : "  SNI " + Printable(f.sni, 100)) << "\n";
    }
    if (listed < t.undecoded.size()) {
        out << "    ... " << t.undecoded.size() - listed << " more (--events lists all)\n";
    }
}

void WriteEval(std::ostream &out, const std::vector<SessionReport> &sessions)
{
    out << "\nGrouping against the recording's own pages:\n";
    out << "  " << std::left << std::setw(46) << "FILE" << std::right << std::setw(6) << "TX" << std::setw(6)
        << "TRUE" << std::setw(7) << "PAGES" << std::setw(5) << "WEB" << std::setw(5) << "CNT" << std::setw(7)
        << "PREC" << std::setw(7) << "REC" << std::setw(7) << "F1" << std::setw(9) << "PAGE_F1" << std::setw(8)
        << "MAIN" << std::setw(7) << "SPLIT" << std::setw(8) << "MERGED" << "\n";
    EvalResult total;
    auto row = [&out](const std::string &name, const EvalResult &e) {
        const bool ok = e.Labelled();
        out << "  " << Fit(name, 45) << ' ' << std::right << std::setw(6) << e.transactions
            << std::setw(6) << e.truePages << std::setw(7) << e.reportedPages << std::setw(5) << e.webPages
            << std::setw(5) << e.countedPages << std::setw(7) << Score(ok, e.Precision()) << std::setw(7)
            << Score(ok, e.Recall()) << std::setw(7) << Score(ok, e.F1()) << std::setw(9)
            << Score(ok, e.PageF1Mean()) << std::setw(8)
            << (ok ? std::to_string(e.mainFound) + "/" + std::to_string(e.truePages) : "n/a") << std::setw(7)
            << e.split << std::setw(8) << e.merged << "\n";
    };
    size_t rows = 0, unscored = 0;
    for (const SessionReport &s : sessions) {
        if (!s.trace->fatal.empty() || !s.result.setupError.empty()) {
            continue;
        }
        unscored += s.eval.Labelled() ? 0 : 1;
        row(BaseName(s.trace->file), s.eval);
        total.Add(s.eval);
        ++rows;
    }
    if (rows > 1) {
        row("TOTAL (pairs summed)", total);
    }
    if (!total.Labelled()) {
        out << "  n/a: no replayed transaction carries a page label, so there is nothing to score against.\n";
    } else if (unscored != 0) {
        out << "  n/a: " << unscored << " file(s) carry no page label at all and are not scored.\n";
    }
    if (total.Labelled() && rows > 1) {
        out << "  F1 mean over " << total.files << " labelled files " << Fixed(total.FileF1Mean(), 3) << ", over "
            << total.truePages << " true pages " << Fixed(total.PageF1Mean(), 3) << "; main request recall "
            << Fixed(total.MainRecall(), 3) << "\n";
    }
    if (total.unlabelled != 0) {
        out << "  " << total.unlabelled << " replayed transactions carry no page label and are left out.\n";
    }
    if (total.background != 0) {
        out << "  " << total.background << " background transactions (mixed in, of no page) are scored as standing alone.\n";
    }
    out << kEvalDefinitions;
    WriteDelays(out, total);
}

}  // namespace

void WriteText(std::ostream &out, const std::vector<SessionReport> &sessions, const ReportOptions &options)
{
    for (const SessionReport &s : sessions) {
        out << "== " << Printable(s.trace->file) << " (" << (s.trace->format.empty() ? "?" : s.trace->format) << ")\n";
        if (!s.trace->fatal.empty()) {
            out << "  not replayed: " << s.trace->fatal << "\n\n";
            continue;
        }
        if (!s.result.setupError.empty()) {
            out << "  not replayed: " << s.result.setupError << "\n\n";
            continue;
        }
        if (options.events) {
            WriteEvents(out, s);
        }
        WritePages(out, s);
        WriteSummary(out, s);
        if (s.trace->format == "pcap" || s.trace->format == "pcapng") {
            WriteCapture(out, *s.trace, options.events);
        }
        out << "\n";
    }
    if (options.eval) {
        WriteEval(out, sessions);
    }
    if (sessions.size() > 1) {
        size_t events = 0, pages = 0, unreadable = 0;
        for (const SessionReport &s : sessions) {
            events += s.result.events;
            pages += s.result.pages.size();
            unreadable += s.trace->fatal.empty() && s.result.setupError.empty() ? 0 : 1;
        }
        out << "\n" << sessions.size() << " sessions: " << events << " events, " << pages << " pages, "
            << SkippedTotal(sessions) << " bad entries skipped, " << unreadable << " files not replayed\n";
    }
}

}  // namespace replay
