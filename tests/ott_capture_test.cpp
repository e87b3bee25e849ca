// OTT capture: pool creation, recording on a flow, exhaustion, release, and
// the argument checks of every OTT entry point.
#include <regex>

#include "ott_fixture.hpp"
#include "test_util.hpp"

namespace ott_test {
namespace {

TEST_F(OttTest, PoolOfZeroNodesIsRefusedAndSizesStayUntouched)
{
    uint32_t flowSize = 7, sessionSize = 7;
    EXPECT_EQ(API_InitOTTTransSpeed(0, &flowSize, &sessionSize), nullptr);
    EXPECT_EQ(flowSize + sessionSize, 14u);
    ASSERT_FALSE(Lines().empty());
    // Operators grep for the source file by name: no build directory before it.
    EXPECT_TRUE(std::regex_match(Lines().back(), std::regex(R"(\[TID=16\]\[ERROR\]\[API_InitOTTTransSpeed\])"
                                                            R"(OTT Transaction Mempool Init input param error\.)"
                                                            R"(;ott_capture\.cpp:[0-9]+)")))
        << Lines().back();
    EXPECT_EQ(GetFreeNodeNum(pool_), kPoolNodes);
    EXPECT_EQ(pool_->m_ucGrowMode, 0u);  // shared by every flow: it must never grow
}

TEST_F(OttTest, BadArgumentsAreRefusedAndChangeNothing)
{
    Place(session_.stUpTransList, {{1, 2, 1}});
    STOttTransInput in{};
    in.astTrans[0] = Trans(1, 2, 3);
    for (uint8_t num : {0, 3}) {  // a count outside 1..2
        in.ucTransNum = num;
        EXPECT_EQ(API_OTTTransProcess(&in, pool_, &flow_), OTT_RET_PARAM) << +num;
    }
    in.ucTransNum = 1;
    uint64_t v[4] = {9, 9, 9, 9};
    STOttSession other = session_;
    other.ucType = 7;  // neither a flow nor a session
    const uint32_t results[] = {
        API_OTTTransProcess(nullptr, pool_, &flow_),
        API_OTTTransProcess(&in, nullptr, &flow_),
        API_OTTTransProcess(&in, pool_, nullptr),
        API_OTTTransMerge(nullptr, &session_, &flow_),
        API_OTTTransMerge(pool_, &session_, nullptr),
        API_OTTTransSpeed(nullptr, &session_, &v[0], &v[1], &v[2], &v[3]),
        API_OTTTransSpeed(pool_, nullptr, &v[0], &v[1], &v[2], &v[3]),
        API_OTTTransSpeed(pool_, &session_, &v[0], &v[1], &v[2], nullptr),
        API_OTTTransRlease(pool_, &other),
        API_OTTTransRlease(nullptr, &session_),
        API_OTTTransRlease(pool_, nullptr),
    };
    EXPECT_EQ(std::vector<uint32_t>(std::begin(results), std::end(results)),
              std::vector<uint32_t>(std::size(results), OTT_RET_PARAM));
    EXPECT_EQ(API_OTTTransMerge(pool_, &session_, &flow_), OTT_RET_NOTHING);  // an empty flow
    EXPECT_EQ(Fields(v[0] + v[1] + v[2] + v[3], flow_.stTransList.uiNodeNum, session_.stUpTransList.uiNodeNum,
                     GetFreeNodeNum(pool_)),
              Fields(36, 0, 1, kPoolNodes - 1));
}

TEST_F(OttTest, ExhaustedPoolAnswersOneAndKeepsWhatWasRecorded)
{
    pool_ = MakePool(3);
    ASSERT_EQ(Record(flow_, Trans(0, 1, 5)), OTT_RET_OK);
    ASSERT_EQ(Record(flow_, Trans(0, 1, 5)), OTT_RET_OK);
    Lines().clear();
    // One node left: the first of two is kept, the second is refused.
    const STOttTrans refused = Trans(3, 4, 20);
    EXPECT_EQ(Record(flow_, Trans(1, 2, 10), &refused), OTT_RET_NOTHING);
    EXPECT_EQ(Record(flow_, Trans(5, 6, 30)), OTT_RET_NOTHING);
    EXPECT_EQ(Intervals(flow_.stTransList), (std::vector<Interval>{{0, 1, 5}, {0, 1, 5}, {1, 2, 10}}));
    ASSERT_EQ(Lines().size(), 2u);
    EXPECT_NE(Lines()[0].find("[TID=16][ERROR][AllocateOttTransNodeMem]allocate List Node error.\n;"),
              std::string::npos);
    ASSERT_EQ(API_OTTTransRlease(pool_, &flow_), OTT_RET_OK);
    EXPECT_EQ(GetListFreeNodeNum(pool_), 3u);
}

TEST_F(OttTest, ReleaseReturnsEveryNodeOfTheRecordKindAndLooseNodes)
{
    ASSERT_EQ(Record(flow_, Trans(1, 2, 1)), OTT_RET_OK);
    Place(session_.stUpTransList, {{1, 2, 1}, {3, 4, 1}});
    Place(session_.stDwTransList, {{5, 6, 1}});
    EXPECT_EQ(API_OTTTransRlease(pool_, &session_), OTT_RET_OK);
    EXPECT_EQ(Fields(session_.stUpTransList.uiNodeNum + session_.stDwTransList.uiNodeNum, flow_.stTransList.uiNodeNum),
              Fields(0, 1));
    EXPECT_EQ(API_OTTTransRlease(pool_, &flow_), OTT_RET_OK);
    EXPECT_EQ(API_OTTTransRlease(pool_, &flow_), OTT_RET_OK);  // already empty
    // A node the list cannot unlink (it is on no list) must not be lost to the fixed pool.
    FreeOttTransNode(pool_, CreateOTTTransListNode(pool_), &flow_.stTransList);
    EXPECT_EQ(Fields(GetFreeNodeNum(pool_), GetListFreeNodeNum(pool_)), Fields(kPoolNodes, kPoolNodes));
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
    STOttTransNode *again = nullptr;
    for (uint32_t i = 0; i < kPoolNodes; ++i) {
        again = CreateOTTTransListNode(pool_);  // the returned node comes out last
    }
    ASSERT_EQ(again, n);
    EXPECT_EQ(again->ullBeginTime + again->ullEndTime + again->uiPayLoad, 0u);
}

}  // namespace
}  // namespace ott_test
