// Page creation, IDs, the flow's page look-ups, and how events update a page.
#include <string>

#include "daemon_fixture.hpp"

namespace orvane_test {
namespace {

constexpr uint16_t kRedirectFlags = PAGE_FLAG_HAS_CAUSE | PAGE_FLAG_SUCCESS | PAGE_FLAG_REDIRECT;

class PageStoreTest : public DaemonTest {
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        InitThreads({0, 5});
    }
    STPageNode *Create(int flow, const Event &ev, uint32_t type = PAGE_TYPE_ASSOCIATE, uint8_t allRuleFail = 0)
    {
        STEventInfo info = Intake(0, flow, ev);
        const uint64_t id = InsertPageNode(&info, type, allRuleFail);
        return id == 0 ? nullptr : FindPage(0, id);
    }
    void Apply(STPageNode *page, int flow, const Event &ev, uint32_t type = PAGE_TYPE_ASSOCIATE)
    {
        STEventInfo info = Intake(0, flow, ev);
        ASSERT_EQ(UpdatePageNode(page, &info, type), 0u);
    }
    static Event Coded(Event ev, uint32_t code, uint32_t method = WEBPAGE_METHOD_GET)
    {
        ev.code = code;
        ev.method = method;
        return ev;
    }
};

TEST_F(PageStoreTest, PageIdsCarryTheThreadInTheTopBits)
{
    STEventInfo info = Intake(5, 2, Req("b.example", "/", kSec));
    EXPECT_EQ(InsertPageNode(&info, PAGE_TYPE_ASSOCIATE, 0), 0x5000000000000001ull);
    g_aulPageID[5] = 0x0FFFFFFFFFFFFFFFull;  // the counter's carry never reaches the thread bits
    EXPECT_EQ(InsertPageNode(&info, PAGE_TYPE_ASSOCIATE, 0), 0x5000000000000000ull);
}

TEST_F(PageStoreTest, FirstTimeTakesASynAtMostFiveSecondsEarlier)
{
    const uint64_t t = 100 * kSec;
    const uint64_t rows[][2] = {{t - 4 * kSec, t - 4 * kSec}, {t - 5 * kSec, t - 5 * kSec}, {t - 5 * kSec - 1, t},
                                {t - 6 * kSec, t},            {t + 1, t},                   {0, t}};
    for (const auto &r : rows) {
        Event req = Req("a.example", "/", t);
        req.syn = r[0];
        STPageNode *page = Create(1, req);
        EXPECT_EQ(page->ullPageFirReq, r[1]) << "syn " << r[0];
        page->ullPageFirReq = 0;  // an update that gives the first time follows the same rule
        Apply(page, 1, req);
        EXPECT_EQ(page->ullPageFirReq, r[1]) << "update, syn " << r[0];
    }
    EXPECT_EQ(Create(2, Rsp(200, 7 * kSec), PAGE_TYPE_SINGLE)->ullPageFirReq, 7 * kSec);

    STPageNode *page = Create(3, Req("a.example", "/", 10 * kSec, 11 * kSec));
    Apply(page, 3, Req("a.example", "/late", 20 * kSec, 21 * kSec));
    Apply(page, 3, Req("a.example", "/early", 2 * kSec, 3 * kSec));  // moves nothing back
    EXPECT_EQ(Fields(page->ullPageFirReq, page->ullPageLastReq, page->ullPageLastRsp), Fields(10 * kSec, 20 * kSec, 21 * kSec));
}

// What the creating event alone leaves on a page.
TEST_F(PageStoreTest, CreationFlagsFollowMethodContentAndFirstCause)
{
    constexpr uint16_t kMain = PAGE_FLAG_WEBTYPE | PAGE_FLAG_HAS_CAUSE | PAGE_FLAG_MAIN_REQ;
    struct Row { uint32_t code, method; const char *type; uint8_t allRuleFail; uint32_t pageType; uint16_t flags; };
    const Row rows[] = {
        {304, 1, "", 0, PAGE_TYPE_ASSOCIATE, kMain | PAGE_FLAG_SUCCESS},
        {200, 2, "", 0, PAGE_TYPE_ASSOCIATE, kMain | PAGE_FLAG_SUCCESS | PAGE_FLAG_ALL_POST},
        {0, 3, "", 0, PAGE_TYPE_SINGLE, 0},  // asked as type 2, forced to type 1
        {0, 1, "image/png", 1, PAGE_TYPE_ASSOCIATE, 0},
        {302, 1, "image/png", 1, PAGE_TYPE_ASSOCIATE, PAGE_FLAG_WEBTYPE | kRedirectFlags},
    };
    for (const Row &r : rows) {
        Event ev = Coded(Req("a.example", "/", kSec), r.code, r.method);
        ev.contentType = r.type;
        STPageNode *page = Create(1, ev, PAGE_TYPE_ASSOCIATE, r.allRuleFail);
        ASSERT_NE(page, nullptr);
        EXPECT_EQ(Fields(page->usPageFlag, page->uiPageType), Fields(r.flags, r.pageType)) << r.code << r.type;
    }
    Event toHttps = Coded(Req("a.example", "/", kSec), 302);
    toHttps.location = "https://b.example/";
    EXPECT_EQ(Create(1, toHttps)->usPageFlag, PAGE_FLAG_WEBTYPE | kRedirectFlags | PAGE_FLAG_HTTPS_REDIRECT);
}

TEST_F(PageStoreTest, MainRequestSettlesOnceAfterRedirects)
{
    STPageNode *page = Create(1, Coded(Req("a.example", "/", kSec), 302));
    Apply(page, 1, Rsp(200, 2 * kSec));
    Apply(page, 1, Rsp(500, 3 * kSec));
    EXPECT_EQ(Fields(page->usPageFlag, page->usMainCauseCode, page->usCauseCode),
              Fields(PAGE_FLAG_WEBTYPE | kRedirectFlags | PAGE_FLAG_MAIN_REQ, 200, 500));

    STPageNode *failed = Create(2, Coded(Req("b.example", "/", kSec), 301));
    Apply(failed, 2, Rsp(404, 2 * kSec));  // clears the success the redirect gave
    Apply(failed, 2, Rsp(200, 3 * kSec));
    EXPECT_EQ(Fields(failed->usPageFlag & PAGE_FLAG_SUCCESS, failed->usMainCauseCode), Fields(0, 404));
}

TEST_F(PageStoreTest, CountersAndPostFlag)
{
    const Event post = Coded(Req("a.example", "/form", kSec), 200, WEBPAGE_METHOD_POST);
    STPageNode *page = Create(1, post);
    Apply(page, 1, post);
    Event closed = Rsp(200, 2 * kSec);
    closed.finRst = 1;
    Apply(page, 1, closed);  // answered, not successful
    Apply(page, 1, Rsp(200, 3 * kSec));
    EXPECT_NE(page->usPageFlag & PAGE_FLAG_ALL_POST, 0);
    Event get = Req("a.example", "/x", 4 * kSec);
    get.finRst = 1;  // counts as answered too
    page->ucTimeOutNum = 3;
    Apply(page, 1, get);
    EXPECT_EQ(Fields(page->usPageFlag & PAGE_FLAG_ALL_POST, page->ucTimeOutNum, page->usReqNum, page->usRspNum,
                     page->usRspSuccNum, page->usPostNum, page->usPostSuccNum, page->usGetNum, page->usGetSuccNum),
              Fields(0, 0, 3, 3, 1, 2, 2, 1, 0));
}

TEST_F(PageStoreTest, FirstRequestIdentityAndDns)
{
    const std::string host(60, 'h');
    Event ev = Coded(Req(host, "/" + std::string(250, 'u'), kSec), 302);
    ev.location = std::string(128, 'l');
    STPageNode *page = Create(1, ev);
    EXPECT_EQ(page->acLocation, std::string(128, 'l'));
    EXPECT_EQ(page->acURL, host + "//" + std::string(127, 'u'));
    ASSERT_EQ(Sinks().dnsQueries.size(), 1u);
    EXPECT_EQ(Sinks().dnsQueries[0].uiServerIp, ev.serverIp);
    Create(2, Rsp(200, kSec), PAGE_TYPE_SINGLE);  // no host, no query
    EXPECT_EQ(Sinks().dnsQueries.size(), 1u);
}

TEST_F(PageStoreTest, FlowIsTiedByTypeAndLookedUpByIt)
{
    STPageNode *single = Create(1, Req("a.example", "/", kSec), PAGE_TYPE_SINGLE);
    STPageNode *assoc = Create(2, Req("b.example", "/", kSec));
    Apply(assoc, 1, Rsp(200, 2 * kSec), PAGE_TYPE_ASSOCIATE);
    EXPECT_EQ(Flow(1).uiPageType, static_cast<uint32_t>(PAGE_TYPE_ASSOCIATE));
    EXPECT_EQ(Flow(1).ullSinglePageID, single->uiPageID);
    STEventInfo info = Intake(0, 1, Rsp(200, 3 * kSec));
    EXPECT_EQ(GetPageNodeByFlowInfo(&info, PAGE_LIST_ORDINARY), assoc);
    EXPECT_EQ(GetSinglePageNodeByFlowInfo(&info, PAGE_LIST_UCID), single);  // a live cached pointer wins
    info.pstFlowInfo = nullptr;
    EXPECT_EQ(UpdatePageNode(single, &info, PAGE_TYPE_SINGLE), 1u);  // updated, but no flow to tie
}

// The flow's cached pointer outlives its page: closed (the node keeps its ID
// until reused, so the pointer still leads there), reused for another page,
// or left over from a destroyed context. Then only the ID may decide.
TEST_F(PageStoreTest, StaleCachedPointersAreNotFollowed)
{
    STPageNode *gone = Create(1, Req("a.example", "/", kSec), PAGE_TYPE_SINGLE);
    STPageNode *kept = Create(3, Req("c.example", "/", kSec), PAGE_TYPE_SINGLE);
    Flow(3).pstSinglePage = gone;
    STEventInfo onFlow3 = Intake(0, 3, Rsp(200, 2 * kSec));
    EXPECT_EQ(GetSinglePageNodeByFlowInfo(&onFlow3, PAGE_LIST_ORDINARY), kept);

    const uint64_t goneID = gone->uiPageID;
    API_ReleaseWebPageNode(0, 0);
    STEventInfo onFlow1 = Intake(0, 1, Rsp(200, 2 * kSec));
    EXPECT_EQ(GetSinglePageNodeByFlowInfo(&onFlow1, PAGE_LIST_ORDINARY), gone);  // closed, node free
    for (int i = 0; i < 30 && gone->uiPageID == goneID; ++i) {
        ASSERT_NE(Create(2, Req("b.example", "/", kSec), PAGE_TYPE_SINGLE), nullptr);
    }
    ASSERT_NE(gone->uiPageID, goneID);  // same node, another page
    EXPECT_EQ(GetPageNodeByFlowInfo(&onFlow1, PAGE_LIST_ORDINARY), nullptr);

    API_ReleaseWebPage(0);  // the pointer now dangles: ASan fails any read of it
    InitThreads({0});
    EXPECT_EQ(GetSinglePageNodeByFlowInfo(&onFlow1, PAGE_LIST_ORDINARY), nullptr);
    Flow(1).ullSinglePageID = 1;
    STPageNode *fresh = Create(4, Req("d.example", "/", kSec));  // ID 1 again
    EXPECT_EQ(GetSinglePageNodeByFlowInfo(&onFlow1, PAGE_LIST_ORDINARY), fresh);
}

}  // namespace
}  // namespace orvane_test
