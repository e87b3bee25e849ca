// OTT capture: pool creation, recording on a flow, exhaustion, release.
#include "ott_fixture.hpp"

namespace ott_test {
namespace {

TEST_F(OttTest, PoolOfZeroNodesIsRefusedAndSizesStayUntouched)
{
    uint32_t flowSize = 7, sessionSize = 7;
    EXPECT_EQ(API_InitOTTTransSpeed(0, &flowSize, &sessionSize), nullptr);
    EXPECT_EQ(flowSize + sessionSize, 14u);
    EXPECT_TRUE(Logged("[TID=16][ERROR][API_InitOTTTransSpeed]OTT Transaction Mempool Init input param error.;"));
    EXPECT_EQ(GetFreeNodeNum(pool_), kPoolNodes);
    EXPECT_EQ(pool_->m_ucGrowMode, 0u);  // shared by every flow: it must never grow
}

TEST_F(OttTest, ProcessRejectsAbsentOrMiscountedInput)
{
    STOttTransInput in{};
    in.astTrans[0] = Trans(1, 2, 3);
    struct Row {
        bool input, pool, flow;
        uint8_t num;
    } rows[] = {{false, true, true, 1}, {true, false, true, 1}, {true, true, false, 1},
                {true, true, true, 0},  {true, true, true, 3}};
    for (const Row &r : rows) {
        in.ucTransNum = r.num;
        EXPECT_EQ(API_OTTTransProcess(r.input ? &in : nullptr, r.pool ? pool_ : nullptr, r.flow ? &flow_ : nullptr),
                  OTT_RET_PARAM);
    }
    EXPECT_EQ(flow_.stTransList.uiNodeNum, 0u);
    EXPECT_EQ(GetFreeNodeNum(pool_), kPoolNodes);
}

TEST_F(OttTest, ProcessAppendsInSlotOrderWithoutJudgingFields)
{
    ASSERT_EQ(Record(flow_, Trans(10, 20, 1)), OTT_RET_OK);
    STOttTransInput in{};
    in.astTrans[0] = Trans(50, 40, 2, 0, 1);  // backwards, no direction, unfinished
    in.astTrans[1] = Trans(0, 0, 3, 9);
    in.ucTransNum = 2;
    ASSERT_EQ(API_OTTTransProcess(&in, pool_, &flow_), OTT_RET_OK);
    EXPECT_EQ(Intervals(flow_.stTransList), (std::vector<Interval>{{10, 20, 1}, {50, 40, 2}, {0, 0, 3}}));
    const STOttTransNode *second = reinterpret_cast<STOttTransNode *>(flow_.stTransList.pstHead->pstNext);
    EXPECT_EQ(second->ucDirection, 0u);
    EXPECT_EQ(second->ucState, 1u);
}

TEST_F(OttTest, ExhaustedPoolAnswersOneAndKeepsWhatWasRecorded)
{
    pool_ = MakePool(3);
    STOttTransInput two{};
    two.astTrans[0] = Trans(1, 2, 10);
    two.astTrans[1] = Trans(3, 4, 20);
    two.ucTransNum = 2;
    ASSERT_EQ(Record(flow_, Trans(0, 1, 5)), OTT_RET_OK);
    ASSERT_EQ(Record(flow_, Trans(0, 1, 5)), OTT_RET_OK);
    Lines().clear();

    // One node left: the first of two is kept, the second is refused.
    EXPECT_EQ(API_OTTTransProcess(&two, pool_, &flow_), OTT_RET_NOTHING);
    EXPECT_EQ(Record(flow_, Trans(5, 6, 30)), OTT_RET_NOTHING);
    EXPECT_EQ(Intervals(flow_.stTransList), (std::vector<Interval>{{0, 1, 5}, {0, 1, 5}, {1, 2, 10}}));
    ASSERT_EQ(Lines().size(), 2u);
    EXPECT_NE(Lines()[0].find("[TID=16][ERROR][AllocateOttTransNodeMem]allocate List Node error.\n;"),
              std::string::npos);
    ASSERT_EQ(API_OTTTransRlease(pool_, &flow_), OTT_RET_OK);
    EXPECT_EQ(GetListFreeNodeNum(pool_), 3u);
}

TEST_F(OttTest, ReleaseReturnsEveryNodeOfTheRecordKind)
{
    ASSERT_EQ(Record(flow_, Trans(1, 2, 1)), OTT_RET_OK);
    Place(session_.stUpTransList, {{1, 2, 1}, {3, 4, 1}});
    Place(session_.stDwTransList, {{5, 6, 1}});

    STOttSession bad = session_;
    bad.ucType = 7;
    EXPECT_EQ(API_OTTTransRlease(pool_, &bad), OTT_RET_PARAM);
    EXPECT_EQ(API_OTTTransRlease(nullptr, &session_), OTT_RET_PARAM);
    EXPECT_EQ(API_OTTTransRlease(pool_, nullptr), OTT_RET_PARAM);
    EXPECT_EQ(GetFreeNodeNum(pool_), kPoolNodes - 4);

    EXPECT_EQ(API_OTTTransRlease(pool_, &session_), OTT_RET_OK);
    EXPECT_EQ(API_OTTTransRlease(pool_, &flow_), OTT_RET_OK);
    EXPECT_EQ(API_OTTTransRlease(pool_, &flow_), OTT_RET_OK);  // already empty
    EXPECT_EQ(session_.stUpTransList.uiNodeNum + session_.stDwTransList.uiNodeNum, 0u);
    EXPECT_EQ(GetListFreeNodeNum(pool_), kPoolNodes);
    EXPECT_FALSE(Logged("ERROR"));
}

TEST_F(OttTest, NodeHelpersRefuseAbsentArgumentsAndHandOutClearedNodes)
{
    EXPECT_EQ(CreateOTTTransListNode(nullptr), nullptr);
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ(AllocateOttTransNodeMem(nullptr), nullptr);
    EXPECT_TRUE(Logged("[AllocateOttTransNodeMem]AllocateOttTransNodeMem input param error.;"));

    ASSERT_EQ(Record(flow_, Trans(1, 2, 1)), OTT_RET_OK);
    STOttTransNode *n = reinterpret_cast<STOttTransNode *>(flow_.stTransList.pstHead);
    FreeOttTransNode(nullptr, n, &flow_.stTransList);
    FreeOttTransNode(pool_, n, nullptr);
    EXPECT_TRUE(Logged("[TID=16][ERROR][FreeOttTransNode]FreeOttTransNode input param error.;"));
    EXPECT_EQ(flow_.stTransList.uiNodeNum, 1u);
    FreeOttTransNode(pool_, n, &flow_.stTransList);
    EXPECT_EQ(GetFreeNodeNum(pool_), kPoolNodes);

    STOttTransNode *again = nullptr;
    for (uint32_t i = 0; i < kPoolNodes; ++i) {
        again = CreateOTTTransListNode(pool_);  // the returned node comes out last
    }
    ASSERT_EQ(again, n);
    EXPECT_EQ(again->ullBeginTime + again->ullEndTime + again->uiPayLoad, 0u);
}

}  // namespace
}  // namespace ott_test
