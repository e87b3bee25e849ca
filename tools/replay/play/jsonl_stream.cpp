// A JSON Lines trace replayed as it is read: each line is parsed, put back
// in time order within a small window, and fed; only what the requested
// reports need is kept.
#include <algorithm>
#include <tuple>
#include <utility>

#include "jsonl_contract.hpp"
#include "jsonl_reader.hpp"
#include "session.hpp"

namespace replay {

namespace {

struct Step {
    uint64_t time = 0;  // where it sorts: its begin; for a late line the clock it arrived at
    bool dns = false;   // DNS first at equal times: a look-up precedes its request
    uint64_t seq = 0;   // file order breaks the remaining ties
    bool late = false;
    int kept = -1;      // the event's index in Trace::events when kept
    DnsRecord dnsRecord;
    TraceEvent event;   // when not kept
};

// A late DNS line keeps its place among the lines read before it too.
auto KeyOf(const Step &s) { return std::make_tuple(s.time, s.dns && !s.late ? 0 : 1, s.seq); }

// Puts nearly ordered lines back in time order, with bounded memory.
class ReorderWindow {
public:
    template <class Release>
    void Push(Step step, Release &&release)
    {
        step.seq = seq_++;
        if (fedAny_ && std::make_tuple(step.time, step.dns ? 0 : 1) < floor_) {
            // Too late to go in order: it goes after every line read before it.
            step.late = true;
            step.time = newest_;
            ++late_;
        }
        newest_ = std::max(newest_, step.time);
        heap_.push_back(std::move(step));
        std::push_heap(heap_.begin(), heap_.end(), Later);
        while (!heap_.empty() && (heap_.size() > kReorderMaxLines || newest_ - heap_.front().time >= kReorderWindowNs)) {
            ReleaseOne(release);
        }
    }

    template <class Release>
    void Drain(Release &&release)
    {
        while (!heap_.empty()) {
            ReleaseOne(release);
        }
    }

    size_t Late() const { return late_; }

private:
    static bool Later(const Step &a, const Step &b) { return KeyOf(a) > KeyOf(b); }

    template <class Release>
    void ReleaseOne(Release &&release)
    {
        std::pop_heap(heap_.begin(), heap_.end(), Later);
        Step step = std::move(heap_.back());
        heap_.pop_back();
        if (!step.late) {
            floor_ = std::make_tuple(step.time, step.dns ? 0 : 1);
            fedAny_ = true;
        }
        release(step);
    }

    std::vector<Step> heap_;  // earliest first
    uint64_t newest_ = 0;     // the newest time read
    std::tuple<uint64_t, int> floor_{0, 0};  // the last line fed in order
    bool fedAny_ = false;
    uint64_t seq_ = 0;
    size_t late_ = 0;
};

}  // namespace

SessionReport StreamJsonl(const std::string &file, std::istream &in, const SessionOptions &options,
                          const IssueSink &onIssue, std::string prefix)
{
    SessionReport report;
    report.trace = std::make_unique<Trace>();
    Trace &trace = *report.trace;
    trace.file = file;
    trace.format = "jsonl";

    Replayer replayer(options.replay);
    if (!replayer.Start()) {
        report.result = std::move(replayer.Result());
        return report;
    }
    ReorderWindow window;
    TransactionBook book;
    auto feed = [&](const Step &step) {
        if (step.dns) {
            replayer.Dns(step.dnsRecord);
        } else if (step.kept >= 0) {
            replayer.Feed(trace.events[static_cast<size_t>(step.kept)], step.kept);
        } else {
            replayer.Feed(step.event, -1);
        }
    };

    JsonlSource source(in, std::move(prefix), [&](const Issue &issue) {
        onIssue(file, issue);
        trace.Skip(issue);
    });
    ContractCheck contract([&](const Issue &issue) {
        onIssue(file, issue);
        trace.warnings.push_back(issue);
    });
    JsonlLine parsed;
    while (source.Next(&parsed)) {
        Step step;
        if (parsed.kind == JsonlLine::Kind::kDns) {
            step.dns = true;
            step.time = parsed.dns.begin;
            if (options.keepEvents) {
                trace.dns.push_back(parsed.dns);  // the waterfall draws the look-ups
            }
            step.dnsRecord = std::move(parsed.dns);
        } else {
            contract.Event(parsed.event);
            step.time = parsed.event.begin;
            if (options.keepEvents) {
                step.kept = book.Add(&trace, std::move(parsed.event), parsed.page);
            } else {
                step.event = std::move(parsed.event);
            }
        }
        window.Push(std::move(step), feed);
    }
    if (!source.NotATrace().empty()) {
        // Nothing was fed: the file is reported as unreadable, like a bad HAR.
        trace.fatal = source.NotATrace();
        return report;
    }
    if (source.ReadFailed()) {
        Issue issue{"line " + std::to_string(source.LineNo() + 1), "cannot read the file any further"};
        onIssue(file, issue);
        trace.Skip(std::move(issue));
    }
    window.Drain(feed);
    replayer.Finish();
    report.result = std::move(replayer.Result());
    report.result.late = window.Late();
    if (options.eval) {
        report.eval = Evaluate(trace, report.result);
    }
    return report;
}

}  // namespace replay
