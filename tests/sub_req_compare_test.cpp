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
    Event img = At("img.example", "a.png", 3 * kSec, "www.example", "index.html");
    img.code = 302;
    img.location = "https://cdn.example/a.png";
    ASSERT_EQ(Send(2, img), page);
    STPageNode *p = FindPage(0, page);
    ASSERT_EQ(p->stLocationList.uiNodeNum, 1u);
    const uint32_t freeBefore = GetFreeNodeNum(&Ctx(0)->stMatchStrMemPool);

    EXPECT_EQ(Send(3, At("cdn.example", "a.png", 10 * kSec)), page);
    EXPECT_EQ(p->stLocationList.uiNodeNum, 0u);
    // The consumed location went back to the pool (the request saved its host meanwhile).
    EXPECT_EQ(GetFreeNodeNum(&Ctx(0)->stMatchStrMemPool), freeBefore + 1 - 2);
    EXPECT_NE(Send(4, At("cdn.example", "a.png", 14 * kSec)), page);
}

TEST_F(SubRuleTest, SavedHostWindow)
{
    const struct {
        uint64_t delay;
        bool joins;
    } cases[] = {{5500 * kMs, true}, {6500 * kMs, false}};
    int flow = 0;
    for (const auto &c : cases) {
        ResetLibrary();
        InitThreads({0});
        const uint64_t page = Open("", "", ++flow);
        ASSERT_EQ(Send(++flow, At("api.example", "data.json", 3 * kSec, "www.example", "index.html")), page);
        EXPECT_EQ(Send(++flow, At("api.example", "more.json", c.delay)) == page, c.joins) << c.delay;
    }
}

TEST_F(SubRuleTest, SameRefererAsTheMainRequest)
{
    const struct {
        const char *name;
        uint64_t delay;
        const char *type;
        bool joins, opensByReferer;
    } cases[] = {
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
    Event img = At("img.example", "a.png", 3 * kSec, "www.example", "index.html");
    img.code = 302;
    img.location = "https://cdn.example/a.png";
    ASSERT_EQ(Send(2, img), older);
    const uint64_t newer = Send(3, At("other.example", "index.html", 8 * kSec, "", "", "text/html"));
    ASSERT_NE(newer, older);
    // Inside the older page's location window, but only the newer page is consulted.
    EXPECT_NE(Send(4, At("cdn.example", "a.png", 12 * kSec)), older);
    EXPECT_EQ(FindPage(0, older)->stLocationList.uiNodeNum, 1u);
}

TEST_F(SubRuleTest, RequestWithoutHostOpensAWebPage)
{
    InitThreads({0});
    STFlowInfo flow{};
    STEventInfo ev;
    InitPageProcessInfo(0, &flow, &ev);
    std::strcpy(ev.acURL, "/a.html");
    ev.usURLLen = 7;
    std::strcpy(ev.acContentType, "text/html");
    ev.usContentTypeLen = 9;
    ev.usCauseCode = 200;
    ev.uiReqMethod = WEBPAGE_METHOD_GET;
    ev.ullReqBeginTime = kT0;
    std::strcpy(ev.acRefererUrl, "x.example");
    ev.usRefererUrlLen = 9;
    ev.uiHostHashKey = ev.uiRefererHashKey = 77;  // names itself as referer
    EXPECT_EQ(ProcessSpecialUri(&ev), 0u);
    ev.usRefererUrlLen = 0;
    ev.usContentTypeLen = 0;  // not of web type
    EXPECT_EQ(ProcessSpecialUri(&ev), 0u);
    ev.usContentTypeLen = 9;
    EXPECT_NE(ProcessSpecialUri(&ev), 0u);
    EXPECT_EQ(OpenPages(0), 1u);
}

}  // namespace
}  // namespace orvane_test
