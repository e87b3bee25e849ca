#include "replayer.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <list>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <unordered_map>

#include "text_util.hpp"

namespace replay {

namespace {

// Enough runs for the longest quiet time a page can have (255 runs) plus
// margin; a page still open after that is closed by the release.
constexpr size_t kMaxDrainRuns = 1000;

// A daemon frees a flow's area once the flow has gone quiet; so does the
// replay, or a long trace would keep one per flow it ever saw. The count
// bound holds even for a trace that opens flows faster than they age.
constexpr uint64_t kFlowIdleNs = 600 * kNsPerSec;
constexpr size_t kMaxFlows = 65536;
// DNS answers are kept for as long as a daemon's cache would hold them in
// practice: only a bound on distinct hosts.
constexpr size_t kMaxDnsHosts = 65536;
constexpr uint64_t kNeverIdle = std::numeric_limits<uint64_t>::max();

// A map that forgets its least recently used entries: beyond a count, or
// unused for longer than a stretch of the trace's clock.
template <class V>
class RecentMap {
public:
    RecentMap(size_t capacity, uint64_t idleNs) : capacity_(capacity), idleNs_(idleNs) {}

    // The entry for key, value-initialised when new (*made); marked as used
    // at now, which never goes back.
    V &Use(const std::string &key, uint64_t now, bool *made)
    {
        auto it = index_.find(key);
        *made = it == index_.end();
        if (*made) {
            order_.push_back(Entry{key, V{}, now});
            index_.emplace(key, std::prev(order_.end()));
        } else {
            order_.splice(order_.end(), order_, it->second);
            it->second->lastUsed = now;
        }
        Entry &entry = order_.back();
        Forget(now);
        return entry.value;
    }

    const V *Find(const std::string &key) const
    {
        auto it = index_.find(key);
        return it == index_.end() ? nullptr : &it->second->value;
    }

private:
    struct Entry {
        std::string key;
        V value;
        uint64_t lastUsed;
    };

    // The entry just used is the newest: neither rule can reach it.
    void Forget(uint64_t now)
    {
        while (order_.size() > capacity_ || (!order_.empty() && now - order_.front().lastUsed > idleNs_)) {
            index_.erase(order_.front().key);
            order_.pop_front();
        }
    }

    size_t capacity_;
    uint64_t idleNs_;
    std::list<Entry> order_;  // least recently used first
    std::unordered_map<std::string, typename std::list<Entry>::iterator> index_;
};

// Page IDs carry the context's number in their top 4 bits; reports show the
// session's own page number, the same on whichever context it ran.
constexpr uint64_t kPageNumberMask = (1ull << 60) - 1;
uint64_t PageNumber(uint64_t id) { return id & kPageNumberMask; }

struct TimerState {
    bool running = false;
    uint64_t handle = 0;
    uint64_t periodNs = 5 * kNsPerSec;
    uint64_t next = 0;  // clock of the next run
    PFPageTimerHandler handler = nullptr;
    uint32_t thread = 0;
};

}  // namespace

struct Replayer::Session {
    ReplayOptions options;
    SessionResult result;
    RecentMap<STFlowInfo> flows{kMaxFlows, kFlowIdleNs};
    RecentMap<DnsRecord> dns{kMaxDnsHosts, kNeverIdle};
    TimerState timer;
    uint64_t handles = 0;
    uint64_t clock = 0;
    bool begun = false;  // the first step has set the clock
    bool live = false;   // the context exists
    bool releasing = false;
    std::string failure;  // raised in a callback: thrown once the library has returned
};

namespace {

// Set-up writes globals that every context reads (the configuration, the
// timer callbacks, which API_InitWebPage clears): exclusive; every other call
// into the library: shared.
std::shared_mutex g_library;
// The session of the calling system thread, for the callbacks; one replayer
// per context.
thread_local Replayer::Session *g_session = nullptr;
Replayer::Session *g_contexts[kMaxThreads] = {};

uint32_t LogSink(uint32_t uiLevel, const char *pcLine)
{
    if (g_session == nullptr) {
        return 0;
    }
    if (uiLevel >= LOG_LEVEL_ERROR) {
        ++g_session->result.libraryErrors;
    }
    if (g_session->options.showLog) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s\n", pcLine != nullptr ? pcLine : "");
    }
    return 0;
}

// The library is built without exceptions: none may cross it from a
// callback.
template <class Body>
void Guarded(Body &&body)
{
    try {
        body();
    } catch (const std::exception &err) {
        if (g_session->failure.empty()) {
            g_session->failure = err.what();
        }
    }
}

void ThrowIfFailed(const Replayer::Session &s)
{
    if (!s.failure.empty()) {
        throw std::runtime_error(s.failure);
    }
}

uint32_t PageEnd(STPageKQI *pstKQI)
{
    if (g_session == nullptr || pstKQI == nullptr) {
        return 0;
    }
    Guarded([pstKQI] {
        PageRows &pages = g_session->result.pages;
        const uint64_t number = PageNumber(pstKQI->uiPageID);
        PageResult *page = pages.Open(number);
        if (page == nullptr) {
            return;  // reported once already
        }
        page->reported = true;
        page->released = g_session->releasing;
        page->kqi = *pstKQI;
        page->kqi.uiPageID = number;
        page->closedAt = g_session->clock;
        // Closed pages drop their ID, so no later event joins this row.
        pages.Close(number);
    });
    return 0;
}

uint32_t DnsQuery(STDNSQueryInfo *pstQuery, STDNSQueryResult *pstResult)
{
    if (g_session == nullptr || pstQuery == nullptr || pstResult == nullptr || pstQuery->pcHost == nullptr) {
        return 0;
    }
    Guarded([pstQuery, pstResult] {
        const std::string host = ToLower(std::string(pstQuery->pcHost, pstQuery->usHostLen));
        const DnsRecord *dns = g_session->dns.Find(host);
        if (dns != nullptr) {
            pstResult->ullDNSBeginTime = dns->begin;
            pstResult->uiDnsDelay = dns->delayMs;
        }
    });
    return 0;
}

uint32_t StartTimer(uint32_t uiThreadID, uint32_t uiPeriod, PFPageTimerHandler pfHandler, void *pvContext)
{
    if (g_session == nullptr || pvContext == nullptr || pfHandler == nullptr) {
        return 1;
    }
    Replayer::Session &s = *g_session;
    const uint64_t handle = ++s.handles;
    std::memcpy(pvContext, &handle, sizeof(handle));
    s.timer.running = true;
    s.timer.handle = handle;
    s.timer.handler = pfHandler;
    s.timer.thread = uiThreadID;
    s.timer.periodNs = static_cast<uint64_t>(uiPeriod == 0 ? 5 : uiPeriod) * kNsPerSec;
    // Runs fall on the boundaries of the trace's clock, as a periodic timer
    // aligned to the period would fire.
    s.timer.next = (s.clock / s.timer.periodNs + 1) * s.timer.periodNs;
    return 0;
}

uint32_t StopTimer(uint64_t ulPageTimer)
{
    if (g_session != nullptr && g_session->timer.handle == ulPageTimer) {
        g_session->timer.running = false;
    }
    return 0;
}

void RunTimerOnce(Replayer::Session &s)
{
    s.clock = s.timer.next;
    s.timer.next += s.timer.periodNs;
    ++s.result.timerRuns;
    s.timer.handler(s.timer.thread);
    ThrowIfFailed(s);
}

// The clock never goes back: a step older than the clock is fed at once.
void AdvanceClock(Replayer::Session &s, uint64_t to)
{
    if (!s.begun) {
        s.begun = true;
        s.clock = to;
        s.result.clockBegin = to;
    }
    while (s.timer.running && s.timer.next <= to) {
        RunTimerOnce(s);
    }
    s.clock = std::max(s.clock, to);
}

const unsigned char *Bytes(const std::string &s)
{
    return s.empty() ? nullptr : reinterpret_cast<const unsigned char *>(s.data());
}

uint16_t Len(const std::string &s)
{
    return static_cast<uint16_t>(std::min<size_t>(s.size(), std::numeric_limits<uint16_t>::max()));
}

STWebPageEvent Build(const TraceEvent &ev)
{
    STWebPageEvent raw;
    std::memset(&raw, 0, sizeof(raw));
    raw.ucProtol = 6;  // TCP
    raw.ucFinRst = ev.finRst;
    raw.usClientPort = ev.clientPort;
    raw.usServerPort = ev.serverPort;
    raw.uiClientIp = ev.clientIp;
    raw.uiServerIp = ev.serverIp;
    raw.usEventID = ev.kind == EventKind::kRequest ? WEBPAGE_EVENT_REQUEST : WEBPAGE_EVENT_RESPONSE;
    raw.ucReqMethod = ev.kind == EventKind::kRequest ? ev.method : 0;
    raw.usRspCode = ev.status;
    raw.enNetworkType = ev.network;
    raw.pucHost = Bytes(ev.host);
    raw.usHostLen = Len(ev.host);
    raw.pucURL = Bytes(ev.uri);
    raw.usURLLen = Len(ev.uri);
    raw.pucReferHost = Bytes(ev.referHost);
    raw.usReferHostLen = Len(ev.referHost);
    raw.pucReferURL = Bytes(ev.referPath);
    raw.usReferURLLen = Len(ev.referPath);
    raw.pucLocation = Bytes(ev.location);
    raw.usLocationLen = Len(ev.location);
    raw.pucContentType = Bytes(ev.contentType);
    raw.usContentTypeLen = Len(ev.contentType);
    raw.ullMsgBeginTime = ev.begin;
    raw.ullMsgEndTime = ev.end;
    raw.ullFirTime = ev.syn;
    return raw;
}

// What kind of page the event landed on, from the flow area the library
// has just tied to it.
PageKind KindOf(const TraceEvent &ev, const STFlowInfo &flow, uint64_t id)
{
    if (flow.uiPageType == 1 && flow.ullSinglePageID == id) {
        return PageKind::kSingle;
    }
    if (flow.uiPageType == 2 && flow.ullAssociatePageID == id) {
        const bool ucid = ev.kind == EventKind::kRequest ? ContainsNoCase(ev.uri, "/?ucid=") : flow.ucIsUcid == 1;
        return ucid ? PageKind::kUcid : PageKind::kAssociate;
    }
    return PageKind::kUnknown;
}

}  // namespace

Replayer::Replayer(const ReplayOptions &options) : s_(std::make_unique<Session>())
{
    s_->options = options;
}

Replayer::~Replayer()
{
    // Left mid-session (an exception): the context still goes, with its pages.
    if (s_->live) {
        std::shared_lock<std::shared_mutex> shared(g_library);
        API_ReleaseWebPage(s_->options.thread);
    }
    std::unique_lock<std::shared_mutex> alone(g_library);
    if (s_->options.thread < kMaxThreads && g_contexts[s_->options.thread] == s_.get()) {
        g_contexts[s_->options.thread] = nullptr;
    }
    if (g_session == s_.get()) {
        g_session = nullptr;
    }
}

SessionResult &Replayer::Result() { return s_->result; }

namespace {

// Caller holds the library alone.
void TakeDefaultsOnce(const STWebPageConfig &config)
{
    uint32_t flowSize = 0;
    STWebPageConfig copy = config;
    if (!HaveLibraryDefaults() && g_contexts[0] == nullptr &&
        API_InitWebPage(0, &copy, &flowSize, PageEnd, DnsQuery) == 0) {
        TakeLibraryDefaults();
        API_ReleaseWebPage(0);
    }
}

}  // namespace

void EnsureLibraryDefaults()
{
    std::unique_lock<std::shared_mutex> alone(g_library);
    Replayer::Session *own = g_session;
    g_session = nullptr;  // no session hears these lines
    TakeDefaultsOnce(STWebPageConfig{LOG_LEVEL_ERROR, 0, 0});
    g_session = own;
}

bool Replayer::Start()
{
    const ReplayOptions &options = s_->options;
    const uint32_t thread = options.thread;
    std::unique_lock<std::shared_mutex> alone(g_library);
    if (thread >= kMaxThreads || g_contexts[thread] != nullptr || g_session != nullptr) {
        s_->result.setupError = "thread context " + std::to_string(thread) + " is taken";
        return false;
    }
    API_InitSDKLog(LogSink);
    STWebPageConfig config{options.logLevel, options.pageTimeOutSec, 0};
    uint32_t flowSize = 0;
    // Thread 0's set-up writes the library's defaults: a session on another
    // context first needs them written once (silently: no session yet).
    if (thread != 0) {
        TakeDefaultsOnce(config);
    }
    g_session = s_.get();
    API_InitConfig(thread, &config);  // the level holds from the context's first line on
    const uint32_t rc = API_InitWebPage(thread, &config, &flowSize, PageEnd, DnsQuery);
    if (rc == 0 && thread == 0 && !HaveLibraryDefaults()) {
        TakeLibraryDefaults();
    }
    if (rc != 0 || flowSize != sizeof(STFlowInfo) || API_InitWebPageTimer(thread, StartTimer, StopTimer) != 0) {
        s_->result.setupError = "API_InitWebPage returned " + std::to_string(rc) + " (flow area " +
                                std::to_string(flowSize) + " bytes)";
        if (rc == 0) {
            API_ReleaseWebPage(thread);
        }
        g_session = nullptr;
        return false;
    }
    ApplyDaemonConfig(options.config);
    g_contexts[thread] = s_.get();
    s_->live = true;
    return true;
}

void Replayer::Dns(const DnsRecord &dns)
{
    std::shared_lock<std::shared_mutex> shared(g_library);  // the clock may run the timer
    Session &s = *s_;
    AdvanceClock(s, dns.begin);
    bool made = false;
    s.dns.Use(dns.host, s.clock, &made) = dns;
}

void Replayer::Feed(const TraceEvent &ev, int index)
{
    std::shared_lock<std::shared_mutex> shared(g_library);
    Session &s = *s_;
    AdvanceClock(s, ev.begin);
    bool made = false;
    STFlowInfo &flow = s.flows.Use(ev.flow, s.clock, &made);
    if (made) {
        API_InitWebPageFlow(&flow);
    }
    STWebPageEvent raw = Build(ev);
    uint64_t id = 0;
    EventOutcome out;
    out.rc = API_AssociateWebPage(s.options.thread, &flow, &raw, &id);
    ThrowIfFailed(s);
    out.pageId = PageNumber(id);
    out.fed = true;
    out.black = out.rc == WEBPAGE_OK && id == 0;

    SessionResult &r = s.result;
    ++r.events;
    r.requests += ev.kind == EventKind::kRequest ? 1 : 0;
    r.black += out.black ? 1 : 0;
    r.refused += out.rc != WEBPAGE_OK ? 1 : 0;
    if (index >= 0) {
        const size_t at = static_cast<size_t>(index);
        if (r.outcomes.size() <= at) {
            r.outcomes.resize(at + 1);
        }
        r.outcomes[at] = out;
        r.fedOrder.push_back(index);
    }
    if (id == 0) {
        return;
    }
    bool isNew = false;
    PageResult *page = r.pages.Open(PageNumber(id), &isNew);
    if (page == nullptr) {
        return;
    }
    if (isNew) {
        page->kind = KindOf(ev, flow, id);
        page->firstEvent = index;
        page->openedAt = s.clock;
    }
    if (ev.kind == EventKind::kRequest) {
        if (page->requests == 0) {
            page->host = ev.host;
            page->uri = ev.uri;
        }
        ++page->requests;
    } else {
        ++page->responses;
    }
}

void Replayer::Finish()
{
    Session &s = *s_;
    if (!s.live) {
        return;
    }
    std::shared_lock<std::shared_mutex> shared(g_library);
    for (size_t runs = 0; s.timer.running && runs < kMaxDrainRuns; ++runs) {
        RunTimerOnce(s);
    }
    s.result.clockEnd = s.clock;
    s.releasing = true;
    API_ReleaseWebPage(s.options.thread);
    s.live = false;
    g_session = nullptr;
    g_contexts[s.options.thread] = nullptr;
    ThrowIfFailed(s);
    s.result.pages.CloseAll();
}

SessionResult Replay(const Trace &trace, const ReplayOptions &options)
{
    Replayer replayer(options);
    if (!replayer.Start()) {
        return std::move(replayer.Result());
    }
    // DNS observations first at equal times: a look-up precedes its request.
    struct Step {
        uint64_t time;
        bool dns;
        size_t index;
    };
    std::vector<Step> steps;
    steps.reserve(trace.dns.size() + trace.events.size());
    for (size_t i = 0; i < trace.dns.size(); ++i) {
        steps.push_back({trace.dns[i].begin, true, i});
    }
    for (size_t i = 0; i < trace.events.size(); ++i) {
        steps.push_back({trace.events[i].begin, false, i});
    }
    std::stable_sort(steps.begin(), steps.end(), [](const Step &a, const Step &b) { return a.time < b.time; });

    replayer.Result().outcomes.resize(trace.events.size());
    for (const Step &step : steps) {
        if (step.dns) {
            replayer.Dns(trace.dns[step.index]);
        } else {
            replayer.Feed(trace.events[step.index], static_cast<int>(step.index));
        }
    }
    replayer.Finish();
    return std::move(replayer.Result());
}

}  // namespace replay
