// Plays the daemon for one trace: one thread context, a flow area per flow,
// the events in time order, and the page timer driven by the trace's clock.
#ifndef ORVANE_REPLAY_REPLAYER_HPP
#define ORVANE_REPLAY_REPLAYER_HPP

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "daemon_config.hpp"
#include "orvane_webpage.h"
#include "page_rows.hpp"
#include "trace.hpp"

namespace replay {

struct ReplayOptions {
    uint32_t logLevel = LOG_LEVEL_ERROR;
    bool showLog = false;        // copy the library's log lines to stderr
    uint16_t pageTimeOutSec = 0;  // 0: the library's default quiet time
    uint32_t thread = 0;          // the thread context (0..15) the session runs on
    DaemonConfig config;          // written into the library's globals after set-up
};

struct EventOutcome {
    uint32_t rc = 0;       // API_AssociateWebPage's result
    uint64_t pageId = 0;
    bool black = false;    // screened out as black-listed
    bool fed = false;
};

struct SessionResult {
    std::vector<EventOutcome> outcomes;  // by Trace::events index, for kept events
    std::vector<int> fedOrder;           // kept events in the order fed
    PageRows pages;                      // by page ID
    size_t events = 0, requests = 0;     // every event fed, kept or not
    size_t black = 0, refused = 0;       // screened out; no page (rc not 0)
    size_t late = 0;                     // lines too far out of time order, fed as they came
    size_t libraryErrors = 0;            // ERROR lines the library logged
    size_t timerRuns = 0;
    uint64_t clockBegin = 0, clockEnd = 0;
    std::string setupError;              // the context could not be made
};

// Feeds one session step by step, in time order: Start creates the thread
// context, Finish drains every page through the timer and releases it, so
// sessions are independent. Replayers on different contexts may run at once,
// each on its own system thread (the library's callbacks reach the session
// of the calling thread), all with the same configuration: set-up writes the
// library's shared globals, so it waits until no other replayer is inside the
// library, and every later call shares the library with the others.
class Replayer {
public:
    explicit Replayer(const ReplayOptions &options);
    ~Replayer();
    Replayer(const Replayer &) = delete;
    Replayer &operator=(const Replayer &) = delete;

    // False when the context could not be made (Result().setupError).
    bool Start();
    void Dns(const DnsRecord &dns);
    // index: the event's place in Trace::events when the caller keeps
    // events for the reports (its outcome is then recorded), else -1.
    void Feed(const TraceEvent &ev, int index);
    void Finish();
    SessionResult &Result();

    struct Session;

private:
    std::unique_ptr<Session> s_;
};

// Replays a whole trace held in memory.
SessionResult Replay(const Trace &trace, const ReplayOptions &options);

// Makes sure the library's defaults have been written and copied (see
// TakeLibraryDefaults), setting up thread 0's context once if need be.
void EnsureLibraryDefaults();

// The number of thread contexts the library offers.
constexpr uint32_t kMaxThreads = 16;

}  // namespace replay

#endif
