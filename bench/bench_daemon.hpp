// Plays the daemon around thread 0 for the benchmarks: callbacks that do
// almost nothing, a page timer that runs on the trace's own clock, and the
// prepared worst case.
#ifndef ORVANE_BENCH_DAEMON_HPP
#define ORVANE_BENCH_DAEMON_HPP

#include <cstdint>
#include <string>
#include <deque>
#include <vector>

#include "bench_stream.hpp"
#include "webpage_internal.h"

namespace bench {

constexpr uint32_t kLogAllOff = 3;
constexpr uint32_t kLogEverything = LOG_LEVEL_TRACE;

struct DaemonStats {
    uint64_t pagesReported = 0;
    uint64_t logLines = 0;
    uint64_t timerRuns = 0;
};
DaemonStats &Stats();

// Creates thread 0's context with the log threshold given; the log callback
// counts lines and does nothing else. Releases a context left over first.
bool StartDaemon(uint32_t logLevel);
void StopDaemon();

// Bytes one thread context holds: the context record and both pools' blocks.
size_t ContextBytes(const STWebPage *ctx);

// Feeds a stream to thread 0 event by event. Before each event the page
// timer runs as often as 5-second periods of trace time have passed since it
// started; that is the daemon's timer, driven by event time instead of the
// wall clock. After the last event the stream can be repeated with its times
// shifted past the end and every flow area zeroed (fresh flows). A short
// stream is laid end to end with itself (times shifted, flows fresh) up to
// kMinPass events, so that repeating, which a benchmark does with its timer
// paused, stays rare. The stream must outlive the replayer.
class Replayer {
public:
    static constexpr size_t kMinPass = 10000;
    explicit Replayer(const Stream &stream);

    uint64_t Step()
    {
        const StreamEvent &se = events_[next_++];
        const uint64_t t = se.ev.ullMsgBeginTime;
        STWebPage *ctx = g_pstWebPage[0];
        while (ctx->ulPageTimer != 0 && t >= nextTick_) {
            WebPageTimeOut(0);
            nextTick_ += kTimerPeriod;
            ++Stats().timerRuns;
        }
        uint64_t id = 0;
        API_AssociateWebPage(0, &flows_[se.flow], &se.ev, &id);
        if (ctx->ulPageTimer != 0 && nextTick_ <= t) {
            nextTick_ = t + kTimerPeriod;  // the event started the timer
        }
        return id;
    }
    bool AtEnd() const { return next_ == events_.size(); }
    void Repeat();
    size_t Size() const { return events_.size(); }
    size_t Position() const { return next_; }
    const std::vector<StreamEvent> &Events() const { return events_; }

private:
    std::vector<StreamEvent> events_;
    std::vector<STFlowInfo> flows_;
    size_t next_ = 0;
    uint64_t nextTick_ = 0;
    uint64_t span_ = 0;
};

// Thread 0 holding 30 open web pages and 300 saved strings, and a request
// that every string rule walks to the end without a match, so that the time
// match decides: it too walks every page and joins the oldest. Sending the
// event leaves the state as it was, so it can be sent again and again.
struct WorstCase {
    STWebPageEvent event{};
    STFlowInfo flow{};
    uint64_t expectedPage = 0;
    std::deque<std::string> texts;

    // Builds the state; an empty result means ready, else what went wrong.
    std::string Build();
    uint64_t Send()
    {
        API_InitWebPageFlow(&flow);  // every request comes on a new flow
        uint64_t id = 0;
        API_AssociateWebPage(0, &flow, &event, &id);
        return id;
    }
};

}  // namespace bench

#endif
