// Page association per event: the floor, a typical browsing stream, the
// worst case, the price of logging, and the memory of one thread context.
// Built twice: against the library as shipped, and (with
// ORVANE_BENCH_LOG_COMPILED_OUT) against a copy whose log call sites are
// compiled out, the reference for what an off log level costs.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <string>

#include "bench_daemon.hpp"
#include "floor_reporter.hpp"

namespace bench {
namespace {

// The replay tool's bundled sample session, repeated; and a longer generated
// browsing session with more pages, hosts and flows.
enum class Source { kSample, kBrowsing };

const Stream *StreamOf(Source source, std::string *error)
{
    static std::string sampleError;
    static const Stream sample = LoadJsonlStream(ORVANE_SAMPLE_SESSION, &sampleError);
    static const Stream browsing = MakeBrowsingStream(kBrowsingPages, kBrowsingSeed);
    if (source == Source::kBrowsing) {
        return &browsing;
    }
    *error = sampleError;
    return sampleError.empty() ? &sample : nullptr;
}

void Floor(benchmark::State &state, Source source)
{
    std::string error;
    const Stream *stream = StreamOf(source, &error);
    if (stream == nullptr) {
        state.SkipWithError(error.c_str());
        return;
    }
    const std::vector<StreamEvent> &events = stream->events;
    FloorScratch scratch;
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(FloorEvent(events[i].ev, &scratch));
        if (++i == events.size()) {
            i = 0;
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void Typical(benchmark::State &state, Source source, uint32_t logLevel)
{
    std::string error;
    const Stream *stream = StreamOf(source, &error);
    if (stream == nullptr) {
        state.SkipWithError(error.c_str());
        return;
    }
    if (!StartDaemon(logLevel)) {
        state.SkipWithError("thread 0 could not be set up");
        return;
    }
    Replayer replay(*stream);
    // One pass first, so that measuring starts with the pages and strings a
    // thread holds in its steady state rather than with an empty context.
    while (!replay.AtEnd()) {
        replay.Step();
    }
    replay.Repeat();
    const DaemonStats before = Stats();
    for (auto _ : state) {
        if (replay.AtEnd()) {
            state.PauseTiming();
            replay.Repeat();
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(replay.Step());
    }
    const double n = static_cast<double>(state.iterations());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["log_lines/event"] = static_cast<double>(Stats().logLines - before.logLines) / n;
    state.counters["pages/kevent"] = 1000.0 * static_cast<double>(Stats().pagesReported - before.pagesReported) / n;
    StopDaemon();
}

#ifndef ORVANE_BENCH_LOG_COMPILED_OUT
void Worst(benchmark::State &state)
{
    if (!StartDaemon(kLogAllOff)) {
        state.SkipWithError("thread 0 could not be set up");
        return;
    }
    WorstCase worst;
    const std::string problem = worst.Build();
    if (!problem.empty()) {
        state.SkipWithError(problem.c_str());
        StopDaemon();
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(worst.Send());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    StopDaemon();
}

uint32_t IgnorePage(STPageKQI *) { return 0; }
uint32_t IgnoreDns(STDNSQueryInfo *, STDNSQueryResult *) { return 0; }

// Creating and destroying a context is set-up work, timed only for the
// record; what matters here are the bytes a context holds.
void Context(benchmark::State &state)
{
    if (!StartDaemon(kLogAllOff)) {  // thread 0 holds the shared configuration
        state.SkipWithError("thread 0 could not be set up");
        return;
    }
    STWebPageConfig config{kLogAllOff, 0, 0};
    uint32_t flowSize = 0;
    const size_t heapBefore = mallinfo2().uordblks;
    API_InitWebPage(1, &config, &flowSize, IgnorePage, IgnoreDns);
    const size_t heap = mallinfo2().uordblks - heapBefore;
    const size_t bytes = ContextBytes(g_pstWebPage[1]);
    API_ReleaseWebPage(1);
    for (auto _ : state) {
        API_InitWebPage(1, &config, &flowSize, IgnorePage, IgnoreDns);
        API_ReleaseWebPage(1);
    }
    state.counters["context_bytes"] = static_cast<double>(bytes);
    state.counters["heap_bytes"] = static_cast<double>(heap);
    state.counters["flow_bytes"] = static_cast<double>(flowSize);
    StopDaemon();
}
#endif

void Describe()
{
    std::string error;
    for (Source source : {Source::kSample, Source::kBrowsing}) {
        const Stream *s = StreamOf(source, &error);
        const char *name = source == Source::kSample ? "sample" : "browsing";
        if (s == nullptr) {
            benchmark::AddCustomContext(name, error);
            continue;
        }
        benchmark::AddCustomContext(name, std::to_string(s->pages) + " pages, " + std::to_string(s->events.size()) +
                                              " events (" + std::to_string(s->Requests()) + " requests), " +
                                              std::to_string(s->flows) + " flows, " +
                                              std::to_string(s->span / kSec) + " s of trace time per pass");
    }
}

}  // namespace
}  // namespace bench

int main(int argc, char **argv)
{
    using namespace bench;
    benchmark::RegisterBenchmark("floor/sample", Floor, Source::kSample);
    benchmark::RegisterBenchmark("floor/browsing", Floor, Source::kBrowsing);
#ifdef ORVANE_BENCH_LOG_COMPILED_OUT
    benchmark::RegisterBenchmark("typical/sample/log_compiled_out", Typical, Source::kSample, kLogAllOff);
    benchmark::RegisterBenchmark("typical/browsing/log_compiled_out", Typical, Source::kBrowsing, kLogAllOff);
#else
    const uint32_t kLogErrors = LOG_LEVEL_ERROR;
    benchmark::RegisterBenchmark("typical/sample/log_level_3_off", Typical, Source::kSample, kLogAllOff);
    benchmark::RegisterBenchmark("typical/sample/log_level_2_errors", Typical, Source::kSample, kLogErrors);
    benchmark::RegisterBenchmark("typical/sample/log_level_0_noop_callback", Typical, Source::kSample,
                                 kLogEverything);
    benchmark::RegisterBenchmark("typical/browsing/log_level_3_off", Typical, Source::kBrowsing, kLogAllOff);
    benchmark::RegisterBenchmark("typical/browsing/log_level_0_noop_callback", Typical, Source::kBrowsing,
                                 kLogEverything);
    benchmark::RegisterBenchmark("worst/30_pages_300_strings", Worst);
    benchmark::RegisterBenchmark("context/create_release", Context);
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    Describe();
    FloorReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
