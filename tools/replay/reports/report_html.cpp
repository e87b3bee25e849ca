// A self-contained HTML page: for each session the page table and a
// waterfall with one bar per transaction, coloured by the page its request
// joined (the answer's stretch by the page the response joined).
#include <cmath>
#include <cstdio>
#include <map>

#include "report.hpp"
#include "text_util.hpp"

namespace replay {

namespace {

// Recorded text for HTML: control characters and stray bytes escaped as in
// the text report, long texts cut, then the markup characters.
std::string Escape(const std::string &text)
{
    constexpr size_t kMaxChars = 2000;
    const std::string s = Printable(text, kMaxChars);
    std::string out;
    out.reserve(s.size());
    for (char c : s) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string Num(double v, int digits = 3)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%.*f", digits, v);
    return buf;
}

// Well separated hues for consecutive pages.
std::string PageColour(size_t index)
{
    const double hue = std::fmod(static_cast<double>(index) * 137.508, 360.0);
    return "hsl(" + Num(hue, 0) + ",65%," + (index % 2 == 0 ? "48%" : "38%") + ")";
}

constexpr const char *kBlackColour = "#222";
constexpr const char *kNoPageColour = "#bbb";

constexpr const char *kStyle = R"(
body{font:13px/1.35 system-ui,sans-serif;margin:16px 24px;color:#1b1b1b;background:#fafafa}
h1{font-size:20px;margin:0 0 4px} h2{font-size:16px;margin:28px 0 4px}
.meta{color:#555;margin:0 0 10px}
table.pages{border-collapse:collapse;margin:6px 0 14px;background:#fff}
table.pages th,table.pages td{border:1px solid #ddd;padding:2px 7px;text-align:right;white-space:nowrap}
table.pages th{background:#eee} table.pages .l{text-align:left;} table.pages td.l{text-align:left;max-width:520px;overflow:hidden;text-overflow:ellipsis}
.sw{display:inline-block;width:12px;height:12px;border-radius:2px;vertical-align:middle}
.fail{color:#b00;font-weight:600} .ok{color:#070}
.wf{position:relative;background:#fff;border:1px solid #ddd;padding:4px 0}
.row{display:flex;height:15px;align-items:center}
.row:hover{background:#f0f4ff}
.lbl{flex:0 0 340px;overflow:hidden;white-space:nowrap;text-overflow:ellipsis;padding:0 6px;font:11px monospace;color:#333}
.track{position:relative;flex:1 1 auto;height:100%}
.bar{position:absolute;top:3px;height:9px;border-radius:2px;min-width:2px}
.bar.rsp{top:2px;height:11px}
.axis{display:flex;height:18px}
.axis .track{border-bottom:1px solid #999}
.tick{position:absolute;bottom:0;font:10px monospace;color:#555;transform:translateX(-50%)}
.grid{position:absolute;top:18px;bottom:0;border-left:1px dashed #e3e3e3;pointer-events:none}
.legend{margin:4px 0 8px;color:#444}
)";

double NiceStep(double spanSec)
{
    const double steps[] = {0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600};
    for (double s : steps) {
        if (spanSec / s <= 12) {
            return s;
        }
    }
    return 1200;
}

void WriteSession(std::ostream &out, const SessionReport &s)
{
    const Trace &t = *s.trace;
    out << "<h2>" << Escape(t.file) << "</h2>\n";
    if (!t.fatal.empty() || !s.result.setupError.empty()) {
        out << "<p class=\"fail\">Not replayed: " << Escape(t.fatal.empty() ? s.result.setupError : t.fatal)
            << "</p>\n";
        return;
    }
    // The waterfall needs every event anyway; the rows are few beside them.
    const std::vector<PageResult> pages = s.result.pages.All();
    std::map<uint64_t, std::string> colour;
    for (size_t i = 0; i < pages.size(); ++i) {
        colour[pages[i].id] = PageColour(i);
    }
    auto colourOf = [&](const EventOutcome &o) -> std::string {
        if (o.black) {
            return kBlackColour;
        }
        auto it = colour.find(o.pageId);
        return it == colour.end() ? kNoPageColour : it->second;
    };

    out << "<p class=\"meta\">" << t.format << ", " << t.events.size() << " events, " << t.transactions.size()
        << " transactions, " << pages.size() << " pages; skipped " << t.skippedCount << " bad";
    if (t.format == "har") {
        out << ", " << t.cacheHits << " cache hits, " << t.notHttp << " not HTTP";
    }
    out << "</p>\n<table class=\"pages\"><tr><th></th><th>page</th><th>type</th><th>req</th><th>rsp</th>"
           "<th>success</th><th>counted</th><th>cause</th><th>delay ms</th><th>DNS ms</th><th>closed at s</th>"
           "<th class=\"l\">first request</th></tr>\n";
    for (const PageResult &p : pages) {
        out << "<tr><td><span class=\"sw\" style=\"background:" << colour[p.id] << "\"></span></td><td>" << p.id
            << "</td><td>" << KindName(p.kind) << "</td><td>" << p.requests << "</td><td>" << p.responses << "</td>";
        if (p.reported) {
            out << "<td class=\"" << (p.kqi.ucSuccFlag ? "ok" : "fail") << "\">" << unsigned(p.kqi.ucSuccFlag)
                << "</td><td>" << unsigned(p.kqi.ucPageFlag) << "</td><td>" << p.kqi.usCauseCode << "</td><td>"
                << Num(ToMs(p.kqi.ullPageDelay), 0) << "</td><td>" << p.kqi.uiDnsDelay << "</td><td>"
                << Num(static_cast<double>(p.closedAt - s.result.clockBegin) / 1e9, 0)
                << (p.released ? " (release)" : "") << "</td>";
        } else {
            out << "<td colspan=\"6\">open</td>";
        }
        const std::string first = p.host + (p.uri.empty() || p.uri[0] == '/' ? "" : "/") + p.uri;
        out << "<td class=\"l\" title=\"" << Escape(first) << "\">" << Escape(first) << "</td></tr>\n";
    }
    out << "</table>\n";

    uint64_t begin = s.result.clockBegin, end = begin;
    for (const Transaction &tx : t.transactions) {
        begin = std::min(begin, tx.begin);
        end = std::max(end, tx.end);
    }
    const double span = std::max(static_cast<double>(end - begin) / 1e9, 0.001);
    auto pct = [&](uint64_t ns) { return Num(100.0 * (static_cast<double>(ns - begin) / 1e9) / span, 4); };
    const double step = NiceStep(span);

    out << "<div class=\"legend\"><span class=\"sw\" style=\"background:" << kBlackColour
        << "\"></span> black-listed &nbsp; <span class=\"sw\" style=\"background:" << kNoPageColour
        << "\"></span> no page &nbsp; thin bar: request to answer; thick end: the response event</div>\n";
    out << "<div class=\"wf\"><div class=\"axis\"><div class=\"lbl\">time since first event</div><div "
           "class=\"track\">";
    for (double x = 0; x <= span + 1e-9; x += step) {
        out << "<span class=\"tick\" style=\"left:" << Num(100.0 * x / span, 4) << "%\">" << Num(x, step < 1 ? 2 : 0)
            << "s</span><span class=\"grid\" style=\"left:" << Num(100.0 * x / span, 4) << "%\"></span>";
    }
    out << "</div></div>\n";
    for (const Transaction &tx : t.transactions) {
        const std::string label = tx.method + " " + tx.url;
        std::string tip = label + " [" + tx.origin + "]";
        std::string reqColour = kNoPageColour;
        if (tx.request >= 0) {
            const EventOutcome &o = s.result.outcomes[static_cast<size_t>(tx.request)];
            reqColour = colourOf(o);
            tip += "; request -> " + PageLabel(o);
        }
        if (tx.response >= 0) {
            tip += "; response " + std::to_string(t.events[static_cast<size_t>(tx.response)].status) + " -> " +
                   PageLabel(s.result.outcomes[static_cast<size_t>(tx.response)]);
        }
        if (!tx.truePage.empty()) {
            tip += "; recorded page " + tx.truePage;
        }
        out << "<div class=\"row\" title=\"" << Escape(tip) << "\"><div class=\"lbl\">" << Escape(label)
            << "</div><div class=\"track\">";
        out << "<div class=\"bar\" style=\"left:" << pct(tx.begin) << "%;width:" << Num(100.0 * static_cast<double>(tx.end - tx.begin) / 1e9 / span, 4)
            << "%;background:" << reqColour << "\"></div>";
        if (tx.response >= 0) {
            const TraceEvent &rsp = t.events[static_cast<size_t>(tx.response)];
            out << "<div class=\"bar rsp\" style=\"left:" << pct(rsp.begin) << "%;width:"
                << Num(100.0 * static_cast<double>(rsp.end - rsp.begin) / 1e9 / span, 4)
                << "%;background:" << colourOf(s.result.outcomes[static_cast<size_t>(tx.response)]) << "\"></div>";
        }
        out << "</div></div>\n";
    }
    out << "</div>\n";
}

}  // namespace

void WriteHtml(std::ostream &out, const std::vector<SessionReport> &sessions)
{
    out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
           "<title>orvane-replay: pages</title><style>"
        << kStyle << "</style></head><body>\n<h1>Web pages as the library grouped them</h1>\n"
        << "<p class=\"meta\">One bar per transaction on the trace's clock; colour = the page its request "
           "joined.</p>\n";
    for (const SessionReport &s : sessions) {
        WriteSession(out, s);
    }
    out << "</body></html>\n";
}

}  // namespace replay
