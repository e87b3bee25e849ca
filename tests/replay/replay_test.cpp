// End-to-end: traces through the library, page results checked.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "../test_util.hpp"
#include "evaluate.hpp"
#include "report.hpp"
#include "replayer.hpp"

namespace replay {
namespace {

constexpr uint64_t kT = 1000200000000ull;  // 1000.2 s: between two timer runs

std::string At(uint64_t ns) { return std::to_string(ns); }

// One page on one flow: DNS 3 s before, request, answer 200 ms later.
std::string OnePage()
{
    return R"({"ev":"dns","host":"a.example","begin":)" + At(kT - 3 * kNsPerSec) + R"(,"delay_ms":40}
{"ev":"req","flow":"f","begin":)" + At(kT) + R"(,"method":"GET","host":"a.example","uri":"","status":200,"ctype":"text/html"}
{"ev":"rsp","flow":"f","begin":)" + At(kT + 100 * kNsPerMs) + R"(,"end":)" + At(kT + 200 * kNsPerMs) + R"(,"status":200}
)";
}

// The first page whose first request went to host; id 0 when none.
PageResult FirstPageOf(const SessionResult &r, const std::string &host)
{
    for (const PageResult &p : r.pages.All()) {
        if (p.host == host) {
            return p;
        }
    }
    return {};
}

TEST(Replay, OnePageClosedOnTheTracesFiveSecondBoundaries)
{
    const Trace trace = ReadJsonl("one", OnePage());
    const struct { uint16_t timeout; uint64_t closedAtSec; } rows[] = {
        {0, 1065},   // default: 12 quiet runs, closed by the 13th (1005 .. 1065)
        {10, 1015},  // 2 quiet runs
        {3, 1005},   // no quiet run: the first run closes it
    };
    for (const auto &row : rows) {
        ReplayOptions options;
        options.pageTimeOutSec = row.timeout;
        const SessionResult r = Replay(trace, options);
        ASSERT_EQ(r.pages.size(), 1u);
        const PageResult p = r.pages.All()[0];
        EXPECT_TRUE(p.reported && !p.released) << "closed by the timer, not the release";
        EXPECT_EQ(p.closedAt, row.closedAtSec * kNsPerSec) << "timeout " << row.timeout;
        EXPECT_EQ(r.clockEnd, row.closedAtSec * kNsPerSec);
        // Sessions are independent: page IDs start again. The DNS look-up began
        // within 10 s of the page: the delay runs from it; a successful page
        // needs five requests to count.
        EXPECT_EQ(p.host, "a.example");
        EXPECT_EQ(Fields(p.id, p.kind, p.requests, p.responses, p.kqi.uiDnsDelay, p.kqi.ullPageDelay, p.kqi.usCauseCode,
                         p.kqi.ucSuccFlag, p.kqi.ucPageFlag, r.libraryErrors),
                  Fields(1, PageKind::kAssociate, 1, 1, 40, 3200 * kNsPerMs, 200, 1, 0, 0));
    }
    EXPECT_EQ(g_pstWebPage[0], nullptr) << "the context is gone";
}

TEST(Replay, BundledSampleSession)
{
    const Trace trace = ReadJsonl("sample", SampleSession());
    const SessionResult r = Replay(trace, {});
    ASSERT_TRUE(r.setupError.empty()) << r.setupError;
    for (const PageResult &p : r.pages.All()) {
        EXPECT_TRUE(p.reported && !p.released) << "page " << p.id << " not closed by the timer";
    }
    // Black-listed hosts join no page.
    for (size_t i = 0; i < trace.events.size(); ++i) {
        const std::string &host = trace.events[i].host;
        if (host == "portal.example.com" || host == "metrics.statistic.example") {
            EXPECT_TRUE(r.outcomes[i].black) << trace.events[i].origin;
        }
    }
    // Per site: kind, requests (negative: at least), responses, cause, judged, counted; -1 or 0: unchecked.
    // The shop redirects to https: judged, never counted; the news page pulls its
    // CDN and ad transactions in; the failing site counts with the server's
    // status; POSTs only are not judged; heartbeats keep to one single-flow
    // page; the UCID requests form one UCID page across both flows.
    const struct { const char *host; PageKind kind; int requests, responses, cause, succ, counted; } rows[] = {
        {"www.shop.example", PageKind::kAssociate, -8, -1, 200, 1, 0},
        {"www.news.example", PageKind::kAssociate, 8, -1, -1, 1, 1},
        {"www.broken.example", PageKind::kAssociate, 0, -1, 503, 0, 1},
        {"www.forms.example", PageKind::kAssociate, 0, -1, -1, 0, 0},
        {"longpoll.social.example", PageKind::kSingle, 3, -1, -1, -1, -1},
        {"m.portal-app.example", PageKind::kUcid, 5, 5, -1, 1, 1},
    };
    for (const auto &row : rows) {
        const PageResult p = FirstPageOf(r, row.host);
        ASSERT_NE(p.id, 0u) << row.host;
        EXPECT_EQ(p.kind, row.kind) << row.host;
        EXPECT_TRUE(row.requests < 0 ? p.requests >= -row.requests : row.requests == 0 || p.requests == row.requests)
            << row.host << " " << p.requests;
        EXPECT_TRUE(row.responses < 0 || p.responses == row.responses) << row.host;
        EXPECT_TRUE(row.cause < 0 || p.kqi.usCauseCode == row.cause) << row.host;
        EXPECT_TRUE(row.succ < 0 || p.kqi.ucSuccFlag == row.succ) << row.host;
        EXPECT_TRUE(row.counted < 0 || p.kqi.ucPageFlag == row.counted) << row.host;
    }
}

// Truth A A A B B; the library: pages 1 1 2 2 and one request without page.
TEST(Evaluate, PairCountsAndMainRequests)
{
    Trace trace;
    SessionResult session;
    // A transaction of one request, fed and given page (0: refused).
    auto add = [&](const char *truth, uint64_t page, bool background = false) {
        Transaction tx;
        tx.truePage = truth;
        tx.background = background;
        tx.begin = trace.transactions.size();
        tx.request = static_cast<int>(trace.events.size());
        trace.events.emplace_back().transaction = static_cast<int>(trace.transactions.size());
        trace.transactions.push_back(tx);
        session.outcomes.push_back(EventOutcome{page == 0 ? WEBPAGE_ERR_NO_PAGE : WEBPAGE_OK, page, false, true});
    };
    for (const auto &[truth, page] : {std::pair("A", 1), {"A", 1}, {"A", 2}, {"B", 2}, {"B", 0}}) {
        add(truth, page);
    }
    Transaction unlabelled;
    unlabelled.request = 0;
    trace.transactions.push_back(unlabelled);
    for (uint64_t id : {1, 2}) {
        PageResult &p = *session.pages.Open(id);
        p.kind = PageKind::kAssociate;
        p.firstEvent = id == 1 ? 0 : 2;  // page 2 was opened by an A transaction
        p.reported = true;
        p.kqi.ucPageFlag = id == 1 ? 1 : 0;
        p.kqi.ullPageDelay = (id == 1 ? 1100 : 3000) * kNsPerMs;
        p.kqi.usCauseCode = 200;
        session.pages.Close(id);
    }
    // The browser loaded both in 1 s: A's page is 100 ms off, B's (taken by
    // page 2) 2000 ms.
    for (const char *id : {"A", "B"}) {
        RecordedPage page;
        page.id = id;
        page.onLoadMs = 1000.0;
        trace.pages.push_back(page);
    }
    const EvalResult e = Evaluate(trace, session);
    // Pairs: 3 within A and 1 within B; 1 within page 1 and 1 within page 2.
    EXPECT_EQ(Fields(e.transactions, e.unlabelled, e.truePages, e.reportedPages, e.countedPages, e.truePairs,
                     e.predictedPairs, e.agreeingPairs),
              Fields(5, 1, 2, 2, 1, 4, 2, 1));
    EXPECT_DOUBLE_EQ(e.Precision(), 0.5);
    EXPECT_DOUBLE_EQ(e.Recall(), 0.25);
    EXPECT_NEAR(e.F1(), 1.0 / 3.0, 1e-12);
    EXPECT_EQ(e.mainFound, 1u);  // A's first opened page 1; B's first joined A's page

    // Per true page: A has 2 of its 3 on page 1 (size 2): F1 4/5, and opened
    // pages 1 and 2 (split); B's best is page 2 (size 2, 1 of B's): F1 1/2,
    // its first joined a page that A opened (merged).
    ASSERT_EQ(e.pages.size(), 2u);
    EXPECT_DOUBLE_EQ(e.pages[0].F1(), 0.8);
    EXPECT_DOUBLE_EQ(e.pages[1].F1(), 0.5);
    EXPECT_EQ(Fields(e.pages[0].split(), e.pages[0].merged, e.pages[1].split(), e.pages[1].merged, e.split, e.merged),
              Fields(1, 0, 0, 1, 1, 1));
    EXPECT_DOUBLE_EQ(e.PageF1Mean(), 0.65);
    const DelayStats d = e.Delay(true);
    EXPECT_EQ(Fields(d.pages, e.Delay(false).pages), Fields(2, 0)) << "no onContentLoad recorded";
    EXPECT_DOUBLE_EQ(d.medianMs, 1050.0);
    EXPECT_DOUBLE_EQ(d.p90Ms, 1810.0);
    EXPECT_DOUBLE_EQ(d.within20, 0.5);

    // Background traffic stands alone: joined to page 1 it only costs pairs.
    add("", 1, true);
    const EvalResult m = Evaluate(trace, session);
    EXPECT_EQ(Fields(m.truePages, m.background, m.predictedPairs, m.agreeingPairs), Fields(2, 1, 4, 1));  // page 1 holds 3
    EXPECT_DOUBLE_EQ(m.pages[0].F1(), 4.0 / 6.0);

    // Two files: the mean over files weighs each file once.
    EvalResult both = e;
    both.Add(m);
    EXPECT_EQ(both.files, 2u);
    EXPECT_DOUBLE_EQ(both.FileF1Mean(), (e.F1() + m.F1()) / 2.0);
}

TEST(Evaluate, NothingLabelledIsNotScored)
{
    const Trace trace = ReadJsonl("one", OnePage());  // no "page" field
    SessionReport s;
    s.trace = std::make_unique<Trace>(trace);
    s.result = Replay(trace, ReplayOptions{});
    s.eval = Evaluate(*s.trace, s.result);
    EXPECT_FALSE(s.eval.Labelled());
    EXPECT_EQ(s.eval.unlabelled, 1u);
    std::vector<SessionReport> sessions;
    sessions.push_back(std::move(s));
    std::ostringstream text, json;
    WriteText(text, sessions, ReportOptions{false, true});
    EXPECT_NE(text.str().find("    n/a    n/a    n/a      n/a     n/a"), std::string::npos) << text.str();
    EXPECT_EQ(text.str().find("1.000"), std::string::npos) << text.str();
    EXPECT_NE(text.str().find("nothing to score against"), std::string::npos);
    EXPECT_NE(text.str().find("PAGE_F1: mean"), std::string::npos) << "definitions follow the table";
    WriteJson(json, sessions, ReportOptions{false, true});
    EXPECT_NE(json.str().find("\"f1\": null"), std::string::npos);
}

}  // namespace
}  // namespace replay
