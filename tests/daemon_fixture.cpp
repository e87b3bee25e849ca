#include "daemon_fixture.hpp"

#include "webpage_check.hpp"

#include <algorithm>
#include <cstring>

namespace orvane_test {

namespace {
const unsigned char *Bytes(const std::string &s)
{
    return s.empty() ? nullptr : reinterpret_cast<const unsigned char *>(s.data());
}
}  // namespace

STWebPageEvent Event::Build() const
{
    STWebPageEvent ev{};
    auto text = [](const std::string &s, const unsigned char *&p, uint16_t &n) {
        p = Bytes(s);
        n = static_cast<uint16_t>(s.size());
    };
    ev.ucProtol = 6;
    ev.ucFinRst = finRst;
    ev.usClientPort = clientPort;
    ev.usServerPort = serverPort;
    ev.uiClientIp = clientIp;
    ev.uiServerIp = serverIp;
    ev.usEventID = id;
    ev.ucReqMethod = (id == WEBPAGE_EVENT_REQUEST) ? method : 0;
    ev.usRspCode = code;
    text(host, ev.pucHost, ev.usHostLen);
    text(uri, ev.pucURL, ev.usURLLen);
    text(referHost, ev.pucReferHost, ev.usReferHostLen);
    text(referPath, ev.pucReferURL, ev.usReferURLLen);
    text(location, ev.pucLocation, ev.usLocationLen);
    text(contentType, ev.pucContentType, ev.usContentTypeLen);
    ev.ullMsgBeginTime = begin;
    ev.ullMsgEndTime = end != 0 ? end : begin;
    ev.ullFirTime = syn;
    return ev;
}

Event Req(std::string host, std::string uri, uint64_t begin, uint64_t end)
{
    Event e;
    e.host = std::move(host);
    e.uri = std::move(uri);
    e.begin = begin;
    e.end = end != 0 ? end : begin + kMs;
    return e;
}

Event Rsp(uint32_t code, uint64_t begin, uint64_t end, std::string contentType)
{
    Event e;
    e.id = WEBPAGE_EVENT_RESPONSE;
    e.code = code;
    e.begin = begin;
    e.end = end != 0 ? end : begin + kMs;
    e.contentType = std::move(contentType);
    return e;
}

void DaemonSinks::Clear() { *this = DaemonSinks(); }

DaemonSinks &Sinks()
{
    static DaemonSinks sinks;
    return sinks;
}

uint32_t CollectLog(uint32_t uiLevel, const char *pcLine)
{
    Sinks().logs.push_back({uiLevel, pcLine});
    return 0;
}

uint32_t CollectPageEnd(STPageKQI *pstKQI)
{
    Sinks().pages.push_back(*pstKQI);
    return 0;
}

// Nothing is cached: the result is left as the library passed it.
uint32_t AnswerDns(STDNSQueryInfo *pstQuery, STDNSQueryResult *)
{
    Sinks().dnsQueries.push_back(*pstQuery);
    return 0;
}

uint32_t StartTimer(uint32_t uiThreadID, uint32_t uiPeriod, PFPageTimerHandler, void *pvContext)
{
    EXPECT_EQ(uiPeriod, 5u);
    Sinks().timerStarts.push_back(uiThreadID);
    if (Sinks().storeTimerHandle) {
        uint64_t handle = Sinks().nextTimerHandle++;
        std::memcpy(pvContext, &handle, sizeof(handle));
    }
    return 0;
}

uint32_t StopTimer(uint64_t ulTimer)
{
    Sinks().timerStops.push_back(ulTimer);
    return 0;
}

void ResetLibrary()
{
    orvane_check::ResetLibraryGlobals();
    Sinks().Clear();
}

void DaemonTest::SetUp() { ResetLibrary(); }

void DaemonTest::TearDown()
{
    ResetLibrary();
    flows_.clear();
}

void DaemonTest::InitThreads(std::initializer_list<uint32_t> threads, uint16_t pageTimeOutSec, uint32_t logLevel)
{
    API_InitSDKLog(CollectLog);
    STWebPageConfig cfg{logLevel, pageTimeOutSec, 0};
    uint32_t flowSize = 0;
    for (uint32_t t : threads) {
        ASSERT_EQ(API_InitWebPage(t, &cfg, &flowSize, CollectPageEnd, AnswerDns), 0u) << "thread " << t;
        ASSERT_EQ(flowSize, 48u);
    }
    ASSERT_EQ(API_InitWebPageTimer(0, StartTimer, StopTimer), 0u);
}

STFlowInfo &DaemonTest::Flow(int n)
{
    auto it = flows_.find(n);
    if (it == flows_.end()) {
        it = flows_.emplace(n, STFlowInfo{}).first;
        API_InitWebPageFlow(&it->second);
    }
    return it->second;
}

uint32_t DaemonTest::Send(uint32_t thread, int flow, const Event &ev, uint64_t *pageID)
{
    const STWebPageEvent raw = ev.Build();
    return API_AssociateWebPage(thread, &Flow(flow), &raw, pageID);
}

uint64_t DaemonTest::Send(int flow, const Event &ev)
{
    uint64_t id = 0;
    uint32_t rc = Send(0, flow, ev, &id);
    EXPECT_TRUE(rc == 0 || rc == 4) << "rc " << rc;
    return id;
}

STEventInfo DaemonTest::Intake(uint32_t thread, int flow, const Event &ev)
{
    STEventInfo info;
    InitPageProcessInfo(static_cast<uint8_t>(thread), &Flow(flow), &info);
    const STWebPageEvent raw = ev.Build();
    EXPECT_EQ(ev.id == WEBPAGE_EVENT_REQUEST ? GetReqEventInfo(&raw, &info) : GetRspEventInfo(&raw, &info), 0u);
    return info;
}

void DaemonTest::RunTimer(uint32_t thread, int runs)
{
    while (runs-- > 0) {
        WebPageTimeOut(thread);
    }
}

void DaemonTest::DrainPages(uint32_t thread)
{
    for (int i = 0; i < 300 && OpenPages(thread) != 0; ++i) {
        WebPageTimeOut(thread);
    }
}

uint32_t DaemonTest::OpenPages(uint32_t thread) const
{
    const STWebPage *ctx = g_pstWebPage[thread];
    return ctx == nullptr ? 0 : ctx->stPageNodeList.uiNodeNum + ctx->stUcidPageNodeList.uiNodeNum;
}

STPageNode *DaemonTest::FindPage(uint32_t thread, uint64_t pageID) const
{
    STWebPage *ctx = g_pstWebPage[thread];
    if (ctx == nullptr) {
        return nullptr;
    }
    for (STTranManage *list : {&ctx->stPageNodeList, &ctx->stUcidPageNodeList}) {
        STTranNode *node = SeekNode(&pageID, list);
        if (node != nullptr) {
            return static_cast<STPageNode *>(TRAN_NODE_DATA(node));
        }
    }
    return nullptr;
}

bool DaemonTest::LogContains(const std::string &text) const
{
    return std::any_of(Sinks().logs.begin(), Sinks().logs.end(),
                       [&](const CapturedLog &l) { return l.line.find(text) != std::string::npos; });
}

}  // namespace orvane_test
