#include "bench_daemon.hpp"

#include <cstdio>
#include <cstring>

namespace bench {

namespace {

uint32_t CountLine(uint32_t, const char *)
{
    ++Stats().logLines;
    return 0;
}

uint32_t CountPage(STPageKQI *)
{
    ++Stats().pagesReported;
    return 0;
}

uint32_t AnswerDns(STDNSQueryInfo *, STDNSQueryResult *result)
{
    result->uiDnsDelay = 20;
    return 0;
}

uint32_t StartTimer(uint32_t, uint32_t, PFPageTimerHandler, void *context)
{
    *static_cast<uint64_t *>(context) = 1;  // the handle; the runs come from Replayer
    return 0;
}

uint32_t StopTimer(uint64_t) { return 0; }

const unsigned char *Text(std::deque<std::string> *keep, const std::string &s, uint16_t *len)
{
    *len = static_cast<uint16_t>(s.size());
    keep->push_back(s);
    return reinterpret_cast<const unsigned char *>(keep->back().c_str());
}

STWebPageEvent Request(std::deque<std::string> *keep, const std::string &host, const std::string &uri,
                       const std::string &referHost, const std::string &referPath, uint32_t status,
                       const std::string &location, uint64_t begin)
{
    STWebPageEvent e;
    std::memset(&e, 0, sizeof(e));
    e.ucProtol = 6;
    e.usClientPort = 40000;
    e.usServerPort = 80;
    e.uiClientIp = 0x0A000002u;
    e.uiServerIp = 0xC6336401u;
    e.usEventID = WEBPAGE_EVENT_REQUEST;
    e.ucReqMethod = WEBPAGE_METHOD_GET;
    e.usRspCode = status;
    e.enNetworkType = 1;
    e.pucHost = Text(keep, host, &e.usHostLen);
    e.pucURL = Text(keep, uri, &e.usURLLen);
    e.pucReferHost = Text(keep, referHost, &e.usReferHostLen);
    e.pucReferURL = Text(keep, referPath, &e.usReferURLLen);
    if (!location.empty()) {
        e.pucLocation = Text(keep, location, &e.usLocationLen);
    }
    e.pucContentType = Text(keep, "text/html", &e.usContentTypeLen);
    e.ullMsgBeginTime = begin;
    e.ullMsgEndTime = begin + kMs;
    return e;
}

}  // namespace

DaemonStats &Stats()
{
    static DaemonStats stats;
    return stats;
}

bool StartDaemon(uint32_t logLevel)
{
    StopDaemon();
    Stats() = DaemonStats();
    API_InitSDKLog(CountLine);
    STWebPageConfig config{logLevel, 0, 0};
    uint32_t flowSize = 0;
    if (API_InitWebPage(0, &config, &flowSize, CountPage, AnswerDns) != 0 ||
        API_InitWebPageTimer(0, StartTimer, StopTimer) != 0) {
        return false;
    }
    return flowSize == sizeof(STFlowInfo);
}

void StopDaemon()
{
    if (g_pstWebPage[0] != nullptr) {
        API_ReleaseWebPageNode(0, 0);
        API_ReleaseWebPage(0);
    }
}

size_t ContextBytes(const STWebPage *ctx)
{
    auto blocks = [](const CMemPool &pool) {
        return static_cast<size_t>(pool.m_uiInitNodeNum) * (pool.m_uiNodeSize + sizeof(STTranNode)) +
               static_cast<size_t>(pool.m_ucGrowBlockNum) * pool.m_uiGrowNodeNum *
                   (pool.m_uiNodeSize + sizeof(STTranNode));
    };
    return sizeof(STWebPage) + blocks(ctx->stPageNodePool) + blocks(ctx->stMatchStrMemPool);
}

Replayer::Replayer(const Stream &stream)
{
    const size_t copies = stream.events.empty() ? 1 : (kMinPass + stream.events.size() - 1) / stream.events.size();
    events_.reserve(copies * stream.events.size());
    for (size_t c = 0; c < copies; ++c) {
        for (StreamEvent se : stream.events) {
            se.ev.ullMsgBeginTime += c * stream.span;
            se.ev.ullMsgEndTime += c * stream.span;
            if (se.ev.ullFirTime != 0) {
                se.ev.ullFirTime += c * stream.span;
            }
            se.flow += static_cast<uint32_t>(c * stream.flows);
            events_.push_back(se);
        }
    }
    flows_.resize(copies * stream.flows);
    span_ = copies * stream.span;
    for (STFlowInfo &f : flows_) {
        API_InitWebPageFlow(&f);
    }
}

void Replayer::Repeat()
{
    for (StreamEvent &se : events_) {
        se.ev.ullMsgBeginTime += span_;
        se.ev.ullMsgEndTime += span_;
        if (se.ev.ullFirTime != 0) {
            se.ev.ullFirTime += span_;
        }
    }
    for (STFlowInfo &f : flows_) {
        API_InitWebPageFlow(&f);
    }
    next_ = 0;
}

std::string WorstCase::Build()
{
    constexpr uint32_t kPages = PAGE_NODE_NUM;
    constexpr uint32_t kStringsPerPage = MATCH_STR_NODE_NUM / PAGE_NODE_NUM;
    constexpr uint64_t kT0 = 10000 * kSec;
    // Every page but the oldest was last active 2.5 s before the event: inside
    // the location, referer-URL and host windows (15 s, 3.5 s, 3 s), so their
    // string tests run and fail, but outside the 2 s of the time match.
    constexpr uint64_t kStale = kT0 - 2500 * kMs;
    STWebPage *ctx = g_pstWebPage[0];
    if (ctx == nullptr) {
        return "no context for thread 0";
    }
    std::vector<STFlowInfo> flows(kPages);
    for (uint32_t k = 0; k < kPages; ++k) {
        char host[64], next[96];
        std::snprintf(host, sizeof(host), "www.page%02u.example", k);
        std::snprintf(next, sizeof(next), "http://%s/next/step-%u.html", host, k);
        const STWebPageEvent e = Request(&texts, host, "index.html", "portal.example", "links.html", 302, next,
                                         kT0 - 3 * kSec);
        STEventInfo info;
        API_InitWebPageFlow(&flows[k]);
        InitPageProcessInfo(0, &flows[k], &info);
        if (GetReqEventInfo(&e, &info) != 0) {
            return "GetReqEventInfo refused a page's request";
        }
        const uint64_t id = InsertPageNode(&info, PAGE_TYPE_ASSOCIATE, 0);
        STTranNode *node = SeekNode(&id, &ctx->stPageNodeList);
        if (id == 0 || node == nullptr) {
            return "page " + std::to_string(k) + " was not created";
        }
        STPageNode *page = static_cast<STPageNode *>(TRAN_NODE_DATA(node));
        if (k == 0) {
            expectedPage = id;
        }
        for (uint32_t j = 0; j < kStringsPerPage; ++j) {
            char subHost[64], uri[64], refHost[64], loc[96];
            std::snprintf(subHost, sizeof(subHost), "cdn%u.page%02u.example", j, k);
            std::snprintf(uri, sizeof(uri), "assets/r%u.js", j);
            std::snprintf(refHost, sizeof(refHost), "www.page%02u.example", k);
            std::snprintf(loc, sizeof(loc), "http://%s/moved/r%u.js", subHost, j);
            std::string path = "section/s" + std::to_string(j) + ".html";
            const STWebPageEvent s = Request(&texts, subHost, uri, refHost, path, 302, loc, kStale);
            STEventInfo sub;
            InitPageProcessInfo(0, &flows[k], &sub);
            GetReqEventInfo(&s, &sub);
            sub.uiMatchLevel = 1;
            // Three URLs, three hosts, three referers and one location per page.
            static const uint32_t kKinds[] = {MATCH_STR_URL,     MATCH_STR_URL,     MATCH_STR_URL,
                                              MATCH_STR_HOST,    MATCH_STR_HOST,    MATCH_STR_HOST,
                                              MATCH_STR_REFERER, MATCH_STR_REFERER, MATCH_STR_REFERER,
                                              MATCH_STR_LOCATION};
            SaveString(&sub, page, kStale, kStale, kKinds[j % 10]);
        }
        page->ullPageFirReq = kT0 - 3 * kSec;
        page->ullPageLastReq = page->ullPageLastRsp = (k == 0) ? kT0 - kSec : kStale;
    }
    if (GetTranNodeNum(&ctx->stPageNodeList) != kPages || GetFreeNodeNum(&ctx->stMatchStrMemPool) != 0) {
        return "expected 30 pages and a full string pool, got " +
               std::to_string(GetTranNodeNum(&ctx->stPageNodeList)) + " pages and " +
               std::to_string(GetFreeNodeNum(&ctx->stMatchStrMemPool)) + " free strings";
    }
    event = Request(&texts, "elsewhere.example", "no/such/path.js", "nowhere.example", "x.html", 200, "", kT0);
    event.pucContentType = Text(&texts, "application/javascript", &event.usContentTypeLen);
    const uint64_t got = Send();
    if (got != expectedPage || Send() != expectedPage) {
        return "the time match gave page " + std::to_string(got) + ", not the oldest page " +
               std::to_string(expectedPage);
    }
    if (GetTranNodeNum(&ctx->stPageNodeList) != kPages || GetFreeNodeNum(&ctx->stMatchStrMemPool) != 0) {
        return "the worst-case event changed the number of pages or strings";
    }
    return {};
}

}  // namespace bench
