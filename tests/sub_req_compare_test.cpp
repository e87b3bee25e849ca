// Sub-request rules: saved locations, URLs and hosts of a page's later
// transactions, the referer-with-referer rule and requests without a host.
#include <cstring>

#include "daemon_fixture.hpp"
#include "list_walk.hpp"

namespace orvane_test {
namespace {

constexpr uint64_t kT0 = 100 * kSec;

Event At(const std::string &host, const std::string &uri, uint64_t delay, const std::string &referHost = "",
         const std::string &referPath = "", const char *type = "image/png")
{
    Event e = Req(host, uri, kT0 + delay);
    e.referHost = referHost;
    e.referPath = referPath;
    e.code = 200;
    e.contentType = type;
    return e;
}

std::vector<uint32_t> Levels(const STTranManage &list)
{
    std::vector<uint32_t> levels;
    orvane::WalkList(&list, [&](STTranNode *n) {
        levels.push_back(static_cast<STMatchStrNode *>(TRAN_NODE_DATA(n))->uiMatchLevel);
        return false;
    });
    return levels;
}

class SubRuleTest : public DaemonTest {
protected:
    // www.example/index.html at t0, optionally reached from a referer.
    uint64_t Open(const std::string &referHost = "", const std::string &referPath = "", int flow = 1)
    {
        return Send(flow, At("www.example", "index.html", 0, referHost, referPath, "text/html"));
    }
    // The page's image answers with a redirect, which the page saves as a location.
    void RedirectImage(uint64_t page)
    {
        Event img = At("img.example", "a.png", 3 * kSec, "www.example", "index.html");
        img.code = 302;
        img.location = "https://cdn.example/a.png";
        ASSERT_EQ(Send(2, img), page);
        ASSERT_EQ(FindPage(0, page)->stLocationList.uiNodeNum, 1u);
    }
};

// Each resource refers to the one before it, 3 s apart: too late for the time
// rule, inside the referer window of the previous one's saved URL.
TEST_F(SubRuleTest, RefererChainAcrossHostsStopsAfterFourSteps)
{
    InitThreads({0});
    const uint64_t page = Open();
    std::string referHost = "www.example", referPath = "index.html";
    for (int step = 1; step <= 6; ++step) {
        const std::string host = "h" + std::to_string(step) + ".example", uri = "r" + std::to_string(step) + ".js";
        const uint64_t got = Send(10 + step, At(host, uri, step * 3 * kSec, referHost, referPath));
        EXPECT_EQ(got == page, step <= 5) << "step " << step;
        referHost = host;
        referPath = uri;
    }
    const STPageNode *p = FindPage(0, page);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(Levels(p->stURLList), (std::vector<uint32_t>{1, 2, 3, 4}));
}

TEST_F(SubRuleTest, SavedLocationLeadsOneRequestOnly)
{
    InitThreads({0});
    const uint64_t page = Open();
    RedirectImage(page);
    STPageNode *p = FindPage(0, page);
    const uint32_t freeBefore = GetFreeNodeNum(&Ctx(0)->stMatchStrMemPool);

    EXPECT_EQ(Send(3, At("cdn.example", "a.png", 10 * kSec)), page);
    EXPECT_EQ(p->stLocationList.uiNodeNum, 0u);
    // The consumed location went back to the pool (the request saved its host meanwhile).
    EXPECT_EQ(GetFreeNodeNum(&Ctx(0)->stMatchStrMemPool), freeBefore + 1 - 2);
    EXPECT_NE(Send(4, At("cdn.example", "a.png", 14 * kSec)), page);
}

TEST_F(SubRuleTest, SavedHostWindow)
{
    const std::pair<uint64_t, bool> delayJoins[] = {{5500 * kMs, true}, {6500 * kMs, false}};
    int flow = 0;
    for (const auto &[delay, joins] : delayJoins) {
        ResetLibrary();
        InitThreads({0});
        const uint64_t page = Open("", "", ++flow);
        ASSERT_EQ(Send(++flow, At("api.example", "data.json", 3 * kSec, "www.example", "index.html")), page);
        EXPECT_EQ(Send(++flow, At("api.example", "more.json", delay)) == page, joins) << delay;
    }
}

TEST_F(SubRuleTest, SameRefererAsTheMainRequest)
{
    const struct { const char *name; uint64_t delay; const char *type; bool joins, opensByReferer; } cases[] = {
        {"inside the window", 1 * kSec, "text/html", true, false},
        {"late web page opens its own", 3 * kSec, "text/html", false, true},
        {"late resource", 3 * kSec, "image/png", false, false},
    };
    int flow = 0;
    for (const auto &c : cases) {
        ResetLibrary();
        InitThreads({0}, 0, LOG_LEVEL_TRACE);
        const uint64_t page = Open("search.example", "q", ++flow);
        const uint64_t got = Send(++flow, At("news.example", "story.html", c.delay, "search.example", "q", c.type));
        EXPECT_EQ(got == page, c.joins) << c.name;
        EXPECT_EQ(LogContains("Match use referer with referer,insert page is OK"), c.opensByReferer) << c.name;
        if (c.joins) {
            EXPECT_EQ(Levels(FindPage(0, page)->stURLList), std::vector<uint32_t>{2}) << c.name;
        }
    }
}

TEST_F(SubRuleTest, OnlyTheNewestWebPageLendsItsStrings)
{
    InitThreads({0});
    const uint64_t older = Open();
    RedirectImage(older);
    const uint64_t newer = Send(3, At("other.example", "index.html", 8 * kSec, "", "", "text/html"));
    ASSERT_NE(newer, older);
    // Inside the older page's location window, but only the newer page is consulted.
    EXPECT_NE(Send(4, At("cdn.example", "a.png", 12 * kSec)), older);
    EXPECT_EQ(FindPage(0, older)->stLocationList.uiNodeNum, 1u);
}

// A request without a host opens a page when it is of web type and does not
// name its own host as referer.
TEST_F(SubRuleTest, RequestWithoutHostOpensAWebPage)
{
    InitThreads({0});
    STEventInfo ev;
    InitPageProcessInfo(0, &Flow(1), &ev);
    ev.usURLLen = static_cast<uint16_t>(std::strlen(std::strcpy(ev.acURL, "/a.html")));
    std::strcpy(ev.acContentType, "text/html");
    std::strcpy(ev.acRefererUrl, "x.example");
    ev.uiReqMethod = WEBPAGE_METHOD_GET;
    ev.ullReqBeginTime = kT0;
    ev.uiHostHashKey = ev.uiRefererHashKey = 77;
    const struct { uint16_t refererLen, typeLen; bool opens; } rows[] = {{9, 9, false}, {0, 0, false}, {0, 9, true}};
    for (const auto &r : rows) {
        ev.usRefererUrlLen = r.refererLen;
        ev.usContentTypeLen = r.typeLen;
        EXPECT_EQ(ProcessSpecialUri(&ev) != 0, r.opens) << r.refererLen << " " << r.typeLen;
    }
    EXPECT_EQ(OpenPages(0), 1u);
}

}  // namespace
}  // namespace orvane_test
