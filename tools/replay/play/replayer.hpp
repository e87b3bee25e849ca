// Plays the daemon for one trace: one thread context, a flow area per flow,
// the events in time order, and the page timer driven by the trace's clock.
#ifndef ORVANE_REPLAY_REPLAYER_HPP
#define ORVANE_REPLAY_REPLAYER_HPP

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orvane_webpage.h"
#include "page_rows.hpp"
#include "trace.hpp"

namespace replay {

struct ReplayOptions {
    uint32_t logLevel = LOG_LEVEL_ERROR;
    bool showLog = false;        // copy the library's log lines to stderr
    uint16_t pageTimeOutSec = 0;  // 0: the library's default quiet time
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

// Feeds one session step by step, in time order: Start creates thread 0's
// context, Finish drains every page through the timer and releases it, so
// sessions are independent. The library's callbacks reach the session
// through a global: one replayer at a time.
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

}  // namespace replay

#endif
