// Node pool: growth arithmetic, FIFO reuse, counts, release.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "test_util.hpp"
#include "tran_list.h"

namespace {

struct PoolGuard {
    CMemPool pool;
    PoolGuard() { InitMemPool(&pool); }
    ~PoolGuard() { FreeCMemPoolList(&pool); }
};

// Takes nodes until the pool refuses; returns how many it handed out.
uint32_t Exhaust(CMemPool &pool, std::vector<STTranNode *> &taken)
{
    for (STTranNode *n; (n = ApplyNodeMem(&pool)) != nullptr;) {
        taken.push_back(n);
        EXPECT_EQ(GetFreeNodeNum(&pool), GetListFreeNodeNum(&pool));
    }
    return static_cast<uint32_t>(taken.size());
}

TEST(MemPool, RefusesEmptyRequests)
{
    PoolGuard g;
    // Half of one node is no block.
    EXPECT_EQ(Fields(setInitMemPool(0, 16, 0, &g.pool), setInitMemPool(4, 0, 0, &g.pool),
                     setInitMemPool(1, 16, 1, &g.pool), FreeNodeMem(nullptr, &g.pool)),
              Fields(1, 1, 1, 1));
    EXPECT_TRUE(ApplyNodeMem(&g.pool) == nullptr && ApplyNodeMem(nullptr) == nullptr);
    ASSERT_EQ(setInitMemPool(1, 16, 0, &g.pool), 0u);  // without growth one node makes a pool
    EXPECT_NE(ApplyNodeMem(&g.pool), nullptr);
}

TEST(MemPool, GrowthArithmetic)
{
    // Nodes the pool ends up holding, and the 1-based take that triggers the first
    // growth (0: never; with 8 nodes it comes with the free list empty and is wasted).
    const struct { uint32_t num, total, firstGrowthAtTake; } rows[] = {
        {30, 29, 13}, {32, 32, 14}, {10, 9, 5}, {8, 4, 0}};
    for (const auto &r : rows) {
        PoolGuard g;
        ASSERT_EQ(setInitMemPool(r.num, 24, 1, &g.pool), 0u);
        uint32_t grewAt = 0;
        std::vector<STTranNode *> taken;
        for (uint32_t i = 1; i <= r.num + 2; ++i) {
            const uint32_t before = g.pool.m_uiFreeNodeNum + g.pool.m_uiUsedNodeNum;
            STTranNode *n = ApplyNodeMem(&g.pool);
            if (grewAt == 0 && g.pool.m_uiFreeNodeNum + g.pool.m_uiUsedNodeNum > before) {
                grewAt = i;
            }
            if (n == nullptr) {
                break;
            }
            taken.push_back(n);
        }
        EXPECT_EQ(taken.size(), r.total) << r.num;
        EXPECT_EQ(grewAt, r.firstGrowthAtTake) << r.num;
        EXPECT_LE(g.pool.m_uiFreeNodeNum + g.pool.m_uiUsedNodeNum, r.num);
        EXPECT_EQ(g.pool.m_uiInitNodeNum, r.num / 2);
    }
}

TEST(MemPool, ReturnedNodesComeBackInReturnOrder)
{
    PoolGuard g;
    ASSERT_EQ(setInitMemPool(5, 8, 0, &g.pool), 0u);
    std::vector<STTranNode *> all;
    ASSERT_EQ(Exhaust(g.pool, all), 5u);
    for (int i : {3, 0, 4}) {
        EXPECT_EQ(FreeNodeMem(all[i], &g.pool), 0u);
    }
    EXPECT_EQ(ApplyNodeMem(&g.pool), all[3]);
    FreeNodeMem(all[1], &g.pool);  // goes behind the ones already free
    EXPECT_EQ(ApplyNodeMem(&g.pool), all[0]);
    EXPECT_EQ(ApplyNodeMem(&g.pool), all[4]);
    EXPECT_EQ(ApplyNodeMem(&g.pool), all[1]);
    EXPECT_EQ(GetFreeNodeNum(&g.pool), 0u);
    EXPECT_EQ(GetListFreeNodeNum(&g.pool), 0u);
}

TEST(MemPool, NodesAreDistinctAndReleaseFreesEveryBlock)
{
    PoolGuard g;
    ASSERT_EQ(setInitMemPool(32, 100, 1, &g.pool), 0u);
    std::vector<STTranNode *> all;
    Exhaust(g.pool, all);
    for (size_t i = 0; i < all.size(); ++i) {
        std::memset(TRAN_NODE_DATA(all[i]), static_cast<int>(i), 100);  // ASan flags any overlap or overrun
        EXPECT_EQ(all[i]->pstNext, nullptr);
    }
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(static_cast<unsigned char *>(TRAN_NODE_DATA(all[i]))[99], static_cast<unsigned char>(i));
    }
    EXPECT_NE(g.pool.m_apstBlock[2], nullptr);
    FreeCMemPoolList(&g.pool);
    EXPECT_EQ(Fields(GetFreeNodeNum(&g.pool), g.pool.m_apstBlock[0] == nullptr, ApplyNodeMem(&g.pool) == nullptr),
              Fields(0, 1, 1));
    EXPECT_EQ(setInitMemPool(4, 16, 0, &g.pool), 0u);  // may be made again
}

}  // namespace
