// The HTML waterfall: its structure for a small recording, its size for a
// long one.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "../test_util.hpp"
#include "jsonl_reader.hpp"
#include "report.hpp"

namespace replay {
namespace {

// Two visits a minute apart. The first: http redirected to https, the page,
// a script, a black-listed counter and a missing image; the second: a page
// and its style sheet.
// One entry at 10:0m:ss.fff; the response's headers and the request's Referer optional.
std::string Entry(const char *page, const char *at, const char *url, int status, const char *mime, int size,
                  const char *timings, const char *referer = nullptr, const char *headers = "")
{
    const std::string refererHeader = referer ? std::string(R"({"name":"Referer","value":")") + referer + "\"}" : "";
    return std::string(R"({"pageref":")") + page + R"(","startedDateTime":"2024-05-01T10:)" + at +
           R"(Z","request":{"method":"GET","url":")" + url + R"(","headers":[)" + refererHeader +
           R"(]},"response":{"status":)" + std::to_string(status) + R"(,"headers":[)" + headers +
           R"(],"content":{"size":)" + std::to_string(size) + R"(,"mimeType":")" + mime + R"("}},"timings":{)" +
           timings + "}}";
}

const std::string kTwoVisits = R"({"log":{"version":"1.2",
 "pages":[{"id":"visit_a","title":"A home","startedDateTime":"2024-05-01T10:00:00.000Z",
           "pageTimings":{"onContentLoad":300,"onLoad":420}},
          {"id":"visit_b","title":"B home","startedDateTime":"2024-05-01T10:01:00.000Z",
           "pageTimings":{"onLoad":200}}],
 "entries":[)" +
    Entry("visit_a", "00:00.000", "http://a.example/", 301, "text/html", 0,
          R"("blocked":1,"dns":20,"connect":30,"send":1,"wait":40,"receive":2)", nullptr,
          R"({"name":"Location","value":"https://a.example/home"})") + "," +
    Entry("visit_a", "00:00.100", "https://a.example/home", 200, "text/html", 20000,
          R"("blocked":0,"dns":0,"connect":30,"ssl":20,"send":1,"wait":80,"receive":30)") + "," +
    Entry("visit_a", "00:00.260", "https://a.example/app.js", 200, "application/javascript", 5000,
          R"("send":1,"wait":30,"receive":10)", "https://a.example/home") + "," +
    Entry("visit_a", "00:00.280", "https://metrics.statistic.example/c?p=home", 204, "text/plain", 0,
          R"("dns":15,"connect":20,"send":1,"wait":20,"receive":1)", "https://a.example/home") + "," +
    Entry("visit_a", "00:00.300", "https://a.example/missing.png", 404, "text/html", 100,
          R"("send":1,"wait":25,"receive":1)", "https://a.example/home") + "," +
    Entry("visit_b", "01:00.000", "https://b.example/", 200, "text/html", 9000,
          R"("dns":12,"connect":25,"ssl":25,"send":1,"wait":60,"receive":15)") + "," +
    Entry("visit_b", "01:00.150", "https://b.example/style.css", 200, "text/css", 3000,
          R"("send":1,"wait":20,"receive":5)", "https://b.example/") + "]}}";

// The waterfall row (its opening tag up to the row's end) whose label shows text.
std::string RowWith(const std::string &doc, const std::string &text)
{
    const size_t at = doc.find(text);
    if (at == std::string::npos) {
        return {};
    }
    const size_t begin = doc.rfind("<div class=\"r", at);
    return doc.substr(begin, doc.find("</div></div>\n", at) - begin);
}

std::string Render(std::vector<SessionReport> sessions)
{
    std::ostringstream out;
    WriteHtml(out, sessions);
    return out.str();
}

SessionReport ReplayedHar(const std::string &text)
{
    SessionReport s;
    s.trace = std::make_unique<Trace>(ReadHar("two-visits.har", text, ReadOptions{}));
    s.result = Replay(*s.trace, ReplayOptions{});
    return s;
}

TEST(HtmlReport, TwoVisitsDrawOneSectionPerPageWithPhasesAndTheRedirectChain)
{
    std::vector<SessionReport> sessions;
    sessions.push_back(ReplayedHar(kTwoVisits));
    ASSERT_EQ(sessions[0].result.pages.size(), 2u) << "the library groups the two visits apart";
    const std::string doc = Render(std::move(sessions));

    // A section per page, each reachable from the index; each on its own axis,
    // with the recording's page and its onLoad beside it; the black-listed
    // counter is drawn with the page but is not its own; DNS rows of their own.
    EXPECT_EQ(Fields(Count(doc, "<details class=\"pg\" id="),
                     Count(doc, "<span class=\"tk\" style=\"left:0.000%;transform:none\">0 ms</span>"),
                     Count(doc, "</i>onLoad +"), Count(doc, "</i>DOMContentLoaded +"),
                     Count(doc, "</i>page delay end +"), Count(doc, "<div class=\"n\">DNS a.example</div>"),
                     Count(doc, "<div class=\"n\">DNS b.example</div>")),
              Fields(2, 2, 2, 1, 2, 1, 1));
    for (const char *id : {"s0p1", "s0p2"}) {
        EXPECT_EQ(Count(doc, std::string("id=\"") + id + "\""), 1u) << id;
        EXPECT_GE(Count(doc, std::string("href=\"#") + id + "\""), 2u) << id << ": index and page table";
    }
    EXPECT_NE(doc.find("<b>visit_a</b> \xE2\x80\x9C" "A home\xE2\x80\x9D (4 of 4 tx)"), std::string::npos);

    // The redirect, and right under it, one step in, the request it led to.
    const std::string redirect = RowWith(doc, "http://a.example/<");
    EXPECT_EQ(redirect.rfind("<div class=\"r s3\"", 0), 0u) << redirect;
    const size_t after = doc.find(redirect) + redirect.size();
    const std::string next = doc.substr(after, doc.find("</div></div>\n", after + 14) - after);
    EXPECT_NE(next.find("r rt"), std::string::npos) << next;
    EXPECT_NE(next.find("\xE2\x86\xB3"), std::string::npos) << next;
    EXPECT_NE(next.find("https://a.example/home<"), std::string::npos) << next;

    // The recorded phases, each drawn; an error and a black-listed request stand out.
    const std::string page = RowWith(doc, "a.example/home<");
    EXPECT_NE(page.find("phases: connect 10 tls 20 send 1.0 wait 80 receive 30 ms"), std::string::npos)
        << page;
    EXPECT_EQ(Count(page, "<i class=\"p"), 5u) << page;
    EXPECT_NE(page.find(">20 kB<"), std::string::npos) << page;
    EXPECT_EQ(RowWith(doc, "a.example/missing.png").rfind("<div class=\"r s4\"", 0), 0u);
    EXPECT_NE(RowWith(doc, "metrics.statistic.example/c").find("<em class=\"bl\">black-listed</em>"),
              std::string::npos);
}

// Phases another reader names are drawn under their own name; a response on
// another page than its request stands out.
TEST(HtmlReport, OtherPhaseNamesAndResponsesOnAnotherPage)
{
    std::vector<SessionReport> sessions;
    sessions.push_back(ReplayedHar(kTwoVisits));
    Transaction &tx = sessions[0].trace->transactions[5];
    tx.phases = {{"syn", tx.begin, tx.begin + 5 * kNsPerMs}, {"wait", tx.begin + 5 * kNsPerMs, tx.end}};
    const Transaction &script = sessions[0].trace->transactions[2];
    ASSERT_EQ(script.url, "a.example/app.js");
    sessions[0].result.outcomes[static_cast<size_t>(script.response)].pageId = 2;
    const std::string doc = Render(std::move(sessions));
    const std::string row = RowWith(doc, "b.example/<");
    const size_t syn = row.find("<i style=\"background:hsl(");
    ASSERT_NE(syn, std::string::npos) << row;
    EXPECT_EQ(row.find(");left:", syn), row.find(')', syn)) << "placed on the axis: " << row;
    EXPECT_NE(row.find("phases: syn 5.0 wait"), std::string::npos) << row;
    EXPECT_NE(doc.find("</i>syn<i"), std::string::npos) << "named in the legend";
    const std::string moved = RowWith(doc, "a.example/app.js");
    EXPECT_EQ(moved.rfind("<div class=\"r xp\"", 0), 0u) << moved;
    EXPECT_NE(moved.find("<em class=\"xp\">rsp \xE2\x86\x92 p2</em>"), std::string::npos) << moved;
    EXPECT_NE(moved.find("response joined page 2"), std::string::npos) << moved;
}

// A long trace kept in memory as --html keeps it: pages of 60 transactions on
// six flows of a host of their own, 30 s apart.
SessionReport LongSession(size_t events)
{
    SessionReport s;
    s.trace = std::make_unique<Trace>();
    s.trace->file = "long";
    s.trace->format = "jsonl";
    TransactionBook book;
    for (size_t i = 0; s.trace->events.size() < events; ++i) {
        TraceEvent req, rsp;
        req.flow = rsp.flow = std::to_string(i % 6) + "." + std::to_string(i / 60);
        req.host = "h" + std::to_string(i / 60) + ".example";
        req.uri = "r" + std::to_string(i % 60);
        req.contentType = i % 60 == 0 ? "text/html" : "image/png";
        req.method = kMethodGet;
        req.methodName = "GET";
        req.status = rsp.status = 200;
        req.begin = req.end = 1000 * kNsPerSec + i / 60 * 30 * kNsPerSec + i % 60 * 40 * kNsPerMs;
        rsp.kind = EventKind::kResponse;
        rsp.begin = rsp.end = req.begin + 20 * kNsPerMs;
        book.Add(s.trace.get(), std::move(req), "");
        book.Add(s.trace.get(), std::move(rsp), "");
    }
    s.result = Replay(*s.trace, ReplayOptions{});
    return s;
}

TEST(HtmlReport, LongTraceIsSummarisedWithinTheStatedBound)
{
    std::vector<SessionReport> sessions;
    sessions.push_back(LongSession(300000));
    const size_t pages = sessions[0].result.pages.size();
    ASSERT_GT(pages, 1000u);
    const std::string doc = Render(std::move(sessions));

    EXPECT_LT(doc.size(), 3000000u) << "README: about 1 MB for this trace";
    EXPECT_EQ(Count(doc, "<details class=\"pg\" id="), 100u);
    EXPECT_NE(doc.find("<b>Drawn: 100 of " + std::to_string(pages) + " pages</b>"), std::string::npos);
    EXPECT_LE(Count(doc, "<div class=\"r"), 100u * (40 + 1) + 200 + 1) << "rows per section";
    EXPECT_EQ(doc.compare(doc.size() - 15, 15, "</body></html>\n"), 0);
}

}  // namespace
}  // namespace replay
