// UCID requests and their flows' responses keep to UCID pages, which only
// time places them on; ordinary rules never see either side.
#include "daemon_fixture.hpp"

#include <cstring>

namespace orvane_test {
namespace {

constexpr uint64_t kT0 = 9000 * kSec;

TEST(UcidMark, FoundInAnyCaseWithinTheTerminatedText)
{
    // The text, its given length and where its NUL stands.
    const struct { const char *text; uint16_t len, term; uint32_t want; } cases[] = {
        {"x/?UCID=1", 9, 9, 1}, {"x/?UCID=1", 9, 3, 0}, {"/?uCiD=", 7, 7, 1},
        {"/?ucid", 6, 6, 0},    {"/?ucid=", 0, 7, 0},   {"/a?ucid=", 8, 8, 0},
    };
    for (const auto &c : cases) {
        char buf[32] = {0};
        std::strcpy(buf, c.text);
        EXPECT_EQ(IsUrlContainsUcid(buf, c.len, c.term), c.want) << c.text << " term " << c.term;
    }
    EXPECT_EQ(IsUrlContainsUcid(nullptr, 7, 7), 0u);
}

class UcidTest : public OneThreadTest {
protected:
    static Event UcidReq(uint64_t at, const char *uri = "/?ucid=42")
    {
        Event e = Req("u.example.com", uri, at);
        e.contentType = "image/png";  // no web type: the UCID page is one anyway
        return e;
    }
    uint32_t UcidPages() const { return Ctx(0)->stUcidPageNodeList.uiNodeNum; }
};

TEST_F(UcidTest, RequestsAndResponsesStayOnUcidPages)
{
    const uint64_t id = Send(1, UcidReq(kT0));
    ASSERT_NE(id, 0u);
    EXPECT_EQ(Flow(1).ucIsUcid, 1u);
    const STPageNode *page = FindPage(0, id);
    ASSERT_NE(page, nullptr);  // no first-request strings kept
    EXPECT_EQ(Fields(page->ucIsUcidPage, page->uiPageType, page->usPageFlag & PAGE_FLAG_WEBTYPE, page->usHostLen),
              Fields(1, PAGE_TYPE_ASSOCIATE, PAGE_FLAG_WEBTYPE, 0));

    EXPECT_EQ(Send(1, Rsp(200, kT0 + 100 * kMs)), id);
    // Another UCID request soon after joins by time, from another flow.
    EXPECT_EQ(Send(2, UcidReq(kT0 + 500 * kMs, "/p/?UCID=7")), id);
    EXPECT_EQ(Send(2, Rsp(200, kT0 + 600 * kMs)), id);
    // An ordinary request of the same host at the same time opens its own page.
    const uint64_t plain = Send(3, Req("u.example.com", "/index.html", kT0 + 700 * kMs));
    EXPECT_NE(plain, id);
    EXPECT_EQ(Fields(Ctx(0)->stPageNodeList.uiNodeNum, UcidPages(), FindPage(0, id)->usReqNum,
                     FindPage(0, id)->usRspSuccNum),
              Fields(1, 1, 2, 2));

    DrainPages(0);
    EXPECT_EQ(Reported().size(), 2u);
}

TEST_F(UcidTest, OrdinaryRulesNeverPlaceAUcidRequest)
{
    Event main = Req("u.example.com", "/index.html", kT0);
    main.contentType = "text/html";
    const uint64_t plain = Send(1, main);
    Send(1, Rsp(200, kT0 + 50 * kMs));
    // Same host, just after: the host rule would take it, were it ordinary.
    const uint64_t id = Send(2, UcidReq(kT0 + 100 * kMs));
    EXPECT_NE(id, plain);
    EXPECT_EQ(Fields(FindPage(0, id)->ucIsUcidPage, FindPage(0, plain)->usReqNum), Fields(1, 1));
}

TEST_F(UcidTest, TimeMatchNeedsASuccessfulPageThatBeganFirst)
{
    const uint64_t failed = Send(1, UcidReq(kT0));
    Send(1, Rsp(404, kT0 + 100 * kMs));
    EXPECT_NE(Send(2, UcidReq(kT0 + 300 * kMs)), failed);

    const uint64_t ok = Send(3, UcidReq(kT0 + 60 * kSec));
    Send(3, Rsp(200, kT0 + 60 * kSec + 100 * kMs));
    EXPECT_NE(Send(4, UcidReq(kT0 + 60 * kSec - 10 * kMs)), ok);  // began before the page
    EXPECT_EQ(Send(5, UcidReq(kT0 + 60 * kSec + 400 * kMs)), ok);
    EXPECT_EQ(UcidPages(), 4u);
}

TEST_F(UcidTest, OtherMethodsAndStrayResponsesOpenSinglePages)
{
    Event put = UcidReq(kT0);
    put.method = 3;
    const STPageNode *page = FindPage(0, Send(1, put));
    Flow(2).ucIsUcid = 1;  // a UCID flow not yet tied to any page
    const STPageNode *rsp = FindPage(0, Send(2, Rsp(200, kT0 + 60 * kSec)));
    ASSERT_TRUE(page != nullptr && rsp != nullptr);
    EXPECT_EQ(Fields(page->uiPageType, rsp->ucIsUcidPage, rsp->uiPageType, UcidPages(),
                     Ctx(0)->stPageNodeList.uiNodeNum),
              Fields(PAGE_TYPE_SINGLE, 1, PAGE_TYPE_SINGLE, 2, 0));
}

}  // namespace
}  // namespace orvane_test
