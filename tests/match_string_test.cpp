// Saved match strings: which strings an event leaves on its page, refreshing
// to the tail, and the fixed pool they share (the level bound shows in the
// referer chain of the sub-request rules).
#include <cstring>

#include "daemon_fixture.hpp"
#include "list_walk.hpp"

namespace orvane_test {
namespace {

constexpr uint64_t kT0 = 100 * kSec;

std::vector<STMatchStrNode> Strings(const STTranManage &list)
{
    std::vector<STMatchStrNode> out;
    orvane::WalkList(&list, [&](STTranNode *n) {
        out.push_back(*static_cast<STMatchStrNode *>(TRAN_NODE_DATA(n)));
        return false;
    });
    return out;
}

class MatchStringTest : public OneThreadTest {
protected:
    void SetUp() override
    {
        OneThreadTest::SetUp();
        Event open = Req("www.example", "index.html", kT0);
        open.code = 200;
        open.contentType = "text/html";
        pageID_ = Send(1, open);
        page_ = FindPage(0, pageID_);
        ASSERT_NE(page_, nullptr);
    }

    // A working record on a flow tied to the page, as after an association.
    STEventInfo Working(uint32_t level, uint64_t begin)
    {
        STEventInfo ev;
        InitPageProcessInfo(0, &Flow(1), &ev);
        ev.uiMatchLevel = level;
        ev.ullReqBeginTime = begin;
        ev.ullMsgEndTime = begin + kMs;
        return ev;
    }

    static void SetReferer(STEventInfo &ev, const std::string &text)
    {
        ev.usRefererUrlLen = static_cast<uint16_t>(text.size());
        std::memcpy(ev.acRefererUrl, text.data(), text.size());
        ev.acRefererUrl[text.size()] = '\0';
        ev.uiRefererHashKey = StrlwrAndBKDRHash(ev.acRefererUrl, ev.usRefererUrlLen);
    }

    uint32_t FreeStrings() const { return GetFreeNodeNum(&Ctx(0)->stMatchStrMemPool); }

    uint64_t pageID_ = 0;
    STPageNode *page_ = nullptr;
};

TEST_F(MatchStringTest, FirstRequestStringsAndTimelessEventsSaveNothing)
{
    STEventInfo ev = Working(0, 0);
    ev.ullMsgEndTime = 0;
    SetReferer(ev, "a.example/p");
    SaveStringCommon(&ev);
    EXPECT_EQ(page_->stRefererList.uiNodeNum, 0u);

    ev = Working(0, kT0 + kSec);
    std::strcpy(ev.acHost, "www.example");  // the page's own host
    ev.usHostLen = 11;
    ev.uiHostHashKey = page_->uiHostKey;
    SetReferer(ev, "a.example/" + std::string(190, 'x'));
    SaveStringCommon(&ev);
    EXPECT_EQ(page_->stHostList.uiNodeNum, 0u);
    const std::vector<STMatchStrNode> saved = Strings(page_->stRefererList);
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(saved[0].usStrLen, MATCH_STR_MAX_LEN);
    EXPECT_EQ(std::strlen(saved[0].acStr), MATCH_STR_MAX_LEN);
}

TEST_F(MatchStringTest, FullPoolDropsNewStringsRefreshesSavedOnesAndReleaseReturnsThem)
{
    STEventInfo ev = Working(0, kT0 + kSec);
    SetReferer(ev, "r.example/p");
    for (uint32_t key = 1; key <= MATCH_STR_NODE_NUM + 5; ++key) {
        ev.uiRefererHashKey = key;
        SaveString(&ev, page_, kT0, kT0, MATCH_STR_REFERER);
    }
    EXPECT_EQ(page_->stRefererList.uiNodeNum, MATCH_STR_NODE_NUM);
    EXPECT_EQ(FreeStrings(), 0u);
    // A saved string is still refreshed: it becomes the newest, with fresh
    // times and the level it was first saved with.
    ev.uiRefererHashKey = 7;
    ev.uiMatchLevel = 2;
    SaveString(&ev, page_, kT0 + kSec, kT0 + 2 * kSec, MATCH_STR_REFERER);
    const STMatchStrNode last = Strings(page_->stRefererList).back();
    EXPECT_EQ(Fields(last.uiHashKey, last.ullBeginTime, last.ullEndTime, last.uiMatchLevel),
              Fields(7, kT0 + kSec, kT0 + 2 * kSec, 1));

    ReleaseMatchList(&page_->stRefererList, &Ctx(0)->stMatchStrMemPool);
    EXPECT_EQ(page_->stRefererList.uiNodeNum, 0u);
    EXPECT_EQ(page_->stRefererList.pstHead, nullptr);
    EXPECT_EQ(FreeStrings(), MATCH_STR_NODE_NUM);
}

TEST_F(MatchStringTest, ClosedPageGivesItsStringsBack)
{
    Event img = Req("img.example", "a.png", kT0 + 3 * kSec);
    img.referHost = "www.example";
    img.referPath = "index.html";
    img.code = 302;
    img.location = "http://cdn.example/a.png";
    ASSERT_EQ(Send(2, img), pageID_);
    EXPECT_EQ(FreeStrings(), MATCH_STR_NODE_NUM - 4);  // URL, host, referer, location
    DrainPages(0);
    EXPECT_EQ(FreeStrings(), MATCH_STR_NODE_NUM);

    // The flow still names the closed page, whose node keeps its ID: nothing is saved there.
    STEventInfo ev = Working(0, kT0 + 20 * kSec);
    SetReferer(ev, "late.example/p");
    SaveStringCommon(&ev);
    EXPECT_EQ(FreeStrings(), MATCH_STR_NODE_NUM);
}

}  // namespace
}  // namespace orvane_test
