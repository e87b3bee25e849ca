// Page judgement and page result arithmetic on hand-built pages, closed the
// way the timer and the release walks close them.
#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

constexpr uint64_t kT0 = 1000 * kSec;
constexpr uint16_t kWebOrdinary = PAGE_FLAG_WEBTYPE | PAGE_FLAG_MAIN_REQ | PAGE_FLAG_SUCCESS;

// A page as the timer finds it: ten requests answered well within 2 s. The
// setters keep the tables readable.
struct PageShape {
    STPageNode page;
    PageShape()
    {
        InitPageNode(&page);
        page.uiPageType = PAGE_TYPE_ASSOCIATE;
        page.usPageFlag = kWebOrdinary;
        page.usMainCauseCode = page.usCauseCode = 200;
        page.usReqNum = page.usRspNum = page.usRspSuccNum = 10;
        page.uiPageID = 0x77;
        page.ullPageFirReq = page.ullPageLastReq = kT0;
        page.ullPageLastRsp = kT0 + 2 * kSec;
        page.uiDnsDelay = 33;
        page.ucTimeOutNum = 12;
    }
    PageShape &Ucid() { return page.ucIsUcidPage = 1, *this; }
    PageShape &Type(uint32_t t) { return page.uiPageType = t, *this; }
    PageShape &Flags(uint16_t f) { return page.usPageFlag = f, *this; }
    PageShape &Causes(uint16_t m, uint16_t c) { return page.usMainCauseCode = m, page.usCauseCode = c, *this; }
    PageShape &Counts(uint16_t q, uint16_t r, uint16_t ok)
    {
        return page.usReqNum = q, page.usRspNum = r, page.usRspSuccNum = ok, *this;
    }
    PageShape &Span(uint64_t d) { return page.ullPageLastRsp = kT0 + d, *this; }  // first time to last response
    PageShape &Dns(uint64_t lead) { return page.ullDNSBeginTime = kT0 - lead, *this; }
};

class PageResultTest : public DaemonTest {
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        g_PageEndFunc = CollectPageEnd;
    }
};

struct ResultCase { const char *name; PageShape shape; uint8_t testSwitch, succ, counted; uint16_t cause; uint64_t delay; };

TEST_F(PageResultTest, ExpiredPagesAreJudgedAndTimed)
{
    using P = PageShape;
    const uint16_t https = kWebOrdinary | PAGE_FLAG_HTTPS_REDIRECT | PAGE_FLAG_REDIRECT;
    const uint16_t post = kWebOrdinary | PAGE_FLAG_ALL_POST;
    const uint64_t k2 = 2 * kSec, k120 = 120 * kSec;
    const ResultCase cases[] = {
        {"9 of 10 answered", P().Counts(10, 10, 9), 0, 1, 1, 200, k2},
        {"exactly 80 percent fails", P().Counts(10, 10, 8), 0, 0, 1, 2000, k2},
        {"ucid 80 percent passes", P().Ucid().Counts(10, 10, 8), 0, 1, 1, 200, k2},
        {"ucid exactly 70 percent fails", P().Ucid().Counts(10, 10, 7), 0, 0, 1, 2000, k2},
        {"ucid 4 of 4 is too small", P().Ucid().Counts(4, 4, 4), 0, 1, 0, 200, k2},
        {"3 requests is too small", P().Counts(3, 3, 3), 0, 1, 0, 200, k2},
        {"5 requests counts", P().Counts(5, 5, 5), 0, 1, 1, 200, k2},
        {"test switch counts small pages", P().Counts(3, 3, 3), 1, 1, 1, 200, k2},
        {"404 with 1 request", P().Flags(PAGE_FLAG_WEBTYPE | PAGE_FLAG_MAIN_REQ).Causes(404, 404).Counts(1, 1, 0), 0,
         0, 1, 404, k2},
        {"no request at all", P().Counts(0, 1, 1), 0, 0, 1, 2000, k2},
        {"only redirects seen", P().Flags(PAGE_FLAG_WEBTYPE | PAGE_FLAG_SUCCESS).Causes(0, 302), 0, 0, 1, 302, k2},
        {"https redirect never counts", P().Flags(https), 1, 1, 0, 200, k2},
        {"POST-only page not judged", P().Flags(post), 0, 0, 0, 200, k2},
        {"ucid page judged despite POST", P().Ucid().Flags(post), 0, 1, 1, 200, k2},
        {"single page not judged", P().Type(PAGE_TYPE_SINGLE), 0, 0, 0, 200, k2},
        {"DNS 3 s before counts", P().Dns(3 * kSec), 0, 1, 1, 200, 5 * kSec},
        {"DNS just under 10 s counts", P().Dns(10 * kSec - 1), 0, 1, 1, 200, 12 * kSec - 1},
        {"DNS 10 s before ignored", P().Dns(10 * kSec), 0, 1, 1, 200, k2},
        {"unanswered requests: quiet time", P().Counts(5, 3, 3).Span(kSec), 0, 0, 1, 2001, 60 * kSec},
        {"unanswered but long enough", P().Counts(5, 3, 3).Span(61 * kSec), 0, 0, 1, 2000, 61 * kSec},
        {"exactly 120 s keeps flags", P().Span(k120), 0, 1, 1, 200, k120},
        {"120 s and 1 ns clears flags", P().Span(k120 + 1), 0, 0, 0, 200, k120 + 1},
    };
    for (const ResultCase &c : cases) {
        Sinks().pages.clear();
        g_stTestConfig = c.testSwitch;
        STPageNode page = c.shape.page;
        EXPECT_EQ(ProcessPageNodeTimeOut(0, &page, PAGE_PROC_TIMER, 0), 1u) << c.name;
        ASSERT_EQ(Reported().size(), 1u) << c.name;
        const STPageKQI &kqi = Reported()[0];
        EXPECT_EQ(Fields(kqi.ucSuccFlag, kqi.ucPageFlag, kqi.usCauseCode, kqi.ullPageDelay, kqi.uiPageID,
                         kqi.uiDnsDelay),
                  Fields(c.succ, c.counted, c.cause, c.delay, 0x77, 33))
            << c.name;
    }
}

TEST_F(PageResultTest, QuietLimitFollowsConfiguredTimeOut)
{
    // Settings past what the 8-bit counter can count are capped at 255 runs.
    const std::pair<uint16_t, int> cases[] = {{0, 12}, {30, 6}, {7, 1}, {3, 0}, {1275, 255}, {1280, 255},
                                              {65535, 255}};
    for (const auto &c : cases) {
        g_stWebPageConfig.usPageTimeOut = c.first;
        STPageNode page = PageShape().page;
        page.ucTimeOutNum = 0;
        int runs = 1;
        while (ProcessPageNodeTimeOut(0, &page, PAGE_PROC_TIMER, 0) == 0 && runs <= 300) {
            ++runs;
        }
        EXPECT_EQ(runs, c.second + 1) << "setting " << c.first;
    }
}

// A page result the daemon answers by shortening the quiet time.
uint32_t ShortenQuietTime(STPageKQI *pstKQI)
{
    g_stWebPageConfig.usPageTimeOut = 5;  // one quiet run
    return CollectPageEnd(pstKQI);
}

TEST_F(PageResultTest, QuietTimeRewrittenByAPageResultHoldsForTheRestOfTheWalk)
{
    InitThreads({0});
    g_PageEndFunc = ShortenQuietTime;
    g_stWebPageConfig.usPageTimeOut = 60;  // twelve quiet runs
    STWebPage *ctx = Ctx(0);
    // Inserted at the head, so walked newest first: the page with twelve
    // quiet runs closes and shortens the quiet time, so the one with five
    // closes too.
    for (const uint8_t quiet : {uint8_t{5}, uint8_t{12}}) {
        STTranNode *node = ApplyNodeMem(&ctx->stPageNodePool);
        ASSERT_NE(node, nullptr);
        STPageNode *page = static_cast<STPageNode *>(TRAN_NODE_DATA(node));
        *page = PageShape().page;
        page->ucTimeOutNum = quiet;
        ASSERT_EQ(InsertNodeHead(node, &ctx->stPageNodeList), 0u);
    }
    EXPECT_EQ(ProcessPageListTimeOut(0, PAGE_PROC_TIMER, 0, PAGE_LIST_ORDINARY), 0u);
    EXPECT_EQ(Reported().size(), 2u);
}

}  // namespace
}  // namespace orvane_test
