// The request path: screening, rule order and the fallback.
#include "daemon_fixture.hpp"

#include <algorithm>

namespace orvane_test {
namespace {

constexpr uint64_t kT0 = 7000 * kSec;

class MatchDriverTest : public DaemonTest {
protected:
    // Index of the first captured line holding text, or -1.
    int LineOf(const std::string &text) const
    {
        const auto &logs = Sinks().logs;
        auto it = std::find_if(logs.begin(), logs.end(), [&](auto &l) { return l.line.find(text) != l.line.npos; });
        return it == logs.end() ? -1 : static_cast<int>(it - logs.begin());
    }
};

TEST_F(MatchDriverTest, BlackRequestsGetNoPageAndNeitherDoTheirFlowsResponses)
{
    Event keyword = Req("www.example.com", "/s?UCINPUT=1", kT0);
    const Event blacks[] = {Req("cdn.Statistic.example", "/a.gif", kT0), keyword};
    for (const Event &black : blacks) {
        SetUp();
        InitThreads({0});
        uint64_t id = 5, rspId = 5;
        EXPECT_EQ(Send(0, 1, black, &id), WEBPAGE_OK);
        EXPECT_EQ(Fields(id, Flow(1).ucIsBlack), Fields(0, 1));
        EXPECT_EQ(Send(0, 1, Rsp(200, kT0 + kMs), &rspId), WEBPAGE_OK);
        EXPECT_EQ(Fields(rspId, OpenPages(0)), Fields(0, 0));
        // The flow's next clean request clears the mark.
        EXPECT_NE(Send(1, Req("www.example.com", "/", kT0 + kSec)), 0u);
        EXPECT_EQ(Flow(1).ucIsBlack, 0u);
        TearDown();
    }
    // An empty keyword never marks a request black.
    InitThreads({0});
    g_stPageConfig.acUcInputKeyword[0] = '\0';
    EXPECT_NE(Send(2, keyword), 0u);
}

TEST_F(MatchDriverTest, RulesRunInTheirOrder)
{
    InitThreads({0}, 0, LOG_LEVEL_TRACE);
    Event lone = Req("www.example.com", "/x", kT0);
    lone.referHost = "ref.example.org";
    lone.referPath = "/from";
    Send(1, lone);
    const char *order[] = {"Match webpage is begin", "main location with URL.", "sub location with URL.",
                           "main URL with referer.", "sub URL with referer.",  "main referer with referer.",
                           "main host with host.",   "sub host with host.",    "Time match, PageID = 0.",
                           "Match webpage is end",   "ProcessNoMsgOrMatchFail true"};
    int last = -1;
    for (const char *line : order) {
        const int at = LineOf(line);
        EXPECT_GT(at, last) << line;
        last = at;
    }
    EXPECT_EQ(LineOf("Special URL"), -1);  // the URL has a host
}

TEST_F(MatchDriverTest, AnEventTwoRulesWouldTakeGoesByTheEarlierOne)
{
    InitThreads({0}, 0, LOG_LEVEL_TRACE);
    Event main = Req("www.example.com", "/index.html", kT0);
    main.contentType = "text/html";
    const uint64_t id = Send(1, main);
    Send(1, Rsp(200, kT0 + 100 * kMs));
    Sinks().logs.clear();

    // Its referer names the main URL (rule 5) and its host the main host (rule 8).
    Event sub = Req("www.example.com", "/style.css", kT0 + 300 * kMs);
    sub.referHost = "www.example.com";
    sub.referPath = "/index.html";
    EXPECT_EQ(Send(2, sub), id);
    EXPECT_GE(LineOf("Referer match main URL is OK"), 0);
    EXPECT_EQ(LineOf("Matching main host with host."), -1);
}

TEST_F(MatchDriverTest, RequestWithoutAnyKeyIsRefusedByTheRulesButGetsAPage)
{
    InitThreads({0}, 0, LOG_LEVEL_TRACE);
    STEventInfo info;
    InitPageProcessInfo(0, &Flow(1), &info);
    EXPECT_EQ(WebPageMsgMatch(&info), 0u);
    EXPECT_GE(LineOf("ReqInfo is NULL."), 0);
    EXPECT_EQ(LineOf("Matching"), -1);

    Event bare = Req("", "", kT0);
    EXPECT_NE(Send(1, bare), 0u);
    EXPECT_EQ(OpenPages(0), 1u);
}

// A response on an untied flow and flash content get single pages.
TEST_F(MatchDriverTest, FallbackPageTypes)
{
    InitThreads({0});
    const std::pair<Event, uint32_t> rows[] = {
        {Rsp(200, kT0), PAGE_TYPE_SINGLE},
        {Req("media.example.net", "/movie.SWF", kT0 + 60 * kSec), PAGE_TYPE_SINGLE},
        {Req("www.example.com", "/", kT0 + 120 * kSec), PAGE_TYPE_ASSOCIATE}};
    int flow = 0;
    for (const auto &[ev, type] : rows) {
        const STPageNode *page = FindPage(0, Send(++flow, ev));
        ASSERT_NE(page, nullptr) << flow;
        EXPECT_EQ(page->uiPageType, type) << flow;
    }
}

}  // namespace
}  // namespace orvane_test
