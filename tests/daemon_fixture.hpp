// Plays the daemon for scenario tests: owns flow areas, registers the log,
// page-end, DNS and timer callbacks, builds events and runs the page timer.
#ifndef ORVANE_TESTS_DAEMON_FIXTURE_HPP
#define ORVANE_TESTS_DAEMON_FIXTURE_HPP

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "test_util.hpp"
#include "webpage_internal.h"

namespace orvane_test {

constexpr uint64_t kMs = 1000000ull;
constexpr uint64_t kSec = 1000000000ull;

// One HTTP event described the way a test reads best; strings are owned here
// so the STWebPageEvent built from it stays valid while the Event lives.
struct Event {
    uint32_t id = WEBPAGE_EVENT_REQUEST;
    uint32_t method = WEBPAGE_METHOD_GET;
    uint32_t code = 0;
    std::string host, uri, referHost, referPath, location, contentType;
    uint64_t begin = 0, end = 0, syn = 0;
    uint8_t finRst = 0;
    uint16_t clientPort = 40000, serverPort = 80;
    uint32_t clientIp = 0x0A000001, serverIp = 0x5DB8D822;

    STWebPageEvent Build() const;
};

Event Req(std::string host, std::string uri, uint64_t begin, uint64_t end = 0);
Event Rsp(uint32_t code, uint64_t begin, uint64_t end = 0, std::string contentType = "text/html");

struct CapturedLog { uint32_t level; std::string line; };

// Global callback sinks: the library's callbacks are plain C functions.
struct DaemonSinks {
    std::vector<CapturedLog> logs;
    std::vector<STPageKQI> pages;
    std::vector<STDNSQueryInfo> dnsQueries;
    uint64_t nextTimerHandle = 100;
    std::vector<uint32_t> timerStarts;  // thread arguments of start calls
    std::vector<uint64_t> timerStops;   // handles stopped
    bool storeTimerHandle = true;
    void Clear();
};
DaemonSinks &Sinks();

uint32_t CollectLog(uint32_t uiLevel, const char *pcLine);
uint32_t CollectPageEnd(STPageKQI *pstKQI);
uint32_t AnswerDns(STDNSQueryInfo *pstQuery, STDNSQueryResult *pstResult);
uint32_t StartTimer(uint32_t uiThreadID, uint32_t uiPeriod, PFPageTimerHandler pfHandler, void *pvContext);
uint32_t StopTimer(uint64_t ulTimer);

// Resets every global the library shares between tests. Contexts of all
// threads are released silently.
void ResetLibrary();

class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Creates thread contexts (thread 0 first, as the daemon must) and
    // registers the timer callbacks after the last of them.
    void InitThreads(std::initializer_list<uint32_t> threads, uint16_t pageTimeOutSec = 0,
                     uint32_t logLevel = LOG_LEVEL_ERROR);

    STFlowInfo &Flow(int n);  // a zeroed flow area per flow number
    uint32_t Send(uint32_t thread, int flow, const Event &ev, uint64_t *pageID);
    uint64_t Send(int flow, const Event &ev);  // thread 0; expects return 0 or 4
    // The working record the event path makes of the event (expects success).
    STEventInfo Intake(uint32_t thread, int flow, const Event &ev);
    void RunTimer(uint32_t thread, int runs = 1);
    // Runs the timer until the thread has no page left (at most 300 runs).
    void DrainPages(uint32_t thread);

    STWebPage *Ctx(uint32_t thread) const { return g_pstWebPage[thread]; }
    uint32_t OpenPages(uint32_t thread) const;
    STPageNode *FindPage(uint32_t thread, uint64_t pageID) const;
    const std::vector<STPageKQI> &Reported() const { return Sinks().pages; }
    bool LogContains(const std::string &text) const;

private:
    std::map<int, STFlowInfo> flows_;
};

// A daemon test with thread 0's context made.
class OneThreadTest : public DaemonTest {
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        InitThreads({0});
    }
};

}  // namespace orvane_test

#endif
