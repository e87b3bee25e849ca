#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <map>
#include <sstream>

#include "report.hpp"

namespace replay {

namespace {

std::string Fit(const std::string &s, size_t width)
{
    if (s.size() <= width) {
        return s;
    }
    return s.substr(0, width - 3) + "...";
}

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
        out << "    " << std::left << std::setw(10) << Fixed(rel, 3) << std::setw(26) << Fit(ev.flow, 25)
            << std::setw(14) << PageLabel(s.result.outcomes[static_cast<size_t>(i)]) << EventText(ev) << "  ["
            << ev.origin << "]\n";
    }
}

void WritePages(std::ostream &out, const SessionReport &s)
{
    size_t hostWidth = 4;
    s.result.pages.ForEach(
        [&](const PageResult &p) { hostWidth = std::max(hostWidth, std::min<size_t>(p.host.size(), 32)); });
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
        out << "  " << std::left << std::setw(static_cast<int>(hostWidth)) << Fit(p.host.empty() ? "-" : p.host, 32)
            << "  " << Fit(p.uri, 60) << "\n";
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
    out << "; library ERROR lines: " << r.libraryErrors << "\n";
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
            << " bytes" << (f.sni.empty() ? "" : "  SNI " + f.sni) << "\n";
    }
    if (listed < t.undecoded.size()) {
        out << "    ... " << t.undecoded.size() - listed << " more (--events lists all)\n";
    }
}

void WriteEval(std::ostream &out, const std::vector<SessionReport> &sessions)
{
    out << "\nGrouping against the recording's own pages (pairs of transactions on one page):\n";
    out << "  " << std::left << std::setw(46) << "FILE" << std::right << std::setw(6) << "TX" << std::setw(6)
        << "TRUE" << std::setw(7) << "PAGES" << std::setw(5) << "WEB" << std::setw(5) << "CNT" << std::setw(7)
        << "PREC" << std::setw(7) << "REC" << std::setw(7) << "F1" << std::setw(9) << "MAIN\n";
    EvalResult total;
    auto row = [&out](const std::string &name, const EvalResult &e) {
        out << "  " << std::left << std::setw(46) << Fit(name, 45) << std::right << std::setw(6) << e.transactions
            << std::setw(6) << e.truePages << std::setw(7) << e.reportedPages << std::setw(5) << e.webPages
            << std::setw(5) << e.countedPages << std::setw(7) << Fixed(e.Precision(), 3) << std::setw(7)
            << Fixed(e.Recall(), 3) << std::setw(7) << Fixed(e.F1(), 3) << std::setw(8)
            << (std::to_string(e.mainFound) + "/" + std::to_string(e.truePages)) << "\n";
    };
    size_t rows = 0;
    for (const SessionReport &s : sessions) {
        if (!s.trace->fatal.empty() || !s.result.setupError.empty()) {
            continue;
        }
        std::string name = s.trace->file;
        const size_t slash = name.find_last_of('/');
        if (slash != std::string::npos) {
            name = name.substr(slash + 1);
        }
        row(name, s.eval);
        total.Add(s.eval);
        ++rows;
    }
    if (rows > 1) {
        row("TOTAL (pairs summed)", total);
    }
    if (total.unlabelled != 0) {
        out << "  " << total.unlabelled << " replayed transactions carry no page label and are left out.\n";
    }
}

}  // namespace

void WriteText(std::ostream &out, const std::vector<SessionReport> &sessions, const ReportOptions &options)
{
    for (const SessionReport &s : sessions) {
        out << "== " << s.trace->file << " (" << (s.trace->format.empty() ? "?" : s.trace->format) << ")\n";
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
