// OTT merge cost per transaction against the length of the session list, for
// transactions that overlap the tail (the common case: time moves forward)
// and for ones that land at the far end, and the speed sums over long lists.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "floor_reporter.hpp"
#include "ott_session.hpp"

namespace {

using namespace bench;

constexpr uint32_t kSpeedBatchNodes = 10000;

// Each transaction overlaps the tail and stretches it: the list keeps its length.
void MergeTail(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    Session s(n, n + 16);
    if (!s.Ready(n)) {
        state.SkipWithError("session list not built");
        return;
    }
    uint64_t tailEnd = (n - 1) * kSlot + kBusy;
    for (auto _ : state) {
        MergeAtTail(&s, &tailEnd);
    }
    if (GetTranNodeNum(&s.session.stUpTransList) != n) {
        state.SkipWithError("the list changed length");
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["list_nodes"] = n;
}

// Each transaction falls inside the head: the anchor walk from the tail
// crosses the whole list, and the head absorbs it.
void MergeHead(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    Session s(n, n + 16);
    if (!s.Ready(n)) {
        state.SkipWithError("session list not built");
        return;
    }
    for (auto _ : state) {
        MergeInsideHead(&s);
    }
    if (GetTranNodeNum(&s.session.stUpTransList) != n) {
        state.SkipWithError("the list changed length");
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["list_nodes"] = n;
}

// API_OTTTransSpeed reads and empties a session; the lists are rebuilt with
// the timer paused, several sessions at a time for short lists.
void Speed(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    const uint32_t batch = std::max<uint32_t>(1, kSpeedBatchNodes / n);
    Session s(0, batch * n + 16);
    if (s.pool == nullptr) {
        state.SkipWithError("pool not created");
        return;
    }
    std::vector<STOttSession> sessions(batch);
    uint64_t sink = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (STOttSession &session : sessions) {
            API_InitOTTTransSpeedSession(&session);
            for (uint32_t i = 0; i < n; ++i) {
                STOttTransNode *node = AllocateOttTransNodeMem(s.pool);
                node->ullBeginTime = i * kSlot + 1;
                node->ullEndTime = i * kSlot + kBusy;
                node->uiPayLoad = 1000;
                node->ucDirection = OTT_DIRECTION_UP;
                node->ucState = OTT_STATE_OVER;
                InsertNodeTail(&node->stNode, &session.stUpTransList);
            }
        }
        state.ResumeTiming();
        for (STOttSession &session : sessions) {
            uint64_t upPayload = 0, upTime = 0, dwPayload = 0, dwTime = 0;
            API_OTTTransSpeed(s.pool, &session, &upPayload, &upTime, &dwPayload, &dwTime);
            sink += upPayload + upTime;
        }
    }
    benchmark::DoNotOptimize(sink);
    if (GetFreeNodeNum(s.pool) != batch * n + 16) {
        state.SkipWithError("nodes were not returned to the pool");
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * batch * n);
    state.counters["list_nodes"] = n;
}

}  // namespace

int main(int argc, char **argv)
{
    for (auto *b : {benchmark::RegisterBenchmark("ott_merge/tail_overlap", MergeTail),
                    benchmark::RegisterBenchmark("ott_merge/inside_head", MergeHead),
                    benchmark::RegisterBenchmark("ott_speed/per_node", Speed)}) {
        b->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    bench::FloorReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
