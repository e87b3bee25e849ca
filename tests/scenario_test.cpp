// Daemon stories told end to end: events through API_AssociateWebPage, timer
// runs, and the page results that come out.
#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

constexpr uint64_t kT0 = 5000 * kSec;

class ScenarioTest : public DaemonTest {};

// A main page and nine sub-requests on other flows of the same host; the
// page's verdict follows how many answers were good.
TEST_F(ScenarioTest, PageVerdictFollowsItsAnswers)
{
    const struct { int failed, unanswered; uint16_t cause; uint8_t succ; uint64_t delay; } cases[] = {
        {1, 0, 200, 1, 1401 * kMs}, {2, 0, 2000, 0, 1401 * kMs}, {0, 2, 2001, 0, 60 * kSec}};
    for (const auto &c : cases) {
        SetUp();
        InitThreads({0});
        Event main = Req("www.example.com", "/", kT0);
        main.contentType = "text/html";
        const uint64_t id = Send(0, main);
        ASSERT_EQ(Send(0, Rsp(200, kT0 + 50 * kMs)), id);
        for (int i = 1; i < 10; ++i) {
            const uint64_t at = kT0 + static_cast<uint64_t>(i) * 100 * kMs;
            EXPECT_EQ(Send(i, Req("www.example.com", "/img" + std::to_string(i) + ".png", at)), id) << i;
            if (i < 10 - c.unanswered) {
                EXPECT_EQ(Send(i, Rsp(i <= c.failed ? 404 : 200, at + 500 * kMs)), id) << i;
            }
        }
        DrainPages(0);
        ASSERT_EQ(Reported().size(), 1u);
        const STPageKQI &kqi = Reported()[0];
        EXPECT_EQ(Fields(kqi.usCauseCode, kqi.ucSuccFlag, kqi.ucPageFlag, kqi.ullPageDelay),
                  Fields(c.cause, c.succ, 1, c.delay));
        TearDown();
    }
}

TEST_F(ScenarioTest, TimerStartsWithTheFirstEventAndStopsWithTheLastPage)
{
    InitThreads({0});
    Sinks().storeTimerHandle = false;  // no handle kept: the next event asks again
    Send(1, Req("www.example.com", "/", kT0));
    Sinks().storeTimerHandle = true;
    Send(2, Req("other.example.net", "/", kT0 + 30 * kSec));
    Send(2, Rsp(200, kT0 + 30 * kSec + kMs));
    ASSERT_EQ(Sinks().timerStarts.size(), 2u);
    EXPECT_EQ(Ctx(0)->ulPageTimer, 100u);

    RunTimer(0, 13);  // both pages went quiet together
    EXPECT_EQ(OpenPages(0), 0u);
    EXPECT_EQ(Sinks().timerStops, std::vector<uint64_t>{100});
    EXPECT_EQ(Ctx(0)->ulPageTimer, 0u);

    Send(3, Req("www.example.com", "/again", kT0 + 100 * kSec));
    EXPECT_EQ(Sinks().timerStarts.size(), 3u);
    RunTimer(0, 5);
    EXPECT_EQ(Sinks().timerStops.size(), 1u);  // a page is left: keep running
}

TEST_F(ScenarioTest, ThirtyPagesExhaustThePoolUntilOneCloses)
{
    InitThreads({0});
    // Unrelated hosts far apart in time: every request opens its own page.
    auto request = [](int i) {
        return Req("site" + std::to_string(i) + ".example", "/", kT0 + static_cast<uint64_t>(i) * 60 * kSec);
    };
    EXPECT_NE(Send(0, request(0)), 0u);
    RunTimer(0);  // the first page is one run older than the rest
    for (int i = 1; i < 30; ++i) {
        EXPECT_NE(Send(i, request(i)), 0u) << i;
    }
    uint64_t id = 99;
    EXPECT_EQ(Send(0, 30, request(30), &id), WEBPAGE_ERR_NO_PAGE);
    EXPECT_EQ(Fields(id, OpenPages(0), Flow(30).uiPageType), Fields(0, 30, 0));
    EXPECT_TRUE(LogContains("[TID=0][ERROR][InsertPageNode]PageNodePool is NULL!;"));

    RunTimer(0, 12);
    ASSERT_EQ(Reported().size(), 1u);
    EXPECT_EQ(Send(0, 31, request(31), &id), WEBPAGE_OK);
    EXPECT_EQ(id, 31u);
}

TEST_F(ScenarioTest, ReleasesCloseEverythingAndANewContextStartsAfresh)
{
    InitThreads({0});
    Send(1, Req("www.example.com", "/", kT0));
    API_ReleaseWebPageNode(0, 0);
    EXPECT_EQ(Fields(Reported().size(), GetFreeNodeNum(&Ctx(0)->stPageNodePool), Sinks().timerStops.size()),
              Fields(0, PAGE_NODE_NUM, 1));

    Send(2, Req("www.example.com", "/", kT0 + 100 * kSec));
    API_ReleaseWebPageNode(0, 1);  // reported with its cause and ID only
    ASSERT_EQ(Reported().size(), 1u);
    const STPageKQI &node = Reported()[0];
    EXPECT_EQ(Fields(node.uiPageID, node.ucPageFlag, node.ucSuccFlag, node.uiDnsDelay, node.ullPageDelay),
              Fields(2, 0, 0, 0, 0));

    Send(3, Req("www.example.com", "/", kT0 + 200 * kSec));
    API_ReleaseWebPage(0);  // reported, timed, never judged
    ASSERT_EQ(Reported().size(), 2u);
    EXPECT_EQ(Reported()[1].ullPageDelay, kMs);
    InitThreads({0});
    EXPECT_EQ(Send(4, Req("www.example.com", "/", kT0)), 1u);
}

}  // namespace
}  // namespace orvane_test
