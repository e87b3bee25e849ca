// Soak: a long generated browsing stream through one thread, as the daemon
// would feed it for months. Fails when a pool count drifts, a node is lost,
// an event gets no page while the pool has room, a page is not reported, or
// the resident size grows after warm-up (the library allocates nothing after
// set-up).
//
//   orvane_soak [events]     (default 10000000)
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "browsing_stream.hpp"
#include "webpage_check.hpp"

namespace {

uint64_t g_reported = 0;
uint64_t g_badFlags = 0;
uint64_t g_errorLines = 0;

uint32_t CountLog(uint32_t level, const char *)
{
    g_errorLines += level == LOG_LEVEL_ERROR;
    return 0;
}

uint32_t CountPage(STPageKQI *kqi)
{
    ++g_reported;
    g_badFlags += kqi->ucPageFlag > 1 || kqi->ucSuccFlag > 1;
    return 0;
}

uint32_t AnswerDns(STDNSQueryInfo *query, STDNSQueryResult *result)
{
    result->uiDnsDelay = query->usHostLen;
    return 0;
}

uint32_t StartTimer(uint32_t, uint32_t, PFPageTimerHandler, void *ctx)
{
    const uint64_t handle = 1;
    std::memcpy(ctx, &handle, sizeof(handle));
    return 0;
}

uint32_t StopTimer(uint64_t) { return 0; }

long ResidentKb()
{
    FILE *f = std::fopen("/proc/self/status", "r");
    if (f == nullptr) {
        return -1;
    }
    char line[256];
    long kb = -1;
    while (std::fgets(line, sizeof(line), f) != nullptr) {
        if (std::strncmp(line, "VmRSS:", 6) == 0) {
            kb = std::strtol(line + 6, nullptr, 10);
        }
    }
    std::fclose(f);
    return kb;
}

int Fail(const char *what, uint64_t at)
{
    std::fprintf(stderr, "soak FAILED after %" PRIu64 " events: %s\n", at, what);
    return 1;
}

}  // namespace

int main(int argc, char **argv)
{
    const uint64_t total = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10000000ull;
    const uint64_t sampleEvery = total / 20 > 0 ? total / 20 : 1;
    // After this many events every structure has reached its working size.
    const uint64_t warm = total / 10;

    API_InitSDKLog(CountLog);
    STWebPageConfig cfg{LOG_LEVEL_ERROR, 0, 0};
    uint32_t flowSize = 0;
    if (API_InitWebPage(0, &cfg, &flowSize, CountPage, AnswerDns) != 0 ||
        API_InitWebPageTimer(0, StartTimer, StopTimer) != 0) {
        return Fail("set-up", 0);
    }
    orvane_stream::BrowsingStream stream(2024);
    static STFlowInfo flows[orvane_stream::BrowsingStream::kFlows];
    for (STFlowInfo &f : flows) {
        API_InitWebPageFlow(&f);
    }

    uint64_t events = 0, timerRuns = 0, noPage = 0;
    long rssStart = ResidentKb(), rssWarm = -1, rssMax = rssStart;
    const auto t0 = std::chrono::steady_clock::now();
    while (events < total) {
        const orvane_stream::Step step = stream.Next();
        if (step.timer) {
            WebPageTimeOut(0);
            ++timerRuns;
            continue;
        }
        if (step.newFlow) {
            API_InitWebPageFlow(&flows[step.flow]);
        }
        uint64_t id = 0;
        const uint32_t rc = API_AssociateWebPage(0, &flows[step.flow], &step.ev, &id);
        ++events;
        if (rc == WEBPAGE_ERR_NO_PAGE) {
            ++noPage;
            if (GetFreeNodeNum(&g_pstWebPage[0]->stPageNodePool) != 0) {
                return Fail("no page although the page pool had room", events);
            }
        } else if (rc != WEBPAGE_OK) {
            return Fail("unexpected return code", events);
        }
        if (events % sampleEvery == 0) {
            const std::string bad = orvane_check::CheckContext(0, nullptr);
            if (!bad.empty()) {
                return Fail(bad.c_str(), events);
            }
            const long rss = ResidentKb();
            rssMax = rss > rssMax ? rss : rssMax;
            if (events >= warm && rssWarm < 0) {
                rssWarm = rss;
            }
            std::printf("%12" PRIu64 " events  %8ld kB resident  %10" PRIu64 " pages reported\n", events, rss,
                        g_reported);
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

    API_ReleaseWebPageNode(0, 1);
    const STWebPage *ctx = g_pstWebPage[0];
    const uint64_t opened = g_aulPageID[0] & PAGE_ID_MASK;
    std::printf("events %" PRIu64 ", timer runs %" PRIu64 ", pages opened %" PRIu64 ", reported %" PRIu64
                ", events without page %" PRIu64 ", ERROR lines %" PRIu64 "\n",
                events, timerRuns, opened, g_reported, noPage, g_errorLines);
    std::printf("duration %.1f s (%.0f events/s); resident %ld kB at start, %ld kB after warm-up, %ld kB at most\n",
                seconds, events / seconds, rssStart, rssWarm, rssMax);

    if (GetFreeNodeNum(&ctx->stPageNodePool) != PAGE_NODE_NUM ||
        GetFreeNodeNum(&ctx->stMatchStrMemPool) != MATCH_STR_NODE_NUM ||
        GetListFreeNodeNum(&ctx->stPageNodePool) != PAGE_NODE_NUM ||
        GetListFreeNodeNum(&ctx->stMatchStrMemPool) != MATCH_STR_NODE_NUM) {
        return Fail("pools not full after closing every page", events);
    }
    if (g_reported != opened) {
        return Fail("pages opened and pages reported differ", events);
    }
    if (g_badFlags != 0) {
        return Fail("page result flags outside 0 and 1", events);
    }
    if (rssWarm >= 0 && rssMax - rssWarm > 1024) {
        return Fail("resident size grew by more than 1 MB after warm-up", events);
    }
    API_ReleaseWebPage(0);
    std::printf("soak passed\n");
    return 0;
}
