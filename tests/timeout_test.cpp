// Page judgement and page result arithmetic on hand-built pages, closed the
// way the timer and the release walks close them.
#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

constexpr uint64_t kT0 = 1000 * kSec;
constexpr uint16_t kWebOrdinary = PAGE_FLAG_WEBTYPE | PAGE_FLAG_MAIN_REQ | PAGE_FLAG_SUCCESS;

// A page as the timer finds it; the setters keep the tables readable.
struct PageShape {
    uint8_t ucid = 0;
    uint32_t type = PAGE_TYPE_ASSOCIATE;
    uint16_t flags = kWebOrdinary;
    uint16_t mainCause = 200, cause = 200;
    uint16_t req = 10, rsp = 10, succ = 10;
    uint64_t span = 2 * kSec;  // first time to last response
    uint64_t dnsLead = 0;      // DNS begin this long before the first time; 0: none

    PageShape &Ucid() { return ucid = 1, *this; }
    PageShape &Type(uint32_t t) { return type = t, *this; }
    PageShape &Flags(uint16_t f) { return flags = f, *this; }
    PageShape &Causes(uint16_t m, uint16_t c) { return mainCause = m, cause = c, *this; }
    PageShape &Counts(uint16_t q, uint16_t r, uint16_t ok) { return req = q, rsp = r, succ = ok, *this; }
    PageShape &Span(uint64_t d) { return span = d, *this; }
    PageShape &Dns(uint64_t lead) { return dnsLead = lead, *this; }
};

STPageNode MakePage(const PageShape &s)
{
    STPageNode page;
    InitPageNode(&page);
    page.ucIsUcidPage = s.ucid;
    page.uiPageType = s.type;
    page.usPageFlag = s.flags;
    page.usMainCauseCode = s.mainCause;
    page.usCauseCode = s.cause;
    page.usReqNum = s.req;
    page.usRspNum = s.rsp;
    page.usRspSuccNum = s.succ;
    page.uiPageID = 0x77;
    page.ullPageFirReq = kT0;
    page.ullPageLastReq = kT0;
    page.ullPageLastRsp = kT0 + s.span;
    page.ullDNSBeginTime = s.dnsLead != 0 ? kT0 - s.dnsLead : 0;
    page.uiDnsDelay = 33;
    page.ucTimeOutNum = 12;
    return page;
}

class PageResultTest : public DaemonTest {
protected:
    STPageKQI CloseExpired(const PageShape &s)
    {
        STPageNode page = MakePage(s);
        EXPECT_EQ(ProcessPageNodeTimeOut(0, &page, PAGE_PROC_TIMER, 0), 1u);
        EXPECT_EQ(Reported().size(), 1u);
        return Reported().empty() ? STPageKQI{} : Reported().back();
    }
    void SetUp() override
    {
        DaemonTest::SetUp();
        g_PageEndFunc = CollectPageEnd;
    }
};

struct ResultCase {
    const char *name;
    PageShape shape;
    uint8_t testSwitch;
    uint8_t succ, counted;
    uint16_t cause;
    uint64_t delay;
};

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
        const STPageKQI kqi = CloseExpired(c.shape);
        EXPECT_EQ(kqi.ucSuccFlag, c.succ) << c.name;
        EXPECT_EQ(kqi.ucPageFlag, c.counted) << c.name;
        EXPECT_EQ(kqi.usCauseCode, c.cause) << c.name;
        EXPECT_EQ(kqi.ullPageDelay, c.delay) << c.name;
        EXPECT_EQ(kqi.uiPageID, 0x77u) << c.name;
        EXPECT_EQ(kqi.uiDnsDelay, 33u) << c.name;
    }
}

TEST_F(PageResultTest, QuietLimitFollowsConfiguredTimeOut)
{
    // Settings past what the 8-bit counter can count are capped at 255 runs.
    const std::pair<uint16_t, int> cases[] = {{0, 12}, {30, 6}, {7, 1}, {3, 0}, {1275, 255}, {1280, 255},
                                              {65535, 255}};
    for (const auto &c : cases) {
        g_stWebPageConfig.usPageTimeOut = c.first;
        STPageNode page = MakePage({});
        page.ucTimeOutNum = 0;
        int runs = 1;
        while (ProcessPageNodeTimeOut(0, &page, PAGE_PROC_TIMER, 0) == 0 && runs <= 300) {
            ++runs;
        }
        EXPECT_EQ(runs, c.second + 1) << "setting " << c.first;
    }
}

}  // namespace
}  // namespace orvane_test
