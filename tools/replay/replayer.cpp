#include "replayer.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <unordered_map>

#include "text_util.hpp"

namespace replay {

namespace {

constexpr uint32_t kThread = 0;
// Enough runs for the longest quiet time a page can have (255 runs) plus
// margin; a page still open after that is closed by the release.
constexpr size_t kMaxDrainRuns = 1000;

struct TimerState {
    bool running = false;
    uint64_t handle = 0;
    uint64_t periodNs = 5 * kNsPerSec;
    uint64_t next = 0;  // clock of the next run
    PFPageTimerHandler handler = nullptr;
    uint32_t thread = 0;
};

// The library's callbacks are plain functions; they reach the session
// being replayed through this pointer.
struct Session {
    const Trace *trace = nullptr;
    ReplayOptions options;
    SessionResult result;
    std::map<uint64_t, size_t> pageIndex;
    std::unordered_map<std::string, DnsRecord> dnsCache;
    TimerState timer;
    uint64_t handles = 0;
    uint64_t clock = 0;
    bool releasing = false;
};
Session *g_session = nullptr;

PageResult &PageFor(Session &s, uint64_t id)
{
    auto it = s.pageIndex.find(id);
    if (it != s.pageIndex.end()) {
        return s.result.pages[it->second];
    }
    s.pageIndex.emplace(id, s.result.pages.size());
    s.result.pages.emplace_back();
    s.result.pages.back().id = id;
    return s.result.pages.back();
}

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

uint32_t PageEnd(STPageKQI *pstKQI)
{
    if (g_session == nullptr || pstKQI == nullptr) {
        return 0;
    }
    PageResult &page = PageFor(*g_session, pstKQI->uiPageID);
    page.reported = true;
    page.released = g_session->releasing;
    page.kqi = *pstKQI;
    page.closedAt = g_session->clock;
    return 0;
}

uint32_t DnsQuery(STDNSQueryInfo *pstQuery, STDNSQueryResult *pstResult)
{
    if (g_session == nullptr || pstQuery == nullptr || pstResult == nullptr || pstQuery->pcHost == nullptr) {
        return 0;
    }
    const std::string host = ToLower(std::string(pstQuery->pcHost, pstQuery->usHostLen));
    auto it = g_session->dnsCache.find(host);
    if (it != g_session->dnsCache.end()) {
        pstResult->ullDNSBeginTime = it->second.begin;
        pstResult->uiDnsDelay = it->second.delayMs;
    }
    return 0;
}

uint32_t StartTimer(uint32_t uiThreadID, uint32_t uiPeriod, PFPageTimerHandler pfHandler, void *pvContext)
{
    if (g_session == nullptr || pvContext == nullptr || pfHandler == nullptr) {
        return 1;
    }
    Session &s = *g_session;
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

void RunTimerOnce(Session &s)
{
    s.clock = s.timer.next;
    s.timer.next += s.timer.periodNs;
    ++s.result.timerRuns;
    s.timer.handler(s.timer.thread);
}

void AdvanceClock(Session &s, uint64_t to)
{
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

void Feed(Session &s, std::unordered_map<std::string, STFlowInfo> &flows, size_t index)
{
    const TraceEvent &ev = s.trace->events[index];
    auto inserted = flows.emplace(ev.flow, STFlowInfo{});
    STFlowInfo &flow = inserted.first->second;
    if (inserted.second) {
        API_InitWebPageFlow(&flow);
    }
    STWebPageEvent raw = Build(ev);
    uint64_t id = 0;
    EventOutcome &out = s.result.outcomes[index];
    out.rc = API_AssociateWebPage(kThread, &flow, &raw, &id);
    out.pageId = id;
    out.fed = true;
    out.black = out.rc == WEBPAGE_OK && id == 0;
    if (id == 0) {
        return;
    }
    const bool isNew = s.pageIndex.count(id) == 0;
    PageResult &page = PageFor(s, id);
    if (isNew) {
        page.kind = KindOf(ev, flow, id);
        page.firstEvent = static_cast<int>(index);
    }
    if (ev.kind == EventKind::kRequest) {
        if (page.requests == 0) {
            page.host = ev.host;
            page.uri = ev.uri;
        }
        ++page.requests;
    } else {
        ++page.responses;
    }
}

}  // namespace

const char *KindName(PageKind kind)
{
    switch (kind) {
    case PageKind::kSingle:
        return "single";
    case PageKind::kAssociate:
        return "assoc";
    case PageKind::kUcid:
        return "ucid";
    case PageKind::kUnknown:
        break;
    }
    return "?";
}

SessionResult Replay(const Trace &trace, const ReplayOptions &options)
{
    Session s;
    s.trace = &trace;
    s.options = options;
    s.result.outcomes.resize(trace.events.size());
    g_session = &s;

    API_InitSDKLog(LogSink);
    STWebPageConfig config{options.logLevel, options.pageTimeOutSec, 0};
    API_InitConfig(kThread, &config);  // the level holds from the context's first line on
    uint32_t flowSize = 0;
    const uint32_t rc = API_InitWebPage(kThread, &config, &flowSize, PageEnd, DnsQuery);
    if (rc != 0 || flowSize != sizeof(STFlowInfo) ||
        API_InitWebPageTimer(kThread, StartTimer, StopTimer) != 0) {
        s.result.setupError = "API_InitWebPage returned " + std::to_string(rc) + " (flow area " +
                              std::to_string(flowSize) + " bytes)";
        if (rc == 0) {
            API_ReleaseWebPage(kThread);
        }
        g_session = nullptr;
        return s.result;
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

    std::unordered_map<std::string, STFlowInfo> flows;
    if (!steps.empty()) {
        s.clock = steps.front().time;
        s.result.clockBegin = s.clock;
    }
    for (const Step &step : steps) {
        AdvanceClock(s, step.time);
        if (step.dns) {
            const DnsRecord &dns = trace.dns[step.index];
            s.dnsCache[dns.host] = dns;
        } else {
            Feed(s, flows, step.index);
        }
    }
    for (size_t runs = 0; s.timer.running && runs < kMaxDrainRuns; ++runs) {
        RunTimerOnce(s);
    }
    s.result.clockEnd = s.clock;
    s.releasing = true;
    API_ReleaseWebPage(kThread);
    g_session = nullptr;

    std::sort(s.result.pages.begin(), s.result.pages.end(),
              [](const PageResult &a, const PageResult &b) { return a.id < b.id; });
    return s.result;
}

}  // namespace replay
