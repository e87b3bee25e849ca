// Plays the daemon for one trace: one thread context, a flow area per flow,
// the events in time order, and the page timer driven by the trace's clock.
#ifndef ORVANE_REPLAY_REPLAYER_HPP
#define ORVANE_REPLAY_REPLAYER_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "orvane_webpage.h"
#include "trace.hpp"

namespace replay {

struct ReplayOptions {
    uint32_t logLevel = LOG_LEVEL_ERROR;
    bool showLog = false;        // copy the library's log lines to stderr
    uint16_t pageTimeOutSec = 0;  // 0: the library's default quiet time
};

enum class PageKind { kUnknown, kSingle, kAssociate, kUcid };
const char *KindName(PageKind kind);

struct EventOutcome {
    uint32_t rc = 0;       // API_AssociateWebPage's result
    uint64_t pageId = 0;
    bool black = false;    // screened out as black-listed
    bool fed = false;
};

struct PageResult {
    uint64_t id = 0;
    PageKind kind = PageKind::kUnknown;
    std::string host, uri;  // of the first request that joined it
    int firstEvent = -1;    // index into Trace::events
    int requests = 0, responses = 0;
    bool reported = false;
    bool released = false;  // reported by the final release rather than the timer
    STPageKQI kqi{};
    uint64_t closedAt = 0;  // trace clock at the report
};

struct SessionResult {
    std::vector<EventOutcome> outcomes;  // one per Trace::events entry
    std::vector<PageResult> pages;       // by page ID
    size_t libraryErrors = 0;            // ERROR lines the library logged
    size_t timerRuns = 0;
    uint64_t clockBegin = 0, clockEnd = 0;
    std::string setupError;              // the context could not be made
};

// Creates thread 0's context, replays, drains every page through the timer
// and releases the context again, so sessions are independent.
SessionResult Replay(const Trace &trace, const ReplayOptions &options);

}  // namespace replay

#endif
