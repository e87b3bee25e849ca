// Sixteen daemon threads, each with its own context and flows, feed their
// streams and run their timers at the same time, sharing the configuration
// and one log callback. Each thread's answers and page results must equal a
// single-threaded run of the same streams; run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "browsing_stream.hpp"
#include "daemon_fixture.hpp"
#include "webpage_check.hpp"

namespace {

constexpr uint32_t kThreads = WEBPAGE_THREAD_NUM;
constexpr int kSteps = 4000;

struct ThreadOutcome {
    std::vector<uint64_t> answers;  // return code and page ID per event
    std::vector<STPageKQI> pages;   // page results in report order
    uint32_t timerStarts = 0, timerStops = 0;
    std::string check;  // broken bookkeeping, if any
};

// The callbacks carry no user data. Each thread's results land in its own
// slot, chosen by the thread number the library hands back, so the slots
// need no lock; the log is shared by every thread and only counted.
ThreadOutcome g_outcome[kThreads];
std::atomic<uint64_t> g_logLines{0}, g_logHash{0}, g_nextHandle{1};

uint32_t CountLog(uint32_t, const char *line)
{
    g_logLines.fetch_add(1, std::memory_order_relaxed);
    g_logHash.fetch_add(std::hash<std::string>{}(line), std::memory_order_relaxed);  // order-free sum of the lines
    return 0;
}

uint32_t KeepPage(STPageKQI *kqi)
{
    g_outcome[kqi->uiPageID >> PAGE_ID_THREAD_SHIFT].pages.push_back(*kqi);
    return 0;
}

uint32_t AnswerDns(STDNSQueryInfo *query, STDNSQueryResult *result)
{
    result->ullDNSBeginTime = 0;
    result->uiDnsDelay = static_cast<uint32_t>(query->usHostLen) * 3;
    return 0;
}

uint32_t StartTimer(uint32_t thread, uint32_t, PFPageTimerHandler, void *ctx)
{
    const uint64_t handle = g_nextHandle.fetch_add(1);
    std::memcpy(ctx, &handle, sizeof(handle));
    ++g_outcome[thread & 0xFF].timerStarts;
    return 0;
}

uint32_t StopTimer(uint64_t) { return 0; }  // counted by the thread that stops, below

void Feed(uint32_t thread)
{
    ThreadOutcome &out = g_outcome[thread];
    orvane_stream::BrowsingStream stream(thread);
    STFlowInfo flows[orvane_stream::BrowsingStream::kFlows];
    for (STFlowInfo &f : flows) {
        API_InitWebPageFlow(&f);
    }
    for (int i = 0; i < kSteps; ++i) {
        const orvane_stream::Step step = stream.Next();
        if (step.timer) {
            const bool running = g_pstWebPage[thread]->ulPageTimer != 0;
            WebPageTimeOut(thread);
            out.timerStops += running && g_pstWebPage[thread]->ulPageTimer == 0;
            continue;
        }
        if (step.newFlow) {
            API_InitWebPageFlow(&flows[step.flow]);
        }
        uint64_t id = 0;
        const uint32_t rc = API_AssociateWebPage(thread, &flows[step.flow], &step.ev, &id);
        out.answers.push_back((static_cast<uint64_t>(rc) << 60) ^ id);
    }
    out.check = orvane_check::CheckContext(static_cast<uint8_t>(thread), nullptr);
    API_ReleaseWebPageNode(thread, 1);
}

struct RunResult { std::vector<ThreadOutcome> outcomes; uint64_t logLines = 0; uint64_t logHash = 0; };

RunResult RunAll(bool concurrently)
{
    orvane_test::ResetLibrary();
    std::fill(std::begin(g_outcome), std::end(g_outcome), ThreadOutcome());
    g_logLines = g_logHash = 0;
    API_InitSDKLog(CountLog);
    STWebPageConfig cfg{LOG_LEVEL_INFO, 0, 0};
    uint32_t size = 0;
    for (uint32_t t = 0; t < kThreads; ++t) {
        EXPECT_EQ(API_InitWebPage(t, &cfg, &size, KeepPage, AnswerDns), 0u);
    }
    EXPECT_EQ(API_InitWebPageTimer(0, StartTimer, StopTimer), 0u);

    std::atomic<bool> go{false};
    std::vector<std::thread> workers;
    for (uint32_t t = 0; t < kThreads; ++t) {
        if (!concurrently) {
            Feed(t);
            continue;
        }
        workers.emplace_back([t, &go] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            Feed(t);
        });
    }
    go = true;
    for (std::thread &w : workers) {
        w.join();
    }
    RunResult run{std::vector<ThreadOutcome>(g_outcome, g_outcome + kThreads), g_logLines.load(), g_logHash.load()};
    orvane_test::ResetLibrary();
    return run;
}

bool SameResults(const std::vector<STPageKQI> &a, const std::vector<STPageKQI> &b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}

TEST(ThreadIndependence, SixteenThreadsAtOnceMatchOneThreadAtATime)
{
    const RunResult alone = RunAll(false);
    const RunResult together = RunAll(true);
    for (uint32_t t = 0; t < kThreads; ++t) {
        const ThreadOutcome &a = alone.outcomes[t];
        const ThreadOutcome &b = together.outcomes[t];
        EXPECT_EQ(a.check + b.check, "") << "thread " << t;
        EXPECT_GT(a.pages.size(), 10u) << "thread " << t << ": the stream should open and close pages";
        EXPECT_TRUE(a.answers == b.answers) << "thread " << t << ": answers differ";
        EXPECT_TRUE(SameResults(a.pages, b.pages)) << "thread " << t << ": page results differ";
        EXPECT_EQ(Fields(a.timerStarts, a.timerStops), Fields(b.timerStarts, b.timerStops)) << "thread " << t;
    }
    EXPECT_EQ(Fields(alone.logLines, alone.logHash), Fields(together.logLines, together.logHash));
}

}  // namespace
