// OTT merge and speed: interval cases, what a merge keeps and drops, the
// speed sums, and a property test against an interval-union oracle.
#include <algorithm>
#include <random>

#include "ott_fixture.hpp"
#include "test_util.hpp"

namespace ott_test {
namespace {

using Ivs = std::vector<Interval>;

const Interval A{100, 200, 1}, B{300, 400, 2}, C{500, 600, 4};

TEST_F(OttTest, MergeIntervalCases)
{
    // The added payload is 8 unless stated, so sums show who absorbed whom.
    struct Row { const char *name; Ivs list; Interval add; Ivs want; } rows[] = {
        {"overlaps the only node", {A}, {150, 300, 8}, {{100, 300, 9}}},
        {"spans two nodes", {A, B}, {150, 500, 8}, {{100, 500, 11}}},
        {"spans three nodes", {A, B, C}, {150, 550, 8}, {{100, 600, 15}}},
        {"from before head past tail", {A, B}, {50, 500, 8}, {{50, 500, 11}}},
        {"from a gap past the tail", {A, B}, {250, 500, 8}, {A, {250, 500, 10}}},
        {"from a gap into a node", {A, B}, {250, 350, 8}, {A, {250, 400, 10}}},
        {"from a node into a gap", {A, B}, {150, 250, 8}, {{100, 250, 9}, B}},
        {"from before head into a gap", {A, B}, {50, 250, 8}, {{50, 250, 9}, B}},
        {"inside one node", {A, B}, {120, 180, 8}, {{100, 200, 9}, B}},
        {"begins at an interior end: own node", {A, B}, {200, 250, 8}, {A, {200, 250, 8}, B}},
        {"gap end to node begin joins the node", {A, B}, {200, 300, 8}, {A, {200, 400, 10}}},
        {"in a middle gap: own node", {A, B, C}, {420, 480, 8}, {A, B, {420, 480, 8}, C}},
        {"touches the tail's end", {A, B}, {400, 450, 8}, {A, {300, 450, 10}}},
        {"before the head", {A, B}, {50, 90, 8}, {{50, 90, 8}, A, B}},
        {"after the tail", {A, B}, {450, 500, 8}, {A, B, {450, 500, 8}}},
        {"touching neighbours stay apart", {{100, 200, 1}, {200, 300, 2}}, {220, 260, 8},
         {{100, 200, 1}, {200, 300, 10}}},
        {"overlapping both touching neighbours joins them", {{100, 200, 1}, {200, 300, 2}}, {150, 250, 8},
         {{100, 300, 11}}},
        {"ending where touching neighbours meet joins them", {{100, 200, 1}, {200, 300, 2}}, {150, 200, 8},
         {{100, 300, 11}}},
        {"ending at the head's begin joins the head", {A, B}, {50, 100, 8}, {{50, 200, 9}, B}},
        {"payload sums in 32 bits", {{100, 200, 0xFFFFFFFFu}}, {150, 160, 2}, {{100, 200, 1}}},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        Place(session_.stUpTransList, r.list);
        ASSERT_EQ(Record(flow_, Trans(r.add.begin, r.add.end, r.add.payload)), OTT_RET_OK);
        ASSERT_EQ(API_OTTTransMerge(pool_, &session_, &flow_), OTT_RET_OK);
        EXPECT_EQ(Intervals(session_.stUpTransList), r.want);
        EXPECT_EQ(flow_.stTransList.uiNodeNum, 0u);
        EXPECT_EQ(GetFreeNodeNum(pool_) + r.want.size(), kPoolNodes) << "absorbed nodes go back";
        ASSERT_EQ(API_OTTTransRlease(pool_, &session_), OTT_RET_OK);
    }
    EXPECT_EQ(GetListFreeNodeNum(pool_), kPoolNodes);
    EXPECT_FALSE(Logged("ERROR"));
}

TEST_F(OttTest, SpeedSumsEachDirectionAndEmptiesTheSession)
{
    struct Row { const char *name; Ivs up; uint64_t payload, duration; } rows[] = {
        {"all counted", {A, B}, 3, 200},
        // A node without a valid interval gives its payload, not its time, and ends the walk.
        {"begin zero", {{0, 50, 1}, A}, 1, 0},
        {"empty interval midway", {A, {300, 300, 2}, C}, 3, 100},
        {"empty", {}, 0, 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        Place(session_.stUpTransList, r.up);
        Place(session_.stDwTransList, {{10, 15, 7}});
        uint64_t upP = 9, upD = 9, dwP = 9, dwD = 9;
        ASSERT_EQ(API_OTTTransSpeed(pool_, &session_, &upP, &upD, &dwP, &dwD), OTT_RET_OK);
        EXPECT_EQ(Fields(upP, upD, dwP, dwD, session_.stUpTransList.uiNodeNum + session_.stDwTransList.uiNodeNum,
                         GetFreeNodeNum(pool_)),
                  Fields(r.payload, r.duration, 7, 5, 0, kPoolNodes));
    }
}

// Brute force: the busy time of a set of intervals.
uint64_t UnionLength(std::vector<std::pair<uint64_t, uint64_t>> ivs)
{
    std::sort(ivs.begin(), ivs.end());
    uint64_t total = 0, covered = 0;  // covered: the furthest end so far
    for (const auto &[begin, end] : ivs) {
        if (end > covered) {
            total += end - std::max(begin, covered);
            covered = end;
        }
    }
    return total;
}

struct Oracle {
    std::vector<std::pair<uint64_t, uint64_t>> valid[2];
    uint64_t payload[2] = {0, 0};

    // What a merge keeps of a flow's transactions, in arrival order.
    void Merge(const std::vector<STOttTrans> &flow)
    {
        for (const STOttTrans &t : flow) {
            if (t.ucState != OTT_STATE_OVER) {
                continue;
            }
            if (t.ucDirection != OTT_DIRECTION_UP && t.ucDirection != OTT_DIRECTION_DOWN) {
                break;
            }
            if (t.ullBeginTime < t.ullEndTime) {
                valid[t.ucDirection - 1].emplace_back(t.ullBeginTime, t.ullEndTime);
                payload[t.ucDirection - 1] += t.uiPayLoad;
            }
        }
    }
};

void ExpectMatches(const STTranManage &list, const Oracle &o, int dir)
{
    const Ivs got = Intervals(list);
    uint64_t duration = 0, payload = 0;
    for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_LT(got[i].begin, got[i].end) << "node " << i;
        if (i > 0) {
            ASSERT_GE(got[i].begin, got[i - 1].end) << "node " << i << " overlaps or is out of order";
        }
        duration += got[i].end - got[i].begin;
        payload += got[i].payload;
    }
    EXPECT_EQ(duration, UnionLength(o.valid[dir]));
    EXPECT_EQ(payload, o.payload[dir]);
}

TEST_F(OttTest, MergedSessionsMatchTheUnionOfTheirTransactions)
{
    constexpr uint32_t kNodes = 512;
    pool_ = MakePool(kNodes);
    std::mt19937 rng(20240611u);
    auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
    uint32_t span = 1000;  // per round: dense rounds collapse, sparse ones keep many nodes
    auto randomTrans = [&] {
        const uint64_t begin = 1 + pick(span);  // never 0: that would end the speed walk
        const uint64_t end = pick(10) == 0 ? begin - std::min<uint64_t>(begin - 1, pick(3)) : begin + 1 + pick(60);
        const uint8_t state = pick(8) == 0 ? static_cast<uint8_t>(pick(2)) : OTT_STATE_OVER;
        const uint8_t dir = pick(40) == 0 ? static_cast<uint8_t>(3 * pick(2)) : static_cast<uint8_t>(1 + pick(2));
        return Trans(begin, end, pick(1000), dir, state);
    };

    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        span = 100 + pick(4000);
        STOttSession session;
        API_InitOTTTransSpeedSession(&session);
        STOttFlow flows[3];
        std::vector<STOttTrans> pending[3];
        Oracle oracle;
        auto merge = [&](int f) {
            const uint32_t want = pending[f].empty() ? OTT_RET_NOTHING : OTT_RET_OK;
            ASSERT_EQ(API_OTTTransMerge(pool_, &session, &flows[f]), want);
            ASSERT_EQ(flows[f].stTransList.uiNodeNum, 0u);
            oracle.Merge(pending[f]);
            pending[f].clear();
            ExpectMatches(session.stUpTransList, oracle, 0);
            ExpectMatches(session.stDwTransList, oracle, 1);
        };
        for (STOttFlow &f : flows) {
            API_InitOTTTransSpeedFlow(&f);
        }
        for (uint32_t step = 0, steps = 1 + pick(60); step < steps; ++step) {
            const int f = static_cast<int>(pick(3));
            if (pick(4) == 0) {
                merge(f);
                continue;
            }
            STOttTransInput in{};
            in.ucTransNum = static_cast<uint8_t>(1 + pick(2));
            for (uint8_t i = 0; i < in.ucTransNum; ++i) {
                in.astTrans[i] = randomTrans();
                pending[f].push_back(in.astTrans[i]);
            }
            ASSERT_EQ(API_OTTTransProcess(&in, pool_, &flows[f]), OTT_RET_OK);
        }
        for (int f = 0; f < 3; ++f) {
            merge(f);
        }
        uint64_t upP, upD, dwP, dwD;
        ASSERT_EQ(API_OTTTransSpeed(pool_, &session, &upP, &upD, &dwP, &dwD), OTT_RET_OK);
        EXPECT_EQ(Fields(upD, upP, dwD, dwP), Fields(UnionLength(oracle.valid[0]), oracle.payload[0],
                                                     UnionLength(oracle.valid[1]), oracle.payload[1]));
        ASSERT_EQ(GetFreeNodeNum(pool_), kNodes);
    }
    EXPECT_EQ(GetListFreeNodeNum(pool_), kNodes);
    EXPECT_FALSE(Logged("ERROR"));
}

}  // namespace
}  // namespace ott_test
