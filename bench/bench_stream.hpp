// A realistic browsing session as the daemon would hand it over: pages with a
// main request, optional redirect, 10-60 sub-requests over several hosts with
// referers, parallel keep-alive flows, responses and quiet gaps between pages.
// Also the floor: the per-event work no implementation can skip.
#ifndef ORVANE_BENCH_STREAM_HPP
#define ORVANE_BENCH_STREAM_HPP

#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "orvane_webpage.h"

namespace bench {

constexpr uint64_t kMs = 1000000ull;
constexpr uint64_t kSec = 1000000000ull;
constexpr uint64_t kTimerPeriod = 5 * kSec;

struct StreamEvent {
    STWebPageEvent ev;   // points into Stream::texts
    uint32_t flow = 0;   // index of the flow area
    uint32_t page = 0;   // generator's page number, for the trace's "page" label
};

struct Stream {
    std::deque<std::string> texts;  // stable storage for the events' strings
    std::vector<StreamEvent> events;  // in the order the daemon hands them over
    uint32_t flows = 0;
    uint32_t pages = 0;
    uint64_t span = 0;  // from the first event to the end of the last quiet gap

    // Requests and responses counted separately, for the README.
    uint32_t Requests() const;
};

// The session every benchmark and tool here replays.
constexpr uint32_t kBrowsingPages = 200;
constexpr uint32_t kBrowsingSeed = 20240601;

// Deterministic for a given seed; times start at start (ns).
Stream MakeBrowsingStream(uint32_t pages, uint32_t seed, uint64_t start = 1000 * kSec);

// Reads an event trace in the replay tool's JSON Lines format (DNS lines are
// skipped: the benchmark daemon answers DNS queries itself). The span ends
// with a quiet gap so that a repetition starts on a thread at rest.
Stream LoadJsonlStream(const std::string &path, std::string *error);

// Writes the stream as the replay tool's JSON Lines, times shifted by
// shift and flow keys offset by flowBase so that a repetition uses fresh flows.
void WriteJsonl(std::FILE *out, const Stream &stream, uint64_t shift, uint64_t flowBase);

// What every implementation must do with one event before any rule can run:
// copy its strings into fixed buffers, lower-case host, URL, referer and
// location, and hash them. Returns a value derived from every key so the
// work cannot be optimised away.
struct FloorScratch {
    char host[65], uri[129], url[257], referer[257], location[129], ctype[65];
};
uint32_t FloorEvent(const STWebPageEvent &ev, FloorScratch *scratch);

}  // namespace bench

#endif
