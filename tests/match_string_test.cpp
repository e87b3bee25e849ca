// Saved match strings: which strings an event leaves on its page, refreshing
// to the tail, and the fixed pool they share (the level bound shows in the
// referer chain of the sub-request rules).
#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

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

// A pool of eight nodes and one list built on it, described by node index so
// that two copies can be compared.
struct PoolAndList {
    CMemPool pool{};
    STTranManage list{};
    std::vector<STTranNode *> nodes;

    explicit PoolAndList(const std::vector<int> &ring)
    {
        EXPECT_EQ(setInitMemPool(8, 24, 0, &pool), 0u);
        InitSTTranManage(MatchStrCompare, &list);
        for (int i = 0; i < 8; ++i) {
            nodes.push_back(ApplyNodeMem(&pool));
        }
        for (int i : ring) {
            EXPECT_EQ(InsertNodeTail(nodes[i], &list), 0u);
        }
        for (int i = 7; i >= 0; --i) {
            if (std::find(ring.begin(), ring.end(), i) == ring.end()) {
                FreeNodeMem(nodes[i], &pool);
            }
        }
    }
    ~PoolAndList() { FreeCMemPoolList(&pool); }

    int Index(const STTranNode *n) const
    {
        return n == nullptr ? -1 : static_cast<int>(std::find(nodes.begin(), nodes.end(), n) - nodes.begin());
    }
    std::string Shape() const
    {
        std::string out = "head " + std::to_string(Index(list.pstHead)) + " count " +
                          std::to_string(list.uiNodeNum) + " free";
        for (const STTranNode *n = pool.m_pstFreeHead; n != nullptr && out.size() < 400; n = n->pstNext) {
            out += " " + std::to_string(Index(n));
        }
        out += " tail " + std::to_string(Index(pool.m_pstFreeTail)) + " links";
        for (const STTranNode *n : nodes) {
            out += " " + std::to_string(Index(n->pstPrev)) + "/" + std::to_string(Index(n->pstNext));
        }
        return out + " used " + std::to_string(pool.m_uiUsedNodeNum);
    }
};

// Release as a walk that unlinks and frees node by node.
void ReleaseNodeByNode(STTranManage *list, CMemPool *pool)
{
    STTranNode *const head = list->pstHead;
    const uint32_t limit = list->uiNodeNum;  // the walk's bound is the count it started with
    STTranNode *node = head;
    for (uint32_t i = 0; head != nullptr && i < limit && node != nullptr; ++i) {
        STTranNode *next = node->pstNext;
        if (RemoveNode(node, list) == 0) {
            FreeNodeMem(node, pool);
        }
        if (next == head) {
            break;
        }
        node = next;
    }
}

TEST(MatchStringRelease, LeavesWhatUnlinkingNodeByNodeLeaves)
{
    // Damage a daemon may do with the exported list operations: a count
    // that disagrees with the ring, a broken back link, a cut ring.
    const std::vector<std::function<void(PoolAndList &)>> damage = {
        [](PoolAndList &) {},
        [](PoolAndList &p) { p.list.uiNodeNum += 2; },
        [](PoolAndList &p) { p.list.uiNodeNum -= 1; },
        [](PoolAndList &p) { p.nodes[4]->pstPrev = p.nodes[1]; },
        [](PoolAndList &p) { p.nodes[4]->pstNext = nullptr; },
        [](PoolAndList &p) { p.nodes[6]->pstNext = p.nodes[4]; },
    };
    for (size_t d = 0; d < damage.size(); ++d) {
        PoolAndList fast({2, 5, 4, 0, 6}), slow({2, 5, 4, 0, 6});
        damage[d](fast);
        damage[d](slow);
        ReleaseMatchList(&fast.list, &fast.pool);
        ReleaseNodeByNode(&slow.list, &slow.pool);
        EXPECT_EQ(fast.Shape(), slow.Shape()) << "damage " << d;
    }
}

}  // namespace
}  // namespace orvane_test
