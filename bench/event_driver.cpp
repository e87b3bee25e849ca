// Runs a fixed number of events outside Google Benchmark, for the tools that
// need a plain process: instruction counts under callgrind, the resident size
// of a long run, and the JSON Lines trace for the replay tool.
//
//   orvane_bench_events floor|typical|typical_log0|worst N [STREAM]
//       N events after a warm-up; only measure_events() does the counted work
//       (callgrind --toggle-collect=measure_events).
//   orvane_bench_events rss N [STREAM]
//       N typical events from an empty context; prints the peak resident size
//       and the pool nodes not returned once every page is closed.
//   orvane_bench_events jsonl N [STREAM]
//       writes N events of the stream, repeated with shifted times and fresh
//       flows, to standard output in the replay tool's format.
//   orvane_bench_events ott_tail|ott_head N LENGTH
//       N OTT merges into a session list of LENGTH nodes, overlapping its
//       tail or landing inside its head (measure_merges() is counted).
//   orvane_bench_events ott_speed N LENGTH
//       N reads of a session list of LENGTH nodes by API_OTTTransSpeed, the
//       list rebuilt between reads (measure_speed() is counted).
// STREAM is "sample" (the replay tool's bundled session, the default),
// "browsing" (the generated session) or the path of a JSON Lines trace.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench_daemon.hpp"
#include "ott_session.hpp"

namespace driver {

using namespace bench;

enum class Mode { kFloor, kTypical, kWorst };

struct Work {
    Mode mode;
    Replayer *replay;
    WorstCase *worst;
    const std::vector<StreamEvent> *events;
    size_t next;
    FloorScratch scratch;
};

}  // namespace driver

using driver::Mode;
using driver::Work;

// The counted part: n events, no harness work (the stream's repetition
// happens between calls). Kept out of line so callgrind can select it.
extern "C" __attribute__((noinline)) uint64_t measure_events(Work *w, size_t n)
{
    uint64_t acc = 0;
    switch (w->mode) {
    case Mode::kFloor:
        for (size_t i = 0; i < n; ++i) {
            acc += FloorEvent((*w->events)[w->next++].ev, &w->scratch);
        }
        break;
    case Mode::kTypical:
        for (size_t i = 0; i < n; ++i) {
            acc += w->replay->Step();
        }
        break;
    case Mode::kWorst:
        for (size_t i = 0; i < n; ++i) {
            acc += w->worst->Send();
        }
        break;
    }
    return acc;
}

// The counted part of the OTT modes: n merges, each recording one
// transaction on the flow and merging the flow into the session.
extern "C" __attribute__((noinline)) void measure_merges(bench::Session *s, bool tail, uint64_t *tailEnd, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        if (tail) {
            bench::MergeAtTail(s, tailEnd);
        } else {
            bench::MergeInsideHead(s);
        }
    }
}

// The counted part of ott_speed: one read of the session.
extern "C" __attribute__((noinline)) uint64_t measure_speed(bench::Session *s)
{
    uint64_t up = 0, upDur = 0, dw = 0, dwDur = 0;
    API_OTTTransSpeed(s->pool, &s->session, &up, &upDur, &dw, &dwDur);
    return up + upDur + dw + dwDur;
}

namespace {

using namespace bench;

int RunOttSpeed(size_t n, uint32_t length)
{
    Session s(0, length + 16);
    uint64_t sum = 0;
    for (size_t i = 0; i < n; ++i) {
        for (uint32_t k = 0; k < length; ++k) {
            Record(s.pool, &s.flow, (k + 1) * kSlot, (k + 1) * kSlot + kBusy, 1000);
            API_OTTTransMerge(s.pool, &s.session, &s.flow);
        }
        sum += measure_speed(&s);
    }
    const bool ok = sum == static_cast<uint64_t>(n) * length * (1000 + kBusy) && GetFreeNodeNum(s.pool) == length + 16;
    std::printf("ott_speed: %zu reads of %u nodes, sum %llu, %u pool nodes free%s\n", n, length,
                static_cast<unsigned long long>(sum), GetFreeNodeNum(s.pool), ok ? "" : ": wrong sums or nodes lost");
    return ok ? 0 : 1;
}

int RunOtt(bool tail, size_t n, uint32_t length)
{
    if (length == 0) {
        return 2;
    }
    Session s(length, length + 16);
    if (!s.Ready(length)) {
        std::fprintf(stderr, "session list not built\n");
        return 1;
    }
    uint64_t tailEnd = (length - 1) * kSlot + kBusy;
    measure_merges(&s, tail, &tailEnd, n);
    const uint32_t nodes = GetTranNodeNum(&s.session.stUpTransList);
    const uint32_t free = GetFreeNodeNum(s.pool);
    std::printf("%s: %zu merges into %u nodes; list now %u nodes, %u pool nodes free of 16\n",
                tail ? "ott_tail" : "ott_head", n, length, nodes, free);
    return nodes == length && free == 16 ? 0 : 1;
}

// Runs total events through measure_events, repeating the stream (times
// shifted, flows fresh) between calls so the repetition is not counted.
uint64_t RunStream(Work *w, size_t total, size_t passLength)
{
    uint64_t acc = 0;
    while (total > 0) {
        size_t room = 0;
        if (w->mode == Mode::kFloor) {
            if (w->next == passLength) {
                w->next = 0;
            }
            room = passLength - w->next;
        } else {
            if (w->replay->AtEnd()) {
                w->replay->Repeat();
            }
            room = w->replay->Size() - w->replay->Position();
        }
        const size_t k = room < total ? room : total;
        acc += measure_events(w, k);
        total -= k;
    }
    return acc;
}

long PeakResidentKiB()
{
    std::FILE *f = std::fopen("/proc/self/status", "r");
    if (f == nullptr) {
        return -1;
    }
    char line[256];
    long kib = -1;
    while (std::fgets(line, sizeof(line), f) != nullptr) {
        if (std::strncmp(line, "VmHWM:", 6) == 0) {
            kib = std::strtol(line + 6, nullptr, 10);
        }
    }
    std::fclose(f);
    return kib;
}

int Usage()
{
    std::fprintf(stderr, "usage: orvane_bench_events floor|typical|typical_log0|worst|rss|jsonl N [STREAM]\n"
                         "       orvane_bench_events ott_tail|ott_head|ott_speed N LENGTH\n");
    return 2;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3 && argc != 4) {
        return Usage();
    }
    const std::string mode = argv[1];
    const size_t n = std::strtoull(argv[2], nullptr, 10);
    if (mode == "ott_speed") {
        return argc == 4 ? RunOttSpeed(n, static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10))) : Usage();
    }
    if (mode == "ott_tail" || mode == "ott_head") {
        return argc == 4 ? RunOtt(mode == "ott_tail", n, static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)))
                         : Usage();
    }
    const std::string source = argc == 4 ? argv[3] : "sample";
    std::string error;
    Stream stream = source == "browsing" ? MakeBrowsingStream(kBrowsingPages, kBrowsingSeed)
                    : LoadJsonlStream(source == "sample" ? ORVANE_SAMPLE_SESSION : source, &error);
    if (!error.empty() && source == "sample") {
        // The replay tool's session moved or went: keep the smoke runs going.
        std::fprintf(stderr, "%s; using the generated browsing session instead\n", error.c_str());
        stream = MakeBrowsingStream(kBrowsingPages, kBrowsingSeed);
    } else if (!error.empty()) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }

    if (mode == "jsonl") {
        uint64_t shift = 0, flowBase = 0;
        size_t written = 0;
        Stream part;
        while (written < n) {
            if (n - written < stream.events.size()) {
                part = stream;
                part.events.resize(n - written);
                WriteJsonl(stdout, part, shift, flowBase);
                written = n;
                break;
            }
            WriteJsonl(stdout, stream, shift, flowBase);
            written += stream.events.size();
            shift += stream.span;
            flowBase += stream.flows;
        }
        return std::fflush(stdout) == 0 ? 0 : 1;
    }

    Work w{};
    w.events = &stream.events;
    if (mode == "floor") {
        w.mode = Mode::kFloor;
        RunStream(&w, stream.events.size(), stream.events.size());  // warm-up, not counted
        std::printf("floor: %zu events\n", n);
        std::printf("acc %llu\n", static_cast<unsigned long long>(RunStream(&w, n, stream.events.size())));
        return 0;
    }

    const bool rss = mode == "rss";
    if (!StartDaemon(mode == "typical_log0" ? kLogEverything : kLogAllOff)) {
        std::fprintf(stderr, "thread 0 could not be set up\n");
        return 1;
    }
    Replayer replay(stream);
    WorstCase worst;
    w.replay = &replay;
    w.worst = &worst;
    if (mode == "worst") {
        w.mode = Mode::kWorst;
        const std::string problem = worst.Build();
        if (!problem.empty()) {
            std::fprintf(stderr, "worst case: %s\n", problem.c_str());
            return 1;
        }
        measure_events(&w, n);
    } else if (mode == "typical" || mode == "typical_log0" || rss) {
        w.mode = Mode::kTypical;
        if (!rss) {
            RunStream(&w, stream.events.size(), 0);  // warm-up to the steady state
        }
        RunStream(&w, n, 0);
    } else {
        return Usage();
    }

    // Close every page: both pools must be whole again.
    STWebPage *ctx = g_pstWebPage[0];
    API_ReleaseWebPageNode(0, 0);
    const uint32_t lostPages = PAGE_NODE_NUM - GetFreeNodeNum(&ctx->stPageNodePool);
    const uint32_t lostStrings = MATCH_STR_NODE_NUM - GetFreeNodeNum(&ctx->stMatchStrMemPool);
    std::printf("%s: %zu events, %llu pages reported, %llu timer runs, %llu log lines\n", mode.c_str(), n,
                static_cast<unsigned long long>(Stats().pagesReported),
                static_cast<unsigned long long>(Stats().timerRuns),
                static_cast<unsigned long long>(Stats().logLines));
    std::printf("pool nodes lost: %u pages, %u strings\n", lostPages, lostStrings);
    if (rss) {
        std::printf("peak resident: %ld KiB\n", PeakResidentKiB());
    }
    StopDaemon();
    return lostPages == 0 && lostStrings == 0 ? 0 : 1;
}
