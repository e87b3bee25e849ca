// A self-contained HTML report read the way a waterfall is read: an index of
// sessions and pages, then one collapsible section per page the library
// reported, each on its own time axis in ms, with a row per transaction
// (timing phases, status, type, size, duration), the DNS look-ups, the
// redirect chains, and the recording's own page beside the library's.
// Long sessions are summarised: the file's size has a bound whatever the
// trace's length.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <set>
#include <unordered_map>

#include "report.hpp"
#include "text_util.hpp"

namespace replay {

namespace {

// What keeps the file small and quick to open for a trace of any length.
constexpr size_t kMaxDrawnPages = 100;    // page sections with a waterfall, per session
constexpr size_t kFirstDrawnPages = 50;   // of them the first in time; the others stand out
constexpr size_t kRowBudget = 4000;       // waterfall rows per session, shared by its sections
constexpr size_t kMinRowsPerPage = 40;
constexpr size_t kMaxRowsPerPage = 300;
constexpr size_t kMaxLooseRows = 200;     // page-less transactions outside every drawn page
constexpr size_t kMaxUrlShown = 150;      // bytes of a URL in a row's label
constexpr size_t kMaxUrlTip = 400;        // ... and in its tooltip
constexpr size_t kMaxTip = 1200;          // a row's whole tooltip
constexpr size_t kMaxPhases = 12;         // drawn per row
constexpr size_t kOpenSections = 12;      // drawn open; the others open with a click
// The library starts a page's delay at the DNS look-up of its host when the
// look-up began less than this before the page's first request.
constexpr uint64_t kDnsLeadNs = 10 * kNsPerSec;
// A SYN longer ago than this is an old connection's, not this request's wait.
constexpr uint64_t kHandshakeMaxNs = 10 * kNsPerSec;

// Recorded text for HTML: control characters and stray bytes escaped as in
// the text report, then the markup characters, and no more than max bytes of
// it: a longer text is cut at a character boundary and ends in an ellipsis.
// Cutting after escaping is what bounds a row's size, whatever the URL holds.
std::string Escape(const std::string &text, size_t max = std::string::npos)
{
    constexpr size_t kMaxChars = 2000;
    const std::string s = Printable(text, kMaxChars);
    std::string out;
    size_t whole = 0;  // out's size where the current character began
    for (char c : s) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
            whole = out.size();
        }
        const char *piece = nullptr;
        switch (c) {
        case '&':
            piece = "&amp;";
            break;
        case '<':
            piece = "&lt;";
            break;
        case '>':
            piece = "&gt;";
            break;
        case '"':
            piece = "&quot;";
            break;
        default:
            break;
        }
        const size_t size = piece != nullptr ? std::char_traits<char>::length(piece) : 1;
        if (max != std::string::npos && out.size() + size > max) {
            out.resize(whole);
            return out + "\xE2\x80\xA6";
        }
        if (piece != nullptr) {
            out += piece;
        } else {
            out += c;
        }
    }
    return out;
}

std::string Num(double v, int digits)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%.*f", digits, v);
    return buf;
}

std::string Ms(uint64_t ns) { return Num(ToMs(ns), ns < 10 * kNsPerMs ? 1 : 0); }

std::string Bytes(int64_t n)
{
    if (n < 0) {
        return "";
    }
    if (n < 1000) {
        return std::to_string(n) + " B";
    }
    if (n < 1000000) {
        return Num(static_cast<double>(n) / 1e3, n < 10000 ? 1 : 0) + " kB";
    }
    return Num(static_cast<double>(n) / 1e6, 1) + " MB";
}

// The library's "host" and "uri" as one URL.
std::string PageUrl(const std::string &host, const std::string &uri)
{
    return host + (uri.empty() || uri[0] == '/' ? "" : "/") + uri;
}

// "text/html; charset=utf-8" -> "html": the column is narrow, the tooltip
// has the whole type.
// "page 3", "black", "none (rc 4)"
std::string JoinedText(const EventOutcome &o)
{
    const std::string label = PageLabel(o);
    return o.fed && !o.black && o.rc == WEBPAGE_OK ? "page " + label : label;
}

std::string ShortType(const std::string &type)
{
    std::string t = type.substr(0, type.find(';'));
    while (!t.empty() && t.back() == ' ') {
        t.pop_back();
    }
    const size_t slash = t.find('/');
    return slash == std::string::npos ? t : t.substr(slash + 1);
}

// Phases with a known meaning keep one colour everywhere; others (another
// reader's names) get a stable hue of their own.
struct PhaseStyle {
    const char *name;
    const char *colour;
};
constexpr PhaseStyle kPhaseStyles[] = {{"blocked", "#c4c8cd"}, {"dns", "#17998c"},  {"connect", "#f28c28"},
                                       {"tls", "#a468cc"},     {"send", "#a5d46a"}, {"wait", "#3f9e44"},
                                       {"receive", "#2f7fe0"}};

int PhaseClass(const std::string &name)
{
    for (size_t i = 0; i < std::size(kPhaseStyles); ++i) {
        if (name == kPhaseStyles[i].name) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

std::string PhaseColour(const std::string &name)
{
    const int known = PhaseClass(name);
    if (known >= 0) {
        return kPhaseStyles[known].colour;
    }
    uint32_t h = 2166136261u;
    for (char c : name) {
        h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
    }
    return "hsl(" + std::to_string(h % 360) + ",45%,55%)";
}

constexpr const char *kMarkDelay = "#d0147a";   // the page delay's end
constexpr const char *kMarkClose = "#444";      // the library reported the page
constexpr const char *kMarkDcl = "#1e5bd6";     // the recording's DOMContentLoaded
constexpr const char *kMarkLoad = "#e0301e";    // the recording's onLoad

constexpr const char *kStyle = R"(
body{font:13px/1.4 system-ui,sans-serif;margin:14px 22px;color:#1b1b1b;background:#f7f7f7}
h1{font-size:20px;margin:0 0 4px} h2{font-size:17px;margin:26px 0 4px;border-bottom:2px solid #888}
.meta{color:#555;margin:2px 0 8px}
.idx a{color:#124;text-decoration:none;margin-right:6px} .idx li{margin:2px 0}
a.pl{display:inline-block;padding:0 4px;border-radius:3px;font:11px monospace;margin:1px}
.ok{color:#116611} .fail{color:#b00000;font-weight:600} .na{color:#777}
a.pl.ok{background:#dff0d8} a.pl.fail{background:#f8d7d4} a.pl.na{background:#e6e6e6}
table.pages{border-collapse:collapse;margin:6px 0 12px;background:#fff;font-size:12px}
table.pages th,table.pages td{border:1px solid #ddd;padding:1px 6px;text-align:right;white-space:nowrap}
table.pages th{background:#eee} table.pages .l{text-align:left}
table.pages td.u{max-width:300px;overflow:hidden;text-overflow:ellipsis}
.when{position:relative;width:150px;height:10px;background:#f0f0f0}
.when i{position:absolute;top:1px;height:8px;min-width:2px;background:#888}
.when i.ok{background:#3f9e44} .when i.fail{background:#d23}
.legend{margin:4px 0 10px;color:#333;font-size:12px;line-height:20px}
.sw{display:inline-block;width:14px;height:9px;vertical-align:middle;margin:0 3px 0 8px;border-radius:2px}
.ln{display:inline-block;width:0;height:12px;vertical-align:middle;margin:0 3px 0 8px;border-left:2px solid}
details.pg{background:#fff;border:1px solid #ccc;margin:8px 0;border-radius:3px}
details.pg>summary{cursor:pointer;padding:4px 8px;background:#eef1f5;font-size:13px}
details.pg>summary b{font-size:14px}
.facts{padding:3px 10px;color:#333;font-size:12px}
.facts span{margin-right:14px}
.wf{position:relative;margin:2px 0 6px}
.r{display:grid;grid-template-columns:430px 40px 84px 58px 62px 1fr;height:17px;align-items:center;
 font:11px/17px ui-monospace,Menlo,monospace;border-bottom:1px solid #f2f2f2}
.r>div{overflow:hidden;white-space:nowrap;text-overflow:ellipsis;padding:0 4px}
.r .c{text-align:right;color:#444;padding-right:8px} .r .n{color:#222}
.r:hover{background:#eef4ff}
.r.h{font-weight:600;background:#f4f4f4;border-bottom:1px solid #aaa;height:18px}
.t{position:relative;height:17px;padding:0!important}
.t i{position:absolute;top:4px;height:9px;min-width:1px}
.s3 .st{color:#a85d00;font-weight:700} .s3{box-shadow:inset 3px 0 #e69500}
.s4 .st{color:#c00;font-weight:700} .s4{background:#fdeceb}
.dn .n{color:#0f6e64} .dn .t i{background:#17998c;opacity:.55}
.np .t i{opacity:.35} .bl .t i{outline:1px solid #000;outline-offset:0}
.xp .t i:last-child{outline:2px solid #ff6d00}
em{font-style:normal;font-size:10px;padding:0 3px;border-radius:2px;margin-right:3px}
em.bl{background:#222;color:#fff} em.np{background:#bbb;color:#000} em.xp{background:#ff6d00;color:#fff}
em.rd{background:#e69500;color:#fff} em.ev{background:#ddd;color:#333}
.arr{color:#e69500;font-weight:700}
.ov{position:absolute;top:0;bottom:0;left:674px;right:0;pointer-events:none}
.gl{position:absolute;top:0;bottom:0;border-left:1px dashed #e4e4e4}
.mk{position:absolute;top:0;bottom:0;border-left:2px solid}
.mk.d{border-left-style:dashed}
.tk{position:absolute;top:0;transform:translateX(-50%);font-weight:400;color:#555}
.more{padding:3px 10px;color:#555;font-style:italic;font-size:12px}
.js-only{display:none} .js .js-only{display:inline}
button{font-size:12px;margin-right:6px}
)";

std::string PhaseCss()
{
    std::string css;
    for (size_t i = 0; i < std::size(kPhaseStyles); ++i) {
        css += ".p" + std::to_string(i) + "{background:" + kPhaseStyles[i].colour + "}";
    }
    return css + "\n";
}

// Steps of 1, 2 and 5 times a power of ten, about eight to the axis.
double NiceStepMs(double spanMs)
{
    double unit = 1;
    while (unit * 10 < spanMs) {
        unit *= 10;
    }
    for (double m : {0.1, 0.2, 0.5, 1.0}) {
        if (spanMs / (unit * m) <= 10) {
            return unit * m;
        }
    }
    return unit;
}

// "host/path" with the host in lower case and no trailing '/', so that a
// Location and the request it led to compare equal.
std::string UrlKey(const std::string &url)
{
    const size_t slash = url.find('/');
    std::string host = ToLower(url.substr(0, slash));
    std::string path = slash == std::string::npos ? "" : url.substr(slash);
    while (!path.empty() && path.front() == '/') {
        path.erase(0, 1);
    }
    while (!path.empty() && path.back() == '/') {
        path.pop_back();
    }
    return host + "/" + path;
}

// The request a Location names, as a UrlKey; empty when it names none.
std::string LocationKey(const std::string &location, const std::string &fromUrl)
{
    UrlParts parts;
    if (SplitUrl(location, &parts)) {
        return UrlKey(parts.authority + parts.target);
    }
    if (!location.empty() && location[0] == '/' && (location.size() < 2 || location[1] != '/')) {
        return UrlKey(fromUrl.substr(0, fromUrl.find('/')) + location);
    }
    return {};
}

// A transaction's whole extent: its recorded phases may begin before the
// request event (queueing, look-up, connecting).
uint64_t StartOf(const Transaction &tx)
{
    return tx.phases.empty() ? tx.begin : std::min(tx.begin, tx.phases.front().begin);
}

uint64_t EndOf(const Transaction &tx)
{
    uint64_t end = tx.end;
    for (const Phase &ph : tx.phases) {
        end = std::max(end, ph.end);
    }
    return end;
}

struct PageStats {
    size_t reported = 0, counted = 0, succeeded = 0, failed = 0, open = 0;
    std::vector<uint64_t> delays;  // of reported pages, for the percentiles
};

// What the report knows about one session before it writes it.
class SessionView {
public:
    SessionView(const SessionReport &s, size_t index) : t_(*s.trace), r_(s.result), index_(index) {}

    void Prepare();
    void WriteIndexEntry(std::ostream &out) const;
    void Write(std::ostream &out);

private:
    struct Row {
        bool dns = false;
        int index = -1;  // into transactions or dns
        int depth = 0;   // redirect chain depth
    };
    struct Section {
        const PageResult *page = nullptr;  // null: transactions on no drawn page
        std::vector<int> txs;              // transactions, time order
        uint64_t begin = 0, end = 0;       // of its transactions
    };

    std::string Anchor(uint64_t pageId) const
    {
        return "s" + std::to_string(index_) + "p" + std::to_string(pageId);
    }
    const EventOutcome *OutcomeOf(int event) const
    {
        if (event < 0 || static_cast<size_t>(event) >= r_.outcomes.size()) {
            return nullptr;
        }
        const EventOutcome &o = r_.outcomes[static_cast<size_t>(event)];
        return o.fed ? &o : nullptr;
    }
    const TraceEvent *EventAt(int event) const
    {
        return event < 0 ? nullptr : &t_.events[static_cast<size_t>(event)];
    }
    // The page a transaction is drawn with: its request's, else its response's.
    uint64_t PageOf(const Transaction &tx) const
    {
        const EventOutcome *o = OutcomeOf(tx.request >= 0 ? tx.request : tx.response);
        return o == nullptr ? 0 : o->pageId;
    }
    uint32_t StatusOf(const Transaction &tx) const
    {
        const TraceEvent *ev = EventAt(tx.response >= 0 ? tx.response : tx.request);
        return ev == nullptr ? 0 : ev->status;
    }
    int StartDns(const PageResult &p) const;
    uint64_t PageStart(const PageResult &p) const;
    std::string RecordedText(const Section &sec, bool titles, const RecordedPage **main) const;
    std::vector<Row> Order(const Section &sec, size_t limit, size_t *left) const;
    int RedirectTarget(int tx) const;
    void WritePageTable(std::ostream &out) const;
    void WriteSection(std::ostream &out, const Section &sec, size_t rows, bool open);
    void WriteRow(std::ostream &out, const Row &row, const Section &sec, uint64_t t0, double spanMs);

    const Trace &t_;
    const SessionResult &r_;
    size_t index_;
    std::vector<PageResult> pages_;  // drawn, in ID order
    size_t pageCount_ = 0;
    PageStats stats_;
    std::vector<Section> sections_;  // one per drawn page, then the loose transactions
    std::map<uint64_t, size_t> sectionOf_;
    std::unordered_map<std::string, std::vector<int>> byUrl_;  // UrlKey -> transactions, time order
    std::map<int, int> redirectFrom_;                         // target -> the 3xx it follows
    std::unordered_map<int, std::vector<int>> dnsBefore_;     // transaction -> look-ups drawn before it
    uint64_t sessionBegin_ = ~0ull, sessionEnd_ = 0;          // of all transactions
    std::set<int> opensConnection_;                           // drawn with a connect phase from the SYN
};

void SessionView::Prepare()
{
    // Every page passes once for the figures; only the drawn ones are kept.
    struct Candidate {
        uint64_t id;
        bool failed;
        uint64_t delay;
    };
    std::vector<Candidate> rest;
    r_.pages.ForEach([&](const PageResult &p) {
        ++pageCount_;
        if (!p.reported) {
            ++stats_.open;
        } else {
            ++stats_.reported;
            stats_.delays.push_back(p.kqi.ullPageDelay);
            stats_.counted += p.kqi.ucPageFlag != 0;
            stats_.succeeded += p.kqi.ucPageFlag != 0 && p.kqi.ucSuccFlag != 0;
            stats_.failed += p.kqi.ucPageFlag != 0 && p.kqi.ucSuccFlag == 0;
        }
        if (pages_.size() < kFirstDrawnPages || pageCount_ <= kMaxDrawnPages) {
            pages_.push_back(p);
        } else {
            rest.push_back({p.id, p.reported && p.kqi.ucSuccFlag == 0 && p.kqi.ucPageFlag != 0,
                            p.reported ? p.kqi.ullPageDelay : 0});
        }
    });
    std::sort(stats_.delays.begin(), stats_.delays.end());
    if (pages_.size() + rest.size() > kMaxDrawnPages) {
        // Beyond the first pages, those a reader looks for: failures, then
        // the slowest.
        std::vector<Candidate> all = rest;
        for (size_t i = kFirstDrawnPages; i < pages_.size(); ++i) {
            const PageResult &p = pages_[i];
            all.push_back({p.id, p.reported && p.kqi.ucSuccFlag == 0 && p.kqi.ucPageFlag != 0,
                           p.reported ? p.kqi.ullPageDelay : 0});
        }
        const size_t keep = kMaxDrawnPages - kFirstDrawnPages;
        std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(std::min(keep, all.size())),
                          all.end(), [](const Candidate &a, const Candidate &b) {
                              return a.failed != b.failed ? a.failed : a.delay > b.delay;
                          });
        std::set<uint64_t> wanted;
        for (size_t i = 0; i < keep && i < all.size(); ++i) {
            wanted.insert(all[i].id);
        }
        pages_.resize(kFirstDrawnPages);
        r_.pages.ForEach([&](const PageResult &p) {
            if (wanted.count(p.id) != 0) {
                pages_.push_back(p);
            }
        });
    }

    sections_.resize(pages_.size() + 1);
    for (size_t i = 0; i < pages_.size(); ++i) {
        sections_[i].page = &pages_[i];
        sectionOf_[pages_[i].id] = i;
    }
    Section &loose = sections_.back();
    std::vector<int> pageless;
    for (size_t i = 0; i < t_.transactions.size(); ++i) {
        const Transaction &tx = t_.transactions[i];
        sessionBegin_ = std::min(sessionBegin_, StartOf(tx));
        sessionEnd_ = std::max(sessionEnd_, EndOf(tx));
        const uint64_t page = PageOf(tx);
        if (page == 0) {
            pageless.push_back(static_cast<int>(i));
            continue;
        }
        auto it = sectionOf_.find(page);
        if (it != sectionOf_.end()) {
            sections_[it->second].txs.push_back(static_cast<int>(i));
        }
    }
    auto byBegin = [this](int a, int b) {
        return StartOf(t_.transactions[static_cast<size_t>(a)]) < StartOf(t_.transactions[static_cast<size_t>(b)]);
    };
    for (Section &sec : sections_) {
        std::stable_sort(sec.txs.begin(), sec.txs.end(), byBegin);
        if (!sec.txs.empty()) {
            sec.begin = StartOf(t_.transactions[static_cast<size_t>(sec.txs.front())]);
            for (int i : sec.txs) {
                sec.end = std::max(sec.end, EndOf(t_.transactions[static_cast<size_t>(i)]));
            }
        }
    }
    // A black-listed or refused request is drawn with the page it happened
    // during (the latest begun), else with the loose ones.
    for (int i : pageless) {
        const uint64_t at = StartOf(t_.transactions[static_cast<size_t>(i)]);
        Section *home = &loose;
        for (size_t k = 0; k + 1 < sections_.size(); ++k) {
            Section &sec = sections_[k];
            if (!sec.txs.empty() && sec.begin <= at && at <= sec.end && (home == &loose || sec.begin > home->begin)) {
                home = &sec;
            }
        }
        home->txs.push_back(i);
    }
    for (Section &sec : sections_) {
        std::stable_sort(sec.txs.begin(), sec.txs.end(), byBegin);
    }

    // Without recorded phases, the first request on a connection (flow and
    // SYN time) shows the handshake: SYN to request.
    std::unordered_map<std::string, int> firstOn;
    for (const Section &sec : sections_) {
        for (int i : sec.txs) {
            const Transaction &tx = t_.transactions[static_cast<size_t>(i)];
            const TraceEvent *req = EventAt(tx.request);
            if (tx.phases.empty() && req != nullptr && req->syn != 0 && req->syn < req->begin &&
                req->begin - req->syn < kHandshakeMaxNs) {
                auto made = firstOn.emplace(req->flow + "#" + std::to_string(req->syn), i);
                if (!made.second && EventAt(t_.transactions[static_cast<size_t>(made.first->second)].request)->begin >
                                        req->begin) {
                    made.first->second = i;
                }
            }
        }
    }
    for (const auto &entry : firstOn) {
        opensConnection_.insert(entry.second);
    }

    // A look-up is drawn right before the first request to its host after
    // it; the look-up a page's delay starts from also before the page's
    // first request, even when an earlier page drew it already. A recording
    // that timed its look-ups as phases says which request made each.
    std::unordered_map<std::string, std::vector<std::pair<uint64_t, int>>> requestsTo;  // host -> (begin, tx)
    std::map<std::pair<std::string, uint64_t>, int> lookedUpBy;                       // (host, begin) -> tx
    for (const Section &sec : sections_) {
        for (int i : sec.txs) {
            const Transaction &tx = t_.transactions[static_cast<size_t>(i)];
            const TraceEvent *req = EventAt(tx.request);
            if (req == nullptr) {
                continue;
            }
            requestsTo[ToLower(req->host)].push_back({req->begin, i});
            for (const Phase &ph : tx.phases) {
                if (ph.name == "dns") {
                    lookedUpBy.emplace(std::make_pair(ToLower(req->host), ph.begin), i);
                }
            }
        }
    }
    for (auto &entry : requestsTo) {
        std::sort(entry.second.begin(), entry.second.end());
    }
    for (size_t d = 0; d < t_.dns.size(); ++d) {
        const DnsRecord &dns = t_.dns[d];
        auto it = requestsTo.find(ToLower(dns.host));
        if (dns.delayMs == 0 || it == requestsTo.end()) {
            continue;
        }
        auto phase = lookedUpBy.find({ToLower(dns.host), dns.begin});
        auto next = std::lower_bound(it->second.begin(), it->second.end(), std::pair<uint64_t, int>{dns.begin, -1});
        if (phase != lookedUpBy.end()) {
            dnsBefore_[phase->second].push_back(static_cast<int>(d));
        } else if (next != it->second.end() && next->first - dns.begin < kDnsLeadNs) {
            dnsBefore_[next->second].push_back(static_cast<int>(d));
        }
    }
    for (size_t k = 0; k + 1 < sections_.size(); ++k) {
        const int dns = StartDns(*sections_[k].page);
        const TraceEvent *first = EventAt(sections_[k].page->firstEvent);
        if (dns >= 0 && first != nullptr && first->transaction >= 0) {
            std::vector<int> &before = dnsBefore_[first->transaction];
            if (std::find(before.begin(), before.end(), dns) == before.end()) {
                before.push_back(dns);
            }
        }
    }

    // Redirect chains: a 3xx leads to the first later request for its Location.
    bool anyRedirect = false;
    for (const Section &sec : sections_) {
        for (int i : sec.txs) {
            const uint32_t status = StatusOf(t_.transactions[static_cast<size_t>(i)]);
            anyRedirect = anyRedirect || (status >= 300 && status < 400);
        }
    }
    if (anyRedirect) {
        for (size_t i = 0; i < t_.transactions.size(); ++i) {
            if (t_.transactions[i].request >= 0) {
                byUrl_[UrlKey(t_.transactions[i].url)].push_back(static_cast<int>(i));
            }
        }
        for (auto &entry : byUrl_) {
            std::stable_sort(entry.second.begin(), entry.second.end(), byBegin);
        }
        for (const Section &sec : sections_) {
            for (int i : sec.txs) {
                const int target = RedirectTarget(i);
                if (target >= 0 && redirectFrom_.count(target) == 0) {
                    redirectFrom_[target] = i;
                }
            }
        }
    }
}

// The request a redirect led to: the first for its Location that begins
// after the redirect did; -1 when none.
int SessionView::RedirectTarget(int i) const
{
    const Transaction &tx = t_.transactions[static_cast<size_t>(i)];
    const uint32_t status = StatusOf(tx);
    const TraceEvent *ev = EventAt(tx.response >= 0 ? tx.response : tx.request);
    if (status < 300 || status >= 400 || ev == nullptr || ev->location.empty()) {
        return -1;
    }
    auto it = byUrl_.find(LocationKey(ev->location, tx.url));
    if (it == byUrl_.end()) {
        return -1;
    }
    const std::vector<int> &same = it->second;
    auto j = std::lower_bound(same.begin(), same.end(), StartOf(tx), [this](int k, uint64_t at) {
        return StartOf(t_.transactions[static_cast<size_t>(k)]) < at;
    });
    while (j != same.end() && *j == i) {
        ++j;
    }
    return j == same.end() ? -1 : *j;
}

// The look-up the library's page delay starts from: the latest of the
// page's host before its first request, when it began shortly before; -1
// when none.
int SessionView::StartDns(const PageResult &p) const
{
    const TraceEvent *first = EventAt(p.firstEvent);
    if (first == nullptr) {
        return -1;
    }
    const std::string host = ToLower(p.host);
    int found = -1;
    for (size_t d = 0; d < t_.dns.size(); ++d) {
        const DnsRecord &dns = t_.dns[d];
        if (dns.begin <= first->begin && (found < 0 || dns.begin >= t_.dns[static_cast<size_t>(found)].begin) &&
            ToLower(dns.host) == host) {
            found = static_cast<int>(d);
        }
    }
    if (found >= 0 && first->begin - t_.dns[static_cast<size_t>(found)].begin >= kDnsLeadNs) {
        return -1;
    }
    return found;
}

// Where the library's page delay starts: that look-up, else the first request.
uint64_t SessionView::PageStart(const PageResult &p) const
{
    const TraceEvent *first = EventAt(p.firstEvent);
    if (first == nullptr) {
        return 0;
    }
    const int dns = StartDns(p);
    return dns >= 0 ? t_.dns[static_cast<size_t>(dns)].begin : first->begin;
}

// The recording's pages among a section's transactions, most used first.
std::string SessionView::RecordedText(const Section &sec, bool titles, const RecordedPage **main) const
{
    // Only the page's own transactions: page-less ones drawn beside them say
    // nothing about it.
    std::map<std::string, size_t> count;
    size_t own = 0;
    for (int i : sec.txs) {
        const Transaction &tx = t_.transactions[static_cast<size_t>(i)];
        if (sec.page == nullptr || PageOf(tx) != sec.page->id) {
            continue;
        }
        ++own;
        if (!tx.truePage.empty()) {
            ++count[tx.truePage];
        }
    }
    std::vector<std::pair<size_t, std::string>> order;
    for (const auto &entry : count) {
        order.push_back({entry.second, entry.first});
    }
    std::stable_sort(order.begin(), order.end(), [](const auto &a, const auto &b) { return a.first > b.first; });
    *main = nullptr;
    std::string text;
    for (size_t k = 0; k < order.size() && k < 4; ++k) {
        const RecordedPage *rec = nullptr;
        for (const RecordedPage &p : t_.pages) {
            if (p.id == order[k].second) {
                rec = &p;
            }
        }
        if (k == 0) {
            *main = rec;
        }
        text += (k == 0 ? "" : ", ") + std::string("<b>") + Escape(order[k].second, 60) + "</b>";
        if (titles && rec != nullptr && !rec->title.empty()) {
            text += " \xE2\x80\x9C" + Escape(rec->title, 80) + "\xE2\x80\x9D";
        }
        text += " (" + std::to_string(order[k].first) + " of " + std::to_string(own) + " tx)";
    }
    if (order.size() > 4) {
        text += ", " + std::to_string(order.size() - 4) + " more";
    }
    return text;
}

// Rows in time order, each redirect's target right under it, one step in.
std::vector<SessionView::Row> SessionView::Order(const Section &sec, size_t limit, size_t *left) const
{
    std::set<int> inSection(sec.txs.begin(), sec.txs.end());
    std::map<int, int> next;  // redirect -> its target in this section
    for (const auto &link : redirectFrom_) {
        if (inSection.count(link.first) != 0 && inSection.count(link.second) != 0) {
            next[link.second] = link.first;
        }
    }
    std::vector<Row> rows;
    size_t total = 0;
    for (int i : sec.txs) {
        auto dns = dnsBefore_.find(i);
        total += 1 + (dns == dnsBefore_.end() ? 0 : dns->second.size());
    }
    auto add = [&](int i, int depth) {
        auto dns = dnsBefore_.find(i);
        if (dns != dnsBefore_.end()) {
            for (int d : dns->second) {
                if (rows.size() < limit) {
                    rows.push_back({true, d, depth});
                }
            }
        }
        if (rows.size() < limit) {
            rows.push_back({false, i, depth});
        }
    };
    for (int i : sec.txs) {
        if (rows.size() >= limit) {
            break;
        }
        auto from = redirectFrom_.find(i);
        if (from != redirectFrom_.end() && inSection.count(from->second) != 0) {
            continue;  // placed under its redirect
        }
        int depth = 0;
        for (int at = i; at >= 0 && depth < 20; ++depth) {
            add(at, depth);
            auto it = next.find(at);
            at = it == next.end() ? -1 : it->second;
        }
    }
    *left = total - std::min(total, rows.size());
    return rows;
}

std::string ResultText(const PageResult &p)
{
    if (!p.reported) {
        return "<span class=\"na\">open</span>";
    }
    std::string text = p.kqi.ucSuccFlag != 0 ? "<span class=\"ok\">success</span>" : "<span class=\"fail\">failed</span>";
    text += p.kqi.ucPageFlag != 0 ? ", counted" : ", <span class=\"na\">not counted</span>";
    return text;
}

const char *ResultClass(const PageResult &p)
{
    if (!p.reported || p.kqi.ucPageFlag == 0) {
        return "na";
    }
    return p.kqi.ucSuccFlag != 0 ? "ok" : "fail";
}

void SessionView::WriteIndexEntry(std::ostream &out) const
{
    out << "<li><a href=\"#s" << index_ << "\">" << Escape(t_.file) << "</a> ";
    if (!t_.fatal.empty() || !r_.setupError.empty()) {
        out << "<span class=\"fail\">not replayed</span></li>\n";
        return;
    }
    out << pageCount_ << " pages";
    if (pageCount_ > pages_.size()) {
        out << " (" << pages_.size() << " drawn)";
    }
    out << ": ";
    for (const PageResult &p : pages_) {
        out << "<a class=\"pl " << ResultClass(p) << "\" href=\"#" << Anchor(p.id) << "\">" << p.id << "</a>";
    }
    out << "</li>\n";
}

void SessionView::WritePageTable(std::ostream &out) const
{
    out << "<table class=\"pages\"><tr><th>page</th><th>type</th><th>req</th><th>rsp</th><th>result</th>"
           "<th>cause</th><th>delay ms</th><th>DNS ms</th><th>closed at s</th><th class=\"l\">recording's page</th>"
           "<th class=\"l\">first request</th><th class=\"l\">when, in the session</th></tr>\n";
    const double span = std::max(1.0, static_cast<double>(sessionEnd_ > sessionBegin_ ? sessionEnd_ - sessionBegin_ : 0));
    for (size_t k = 0; k < pages_.size(); ++k) {
        const PageResult &p = pages_[k];
        out << "<tr><td><a href=\"#" << Anchor(p.id) << "\">" << p.id << "</a></td><td>" << KindName(p.kind)
            << "</td><td>" << p.requests << "</td><td>" << p.responses << "</td><td class=\"l\">" << ResultText(p)
            << "</td>";
        if (p.reported) {
            out << "<td>" << p.kqi.usCauseCode << "</td><td>" << Ms(p.kqi.ullPageDelay) << "</td><td>"
                << p.kqi.uiDnsDelay << "</td><td>"
                << Num(static_cast<double>(p.closedAt - r_.clockBegin) / 1e9, 1) << (p.released ? " (release)" : "")
                << "</td>";
        } else {
            out << "<td colspan=\"4\"></td>";
        }
        const RecordedPage *rec = nullptr;
        const std::string recorded = RecordedText(sections_[k], false, &rec);
        const std::string first = PageUrl(p.host, p.uri);
        out << "<td class=\"l\">" << recorded << "</td><td class=\"l u\" title=\"" << Escape(first, kMaxUrlTip)
            << "\">" << Escape(first, kMaxUrlShown) << "</td>";
        // Where the page lies on the session's clock: overlaps and gaps at a glance.
        const Section &sec = sections_[k];
        if (!sec.txs.empty() && sec.begin >= sessionBegin_) {
            const double from = static_cast<double>(sec.begin - sessionBegin_) / span;
            const double to = static_cast<double>(std::max(sec.end, sec.begin) - sessionBegin_) / span;
            out << "<td class=\"l\"><div class=\"when\"><i class=\"" << ResultClass(p) << "\" style=\"left:"
                << Num(100 * from, 2) << "%;width:" << Num(100 * (to - from), 2) << "%\"></i></div></td>";
        } else {
            out << "<td></td>";
        }
        out << "</tr>\n";
    }
    out << "</table>\n";
}

void SessionView::Write(std::ostream &out)
{
    out << "<h2 id=\"s" << index_ << "\">" << Escape(t_.file) << "</h2>\n";
    if (!t_.fatal.empty() || !r_.setupError.empty()) {
        out << "<p class=\"fail\">Not replayed: " << Escape(t_.fatal.empty() ? r_.setupError : t_.fatal)
            << "</p>\n";
        return;
    }
    out << "<p class=\"meta\">" << t_.format << ", " << t_.events.size() << " events, " << t_.transactions.size()
        << " transactions, " << t_.dns.size() << " DNS look-ups; skipped " << t_.skippedCount << " bad";
    if (t_.format == "har") {
        out << ", " << t_.cacheHits << " cache hits, " << t_.notHttp << " not HTTP";
    }
    out << "; " << r_.black << " events black-listed, " << r_.refused << " on no page</p>\n";

    auto pct = [this](double q) {
        const size_t n = stats_.delays.size();
        return n == 0 ? std::string("-") : Ms(stats_.delays[std::min(n - 1, static_cast<size_t>(q * n))]);
    };
    out << "<p class=\"meta\">" << pageCount_ << " pages: " << stats_.counted << " counted (" << stats_.succeeded
        << " successful, " << stats_.failed << " failed), " << stats_.reported - stats_.counted
        << " not counted, " << stats_.open << " open. Page delay p50 " << pct(0.5) << " ms, p90 " << pct(0.9)
        << " ms, p99 " << pct(0.99) << " ms, max "
        << (stats_.delays.empty() ? std::string("-") : Ms(stats_.delays.back())) << " ms.";
    if (pageCount_ > pages_.size()) {
        out << " <b>Drawn: " << pages_.size() << " of " << pageCount_ << " pages</b>, the first "
            << kFirstDrawnPages << " and, among the rest, the failed ones, then those with the longest page delay.";
    }
    out << "</p>\n";
    WritePageTable(out);

    const size_t drawn = sections_.size() - 1;
    const size_t share = drawn == 0 ? kMaxRowsPerPage : kRowBudget / drawn;
    const size_t perPage = std::max(kMinRowsPerPage, std::min(kMaxRowsPerPage, share));
    for (size_t k = 0; k < drawn; ++k) {
        WriteSection(out, sections_[k], perPage, k < kOpenSections);
    }
    if (!sections_.back().txs.empty()) {
        WriteSection(out, sections_.back(), kMaxLooseRows, drawn < kOpenSections);
    }
}

void SessionView::WriteSection(std::ostream &out, const Section &sec, size_t limit, bool open)
{
    const PageResult *p = sec.page;
    out << "<details class=\"pg\"" << (p != nullptr ? " id=\"" + Anchor(p->id) + "\"" : std::string())
        << (open ? " open" : "") << "><summary>";
    if (p != nullptr) {
        out << "<b>Page " << p->id << "</b> \xC2\xB7 " << KindName(p->kind) << " \xC2\xB7 " << ResultText(*p);
        if (p->reported) {
            out << " \xC2\xB7 cause " << p->kqi.usCauseCode << " \xC2\xB7 page delay <b>" << Ms(p->kqi.ullPageDelay)
                << " ms</b> \xC2\xB7 DNS " << p->kqi.uiDnsDelay << " ms";
        }
        out << " \xC2\xB7 " << p->requests << " req / " << p->responses << " rsp \xC2\xB7 "
            << Escape(PageUrl(p->host, p->uri), 100);
    } else {
        out << "<b>On no drawn page</b> \xC2\xB7 " << sec.txs.size() << " transactions black-listed or on no page, "
            << "outside every drawn page";
    }
    out << "</summary>\n";

    // The axis covers the rows; the page's own markers join it unless they
    // lie far beyond (a page kept open until its quiet time ran out).
    size_t left = 0;
    const std::vector<Row> rows = Order(sec, limit, &left);
    uint64_t t0 = ~0ull, t1 = 0;
    for (const Row &row : rows) {
        if (row.dns) {
            const DnsRecord &dns = t_.dns[static_cast<size_t>(row.index)];
            t0 = std::min(t0, dns.begin);
            t1 = std::max(t1, dns.begin + dns.delayMs * kNsPerMs);
        } else {
            const Transaction &tx = t_.transactions[static_cast<size_t>(row.index)];
            t0 = std::min(t0, StartOf(tx));
            t1 = std::max(t1, EndOf(tx));
        }
    }
    struct Marker {
        uint64_t at;
        const char *colour;
        bool dashed;
        std::string label;
    };
    std::vector<Marker> markers;
    const RecordedPage *rec = nullptr;
    std::string recorded;
    if (p != nullptr) {
        recorded = RecordedText(sec, true, &rec);
        const uint64_t start = PageStart(*p);
        if (start != 0) {
            t0 = std::min(t0, start);
            if (p->reported) {
                markers.push_back({start + p->kqi.ullPageDelay, kMarkDelay, false, "page delay end"});
                markers.push_back({p->closedAt, kMarkClose, true, "closed"});
            }
        }
        if (rec != nullptr && rec->start != 0) {
            if (rec->onContentLoadMs >= 0) {
                markers.push_back({rec->start + MsToNs(rec->onContentLoadMs), kMarkDcl, true, "DOMContentLoaded"});
            }
            if (rec->onLoadMs >= 0) {
                markers.push_back({rec->start + MsToNs(rec->onLoadMs), kMarkLoad, true, "onLoad"});
            }
        }
    }
    if (t0 == ~0ull) {
        t0 = t1 = r_.clockBegin;
    }
    const uint64_t rowsEnd = std::max(t1, t0 + kNsPerMs);
    for (const Marker &m : markers) {
        if (m.at >= t0 && m.at - t0 <= 2 * (rowsEnd - t0)) {
            t1 = std::max(t1, m.at);
        }
    }
    t1 = std::max(t1, t0 + kNsPerMs);
    const double spanMs = ToMs(t1 - t0);

    out << "<div class=\"facts\">";
    if (p != nullptr) {
        out << "<span>recording's page: " << (recorded.empty() ? "<span class=\"na\">none</span>" : recorded)
            << "</span>";
    }
    for (const Marker &m : markers) {
        out << "<span><i class=\"ln\" style=\"border-color:" << m.colour << (m.dashed ? ";border-left-style:dashed" : "")
            << "\"></i>" << m.label << " ";
        if (m.at >= t0) {
            out << "+" << Ms(m.at - t0) << " ms" << (m.at > t1 ? " (off the axis)" : "");
        } else {
            out << "before the axis";
        }
        out << "</span>";
    }
    out << "</div>\n<div class=\"wf\"><div class=\"r h\"><div>request</div><div class=\"c\">code</div><div>type</div>"
           "<div class=\"c\">size</div><div class=\"c\">ms</div><div class=\"t\">";
    const double step = NiceStepMs(spanMs);
    std::string grid;
    for (double x = 0; x <= spanMs + 1e-9; x += step) {
        const std::string left = Num(100.0 * x / spanMs, 3);
        // The end labels would hang off the track.
        const char *anchor = x == 0 ? ";transform:none" : x + step > spanMs ? ";transform:translateX(-100%)" : "";
        out << "<span class=\"tk\" style=\"left:" << left << "%" << anchor << "\">"
            << Num(x, step < 1 ? 1 : 0) << (x == 0 ? " ms" : "") << "</span>";
        grid += "<span class=\"gl\" style=\"left:" + left + "%\"></span>";
    }
    out << "</div></div>\n";
    for (const Row &row : rows) {
        WriteRow(out, row, sec, t0, spanMs);
    }
    out << "<div class=\"ov\">" << grid;
    for (const Marker &m : markers) {
        if (m.at >= t0 && m.at <= t1) {
            out << "<span class=\"mk" << (m.dashed ? " d" : "") << "\" style=\"left:"
                << Num(100.0 * ToMs(m.at - t0) / spanMs, 3) << "%;border-color:" << m.colour << "\" title=\""
                << m.label << "\"></span>";
        }
    }
    out << "</div></div>\n";
    if (left > 0) {
        out << "<div class=\"more\">" << left << " more rows not drawn (a section draws at most " << limit
            << ").</div>\n";
    }
    out << "</details>\n";
}

void SessionView::WriteRow(std::ostream &out, const Row &row, const Section &sec, uint64_t t0, double spanMs)
{
    auto pos = [&](uint64_t ns) { return Num(100.0 * ToMs(ns >= t0 ? ns - t0 : 0) / spanMs, 3); };
    auto width = [&](uint64_t b, uint64_t e) { return Num(100.0 * ToMs(e > b ? e - b : 0) / spanMs, 3); };
    if (row.dns) {
        const DnsRecord &dns = t_.dns[static_cast<size_t>(row.index)];
        const uint64_t end = dns.begin + dns.delayMs * kNsPerMs;
        out << "<div class=\"r dn\" title=\"DNS look-up of " << Escape(dns.host, kMaxUrlTip) << ": "
            << dns.delayMs << " ms\"><div class=\"n\"" << (row.depth > 0 ? " style=\"padding-left:" + std::to_string(12 * row.depth + 4) + "px\"" : "") << ">DNS " << Escape(dns.host, kMaxUrlShown)
            << "</div><div class=\"c\">DNS</div><div></div><div></div><div class=\"c\">" << dns.delayMs
            << "</div><div class=\"t\"><i style=\"left:" << pos(dns.begin) << "%;width:" << width(dns.begin, end)
            << "%\"></i></div></div>\n";
        return;
    }
    const Transaction &tx = t_.transactions[static_cast<size_t>(row.index)];
    const TraceEvent *req = EventAt(tx.request);
    const TraceEvent *rsp = EventAt(tx.response);
    const TraceEvent *any = rsp != nullptr ? rsp : req;
    const EventOutcome *reqOut = OutcomeOf(tx.request);
    const EventOutcome *rspOut = OutcomeOf(tx.response);
    const uint64_t page = sec.page != nullptr ? sec.page->id : 0;
    const uint32_t status = StatusOf(tx);

    std::string cls = "r";
    std::string badges;
    std::string tip = tx.method.substr(0, 10) + " " + tx.url.substr(0, kMaxUrlTip) + " [" + tx.origin + "]";
    if (status >= 300 && status < 400) {
        cls += " s3";
    } else if (status >= 400) {
        cls += " s4";
    }
    if (reqOut != nullptr) {
        tip += "\nrequest joined " + JoinedText(*reqOut);
        if (reqOut->black) {
            cls += " bl";
            badges += "<em class=\"bl\">black-listed</em>";
        } else if (reqOut->pageId == 0) {
            cls += " np";
            badges += "<em class=\"np\">no page</em>";
        }
    }
    if (rspOut != nullptr) {
        tip += "\nresponse joined " + JoinedText(*rspOut);
        const uint64_t askedBy = reqOut != nullptr ? reqOut->pageId : page;
        if (rspOut->pageId != askedBy) {
            cls += " xp";
            badges += "<em class=\"xp\">rsp \xE2\x86\x92 " +
                      (rspOut->black ? std::string("black") : rspOut->pageId == 0 ? std::string("none")
                                                                                   : "p" + std::to_string(rspOut->pageId)) +
                      "</em>";
        }
    } else if (req != nullptr) {
        badges += "<em class=\"ev\">no answer</em>";
    }
    if (any != nullptr && !any->contentType.empty()) {
        tip += "\nContent-Type: " + any->contentType.substr(0, kMaxUrlTip);
    }
    if (any != nullptr && !any->location.empty()) {
        tip += "\nLocation: " + any->location.substr(0, kMaxUrlTip);
    }
    if (!tx.truePage.empty()) {
        tip += "\nrecording's page: " + tx.truePage;
    }
    const int target = status >= 300 && status < 400 ? RedirectTarget(row.index) : -1;
    if (target >= 0) {
        const uint64_t targetPage = PageOf(t_.transactions[static_cast<size_t>(target)]);
        if (targetPage != page) {
            badges += "<em class=\"rd\">\xE2\x86\x92 " +
                      (targetPage == 0 ? std::string("no page") : "page " + std::to_string(targetPage)) + "</em>";
        }
    }

    // Phases as recorded; without them, what the events tell: the SYN of a
    // connection's first request, the request, the wait, the response.
    std::vector<Phase> phases = tx.phases;
    bool derived = false;
    if (phases.empty() && req != nullptr) {
        derived = true;
        if (opensConnection_.count(row.index) != 0) {
            phases.push_back({"connect", req->syn, req->begin});
        }
        phases.push_back({"send", req->begin, std::max(req->end, req->begin)});
        if (rsp != nullptr) {
            if (rsp->begin > req->end) {
                phases.push_back({"wait", req->end, rsp->begin});
            }
            phases.push_back({"receive", rsp->begin, std::max(rsp->end, rsp->begin)});
        }
    } else if (phases.empty() && rsp != nullptr) {
        derived = true;
        phases.push_back({"receive", rsp->begin, std::max(rsp->end, rsp->begin)});
    }
    tip += derived ? "\nfrom the events:" : "\nphases:";
    for (const Phase &ph : phases) {
        tip += " " + ph.name + " " + Ms(ph.end - ph.begin);
    }
    tip += " ms";

    std::string label;
    if (row.depth > 0) {
        label += "<span class=\"arr\" style=\"padding-left:" + std::to_string(12 * (row.depth - 1)) +
                 "px\">\xE2\x86\xB3 </span>";
        cls += " rt";
        auto from = redirectFrom_.find(row.index);
        if (from != redirectFrom_.end()) {
            tip += "\nredirected from " + t_.transactions[static_cast<size_t>(from->second)].url.substr(0, kMaxUrlTip);
        }
    }
    // In a redirect chain the scheme often is what changed.
    std::string scheme;
    if (req != nullptr && (row.depth > 0 || (status >= 300 && status < 400))) {
        scheme = req->serverPort == 443 ? "https://" : req->serverPort == 80 ? "http://" : "";
    }
    label += badges + "<b>" + Escape(tx.method, 10) + "</b> " + scheme + Escape(tx.url, kMaxUrlShown);

    out << "<div class=\"" << cls << "\" title=\"" << Escape(tip, kMaxTip) << "\"><div class=\"n\">" << label
        << "</div><div class=\"c st\">" << (status != 0 ? std::to_string(status) : "-") << "</div><div>"
        << Escape(ShortType(any != nullptr ? any->contentType : std::string()), 40) << "</div><div class=\"c\">"
        << Bytes(tx.bodySize) << "</div><div class=\"c\">" << Ms(EndOf(tx) - StartOf(tx)) << "</div><div class=\"t\">";
    for (size_t k = 0; k < phases.size() && k < kMaxPhases; ++k) {
        const Phase &ph = phases[k];
        const int known = PhaseClass(ph.name);
        out << "<i " << (known >= 0 ? "class=\"p" + std::to_string(known) + "\" style=\""
                                    : "style=\"background:" + PhaseColour(ph.name) + ";")
            << "left:" << pos(ph.begin) << "%;width:" << width(ph.begin, ph.end) << "%\"></i>";
    }
    out << "</div></div>\n";
}

void WriteLegend(std::ostream &out, const std::vector<SessionReport> &sessions)
{
    std::set<std::string> extra;
    for (const SessionReport &s : sessions) {
        for (const Transaction &tx : s.trace->transactions) {
            for (const Phase &ph : tx.phases) {
                if (PhaseClass(ph.name) < 0 && extra.size() < 16) {
                    extra.insert(ph.name);
                }
            }
        }
    }
    out << "<div class=\"legend\">Phases:";
    for (const PhaseStyle &ph : kPhaseStyles) {
        out << "<i class=\"sw\" style=\"background:" << ph.colour << "\"></i>" << ph.name;
    }
    for (const std::string &name : extra) {
        out << "<i class=\"sw\" style=\"background:" << PhaseColour(name) << "\"></i>" << Escape(name, 40);
    }
    out << "<i class=\"sw\" style=\"background:#17998c;opacity:.55\"></i>DNS look-up (own row)<br>Markers:"
        << "<i class=\"ln\" style=\"border-color:" << kMarkDelay << "\"></i>page delay end"
        << "<i class=\"ln\" style=\"border-color:" << kMarkClose << ";border-left-style:dashed\"></i>closed by the library"
        << "<i class=\"ln\" style=\"border-color:" << kMarkDcl << ";border-left-style:dashed\"></i>DOMContentLoaded"
        << "<i class=\"ln\" style=\"border-color:" << kMarkLoad << ";border-left-style:dashed\"></i>onLoad"
        << " (recording)<br>Rows: <span style=\"box-shadow:inset 3px 0 #e69500;padding-left:6px;color:#a85d00;"
           "font-weight:700\">3xx</span> redirect, <span class=\"arr\">\xE2\x86\xB3</span> the request it led to; "
           "<span style=\"background:#fdeceb;color:#c00;font-weight:700\">4xx/5xx</span> error; "
           "<em class=\"bl\">black-listed</em><em class=\"np\">no page</em><em class=\"xp\">rsp \xE2\x86\x92 p7</em>"
           "the response joined another page than its request; <em class=\"ev\">no answer</em>. "
           "Without recorded phases (event traces) the bar shows the events: connect (SYN to a connection's first "
           "request), send (the request event), wait, receive (the response event). Hover a row for details.</div>\n";
}

constexpr const char *kScript = R"(<script>
document.body.classList.add('js');
function openAll(v){document.querySelectorAll('details.pg').forEach(function(d){d.open=v;});}
</script>
)";

}  // namespace

void WriteHtml(std::ostream &out, const std::vector<SessionReport> &sessions)
{
    std::vector<SessionView> views;
    views.reserve(sessions.size());
    for (size_t i = 0; i < sessions.size(); ++i) {
        views.emplace_back(sessions[i], i);
        if (sessions[i].trace->fatal.empty() && sessions[i].result.setupError.empty()) {
            views.back().Prepare();
        }
    }
    out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
           "<title>orvane-replay: pages</title><style>"
        << kStyle << PhaseCss() << "</style></head><body>\n" << kScript
        << "<h1>Web pages as the library grouped them</h1>\n"
        << "<p class=\"meta\">One section per page, on its own axis in ms from the page's start. "
           "<span class=\"js-only\"><button onclick=\"openAll(true)\">open all</button>"
           "<button onclick=\"openAll(false)\">close all</button></span></p>\n<ul class=\"idx\">\n";
    for (const SessionView &v : views) {
        v.WriteIndexEntry(out);
    }
    out << "</ul>\n";
    WriteLegend(out, sessions);
    for (SessionView &v : views) {
        v.Write(out);
    }
    out << "</body></html>\n";
}

}  // namespace replay
