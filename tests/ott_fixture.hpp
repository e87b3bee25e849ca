// Plays the daemon for the OTT tests: one pool, a flow and a session record,
// transaction builders and a log collector.
#ifndef ORVANE_TESTS_OTT_FIXTURE_HPP
#define ORVANE_TESTS_OTT_FIXTURE_HPP

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "list_walk.hpp"
#include "orvane_log.h"
#include "orvane_ott.h"

namespace ott_test {

struct Interval {
    uint64_t begin, end;
    uint32_t payload;
    bool operator==(const Interval &o) const { return begin == o.begin && end == o.end && payload == o.payload; }
};
inline std::ostream &operator<<(std::ostream &os, const Interval &iv)
{
    return os << "[" << iv.begin << "," << iv.end << "]:" << iv.payload;
}

inline STOttTrans Trans(uint64_t begin, uint64_t end, uint32_t payload, uint8_t dir = OTT_DIRECTION_UP,
                        uint8_t state = OTT_STATE_OVER)
{
    STOttTrans t{};
    t.ullBeginTime = begin;
    t.ullEndTime = end;
    t.uiPayLoad = payload;
    t.ucDirection = dir;
    t.ucState = state;
    return t;
}

inline std::vector<Interval> Intervals(const STTranManage &list)
{
    std::vector<Interval> out;
    orvane::WalkList(&list, [&](STTranNode *n) {
        const STOttTransNode *t = reinterpret_cast<const STOttTransNode *>(n);
        out.push_back({t->ullBeginTime, t->ullEndTime, t->uiPayLoad});
        return false;
    });
    return out;
}

inline std::vector<std::string> &Lines()
{
    static std::vector<std::string> lines;
    return lines;
}

class OttTest : public ::testing::Test {
protected:
    static constexpr uint32_t kPoolNodes = 16;

    void SetUp() override
    {
        Lines().clear();
        g_funcDaemonSDKLog = [](uint32_t, const char *line) -> uint32_t {
            Lines().emplace_back(line);
            return 0;
        };
        g_enSDKLogLevel = LOG_LEVEL_TRACE;
        pool_ = MakePool(kPoolNodes);
        API_InitOTTTransSpeedFlow(&flow_);
        API_InitOTTTransSpeedSession(&session_);
    }
    void TearDown() override
    {
        for (CMemPool *p : pools_) {
            FreeCMemPoolList(p);
            std::free(p);
        }
        g_funcDaemonSDKLog = nullptr;
        g_enSDKLogLevel = LOG_LEVEL_TRACE;
    }

    CMemPool *MakePool(uint32_t nodes)
    {
        uint32_t flowSize = 0, sessionSize = 0;
        pools_.push_back(API_InitOTTTransSpeed(nodes, &flowSize, &sessionSize));
        EXPECT_NE(pools_.back(), nullptr);
        return pools_.back();
    }

    // Records one or two transactions on a flow in one call.
    uint32_t Record(STOttFlow &flow, const STOttTrans &a, const STOttTrans *b = nullptr)
    {
        STOttTransInput in{};
        in.astTrans[0] = a;
        in.astTrans[1] = b != nullptr ? *b : STOttTrans{};
        in.ucTransNum = b != nullptr ? 2 : 1;
        return API_OTTTransProcess(&in, pool_, &flow);
    }

    // Straight onto a session list, for lists (touching neighbours) that a
    // merge would not build from scratch.
    void Place(STTranManage &list, const std::vector<Interval> &ivs)
    {
        for (const Interval &iv : ivs) {
            STOttTransNode *n = CreateOTTTransListNode(pool_);
            ASSERT_NE(n, nullptr);
            n->ullBeginTime = iv.begin;
            n->ullEndTime = iv.end;
            n->uiPayLoad = iv.payload;
            ASSERT_EQ(InsertNodeTail(&n->stNode, &list), 0u);
        }
    }

    bool Logged(const std::string &text) const
    {
        return std::any_of(Lines().begin(), Lines().end(),
                           [&](const std::string &l) { return l.find(text) != std::string::npos; });
    }

    CMemPool *pool_ = nullptr;
    STOttFlow flow_{};
    STOttSession session_{};

private:
    std::vector<CMemPool *> pools_;
};

}  // namespace ott_test

#endif
