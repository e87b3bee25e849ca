// The circular list: placement rules, refusals on damaged lists, bounded walks.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tran_list.h"

namespace {

struct KeyNode { STTranNode hdr; uint32_t key; char name; };

uint32_t KeyCompare(const void *data, const void *key)
{
    return *static_cast<const uint32_t *>(data) == *static_cast<const uint32_t *>(key) ? 0 : 1;
}

std::string Walk(const STTranManage &list)
{
    std::string s;
    const STTranNode *n = list.pstHead;
    for (uint32_t i = 0; i < list.uiNodeNum && n != nullptr; ++i, n = n->pstNext) {
        s += reinterpret_cast<const KeyNode *>(n)->name;
    }
    return s;
}

class ListTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        InitSTTranManage(KeyCompare, &list);
        for (int i = 0; i < 4; ++i) {
            nodes[i] = KeyNode{{nullptr, nullptr}, static_cast<uint32_t>(10 * (i + 1)), static_cast<char>('A' + i)};
        }
    }
    STTranNode *N(int i) { return &nodes[i].hdr; }
    void AddTail(std::initializer_list<int> idx)
    {
        for (int i : idx) {
            ASSERT_EQ(InsertNodeTail(N(i), &list), 0u);
        }
    }
    STTranManage list;
    KeyNode nodes[4];
};

TEST_F(ListTest, HeadInsertionReversesOrderAndRemovalMovesTheHead)
{
    ASSERT_EQ(InsertNodeHead(N(0), &list), 0u);
    EXPECT_EQ(N(0)->pstNext, N(0));  // a lone node links to itself
    EXPECT_EQ(N(0)->pstPrev, N(0));
    EXPECT_EQ(IsListEmpty(&list), 0u);
    ASSERT_EQ(InsertNodeHead(N(1), &list), 0u);
    ASSERT_EQ(InsertNodeHead(N(2), &list), 0u);
    EXPECT_EQ(Walk(list), "CBA");
    EXPECT_EQ(GetNodeTail(&list), N(0));
    ASSERT_EQ(RemoveNode(N(2), &list), 0u);
    EXPECT_EQ(list.pstHead, N(1));
    EXPECT_EQ(N(2)->pstNext, nullptr);
    ASSERT_EQ(RemoveNode(N(0), &list), 0u);
    ASSERT_EQ(RemoveNode(N(1), &list), 0u);
    EXPECT_EQ(list.pstHead, nullptr);
    EXPECT_EQ(IsListEmpty(&list), 1u);
    EXPECT_EQ(RemoveNode(N(1), &list), 1u);
}

TEST_F(ListTest, OrderedInsertPlacesBeforeMatchOrAtTailAndSeekFindsByKey)
{
    const struct { uint32_t key; const char *expect; } rows[] = {{20, "ADBC"}, {10, "ABCD"}, {99, "ABCD"}};
    for (const auto &r : rows) {
        SetUp();
        AddTail({0, 1, 2});
        ASSERT_EQ(InsertNodeOrderByKey(&r.key, N(3), &list), 0u);
        EXPECT_EQ(Walk(list), r.expect) << r.key;
        EXPECT_EQ(GetListTranNodeNum(&list), 4u);
    }
    uint32_t k = 30, missing = 5;
    EXPECT_EQ(SeekNode(&k, &list), N(2));
    EXPECT_EQ(SeekNode(&missing, &list), nullptr);
    EXPECT_EQ(SeekNode(nullptr, &list), nullptr);
    list.pfKeyCompare = nullptr;  // without a routine nothing is found or placed by key
    EXPECT_EQ(SeekNode(&k, &list), nullptr);
    EXPECT_EQ(InsertNodeOrderByKey(&k, N(0), &list), 1u);
}

TEST_F(ListTest, DamagedListsAreRefusedUnchanged)
{
    AddTail({0, 1});
    N(0)->pstPrev = nullptr;  // head lost its link to the last node
    EXPECT_EQ(InsertNodeTail(N(2), &list), 1u);
    EXPECT_EQ(InsertNodeHead(N(2), &list), 1u);
    EXPECT_EQ(list.uiNodeNum, 2u);
    N(0)->pstPrev = N(1);
    N(1)->pstNext = nullptr;
    EXPECT_EQ(RemoveNode(N(1), &list), 1u);
    EXPECT_EQ(GetListTranNodeNum(&list), 2u);  // stops at the null link
    EXPECT_EQ(InsertNodeTail(nullptr, &list), 1u);
    EXPECT_EQ(InsertNodeTail(N(2), nullptr), 1u);
    EXPECT_EQ(GetListTranNodeNum(nullptr), 0u);
}

TEST(ListWalk, CountIsBoundedForLongLists)
{
    std::vector<KeyNode> many(1500);
    STTranManage list;
    InitSTTranManage(nullptr, &list);
    for (KeyNode &n : many) {
        ASSERT_EQ(InsertNodeTail(&n.hdr, &list), 0u);
    }
    EXPECT_EQ(GetListTranNodeNum(&list), 1001u);
    EXPECT_EQ(GetTranNodeNum(&list), 1500u);
}

TEST_F(ListTest, CopyFromMovesNodesInOrder)
{
    STTranManage dst;
    InitSTTranManage(KeyCompare, &dst);
    ASSERT_EQ(InsertNodeTail(N(2), &dst), 0u);
    AddTail({0, 1});
    ASSERT_EQ(CopyFrom(&list, &dst), 0u);
    EXPECT_EQ(Walk(dst), "CAB");
    EXPECT_EQ(list.uiNodeNum, 0u);
    EXPECT_EQ(list.pstHead, nullptr);
    EXPECT_EQ(CopyFrom(nullptr, &dst), 1u);
}

}  // namespace
