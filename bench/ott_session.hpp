// An OTT pool with one flow and one session whose up list holds n disjoint
// intervals, shared by the OTT benchmarks and the event driver.
#ifndef ORVANE_BENCH_OTT_SESSION_HPP
#define ORVANE_BENCH_OTT_SESSION_HPP

#include <cstdint>
#include <cstdlib>

#include "orvane_ott.h"

namespace bench {

constexpr uint64_t kSlot = 100;  // node i of a session list covers [i*100, i*100+50]
constexpr uint64_t kBusy = 50;

inline uint32_t Record(CMemPool *pool, STOttFlow *flow, uint64_t begin, uint64_t end, uint32_t payload)
{
    STOttTransInput in{};
    in.astTrans[0].ullBeginTime = begin;
    in.astTrans[0].ullEndTime = end;
    in.astTrans[0].uiPayLoad = payload;
    in.astTrans[0].ucDirection = OTT_DIRECTION_UP;
    in.astTrans[0].ucState = OTT_STATE_OVER;
    in.ucTransNum = 1;
    return API_OTTTransProcess(&in, pool, flow);
}

// A pool, one flow and one session whose up list holds n disjoint intervals.
struct Session {
    CMemPool *pool = nullptr;
    STOttFlow flow{};
    STOttSession session{};

    Session(uint32_t n, uint32_t poolNodes)
    {
        uint32_t flowSize = 0, sessionSize = 0;
        pool = API_InitOTTTransSpeed(poolNodes, &flowSize, &sessionSize);
        API_InitOTTTransSpeedFlow(&flow);
        API_InitOTTTransSpeedSession(&session);
        for (uint32_t i = 0; i < n && pool != nullptr; ++i) {
            Record(pool, &flow, i * kSlot, i * kSlot + kBusy, 1000);
            API_OTTTransMerge(pool, &session, &flow);  // each lands after the tail: appended
        }
    }
    ~Session()
    {
        if (pool != nullptr) {
            API_OTTTransRlease(pool, &flow);
            API_OTTTransRlease(pool, &session);
            FreeCMemPoolList(pool);
            std::free(pool);
        }
    }
    bool Ready(uint32_t n) const { return pool != nullptr && GetTranNodeNum(&session.stUpTransList) == n; }
};

// One transaction that overlaps the tail [.., tailEnd] and stretches it by 10.
inline void MergeAtTail(Session *s, uint64_t *tailEnd)
{
    Record(s->pool, &s->flow, *tailEnd - 20, *tailEnd + 10, 1400);
    API_OTTTransMerge(s->pool, &s->session, &s->flow);
    *tailEnd += 10;
}

// One transaction inside the head: the anchor walk crosses the whole list.
inline void MergeInsideHead(Session *s)
{
    Record(s->pool, &s->flow, 10, 20, 1400);
    API_OTTTransMerge(s->pool, &s->session, &s->flow);
}

}  // namespace bench

#endif
