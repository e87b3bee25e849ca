/* A plain C11 daemon written from the README's integration contract: set-up
 * in order, a page timer that records its handle, one page (a redirect to
 * https, the page itself and its answer) fed as a daemon reports it, and the
 * page result checked. Exit status 0 means every check held. */
#include <stdio.h>
#include <string.h>

#include "orvane_log.h"
#include "orvane_webpage.h"

#define NS_PER_MS 1000000ull

static unsigned g_lines;
static STPageKQI g_result;
static unsigned g_results;
static PFPageTimerHandler g_timer;
static uint64_t g_timerHandle;
static unsigned g_timerStops;

static uint32_t OnLog(uint32_t uiLevel, const char *pcLine)
{
    (void)uiLevel;
    (void)pcLine;
    g_lines++;
    return 0;
}

/* The result is valid only during the call: copy it. */
static uint32_t OnPageEnd(STPageKQI *pstKQI)
{
    g_result = *pstKQI;
    g_results++;
    return 0;
}

/* The daemon's DNS cache: when the look-up of the host began (ns, the event
 * clock) and how long it took (ms). */
static uint32_t OnDns(STDNSQueryInfo *pstQuery, STDNSQueryResult *pstResult)
{
    if (pstQuery->usHostLen == 15 && memcmp(pstQuery->pcHost, "www.example.com", 15) == 0) {
        pstResult->ullDNSBeginTime = 1000000000ull - 50 * NS_PER_MS;
        pstResult->uiDnsDelay = 50;
    }
    return 0;
}

/* A real daemon arms a 5-second periodic timer on the feeding thread; the
 * handle goes into the first 8 bytes of the context. */
static uint32_t StartTimer(uint32_t uiThreadID, uint32_t uiPeriod, PFPageTimerHandler pfHandler, void *pvContext)
{
    (void)uiThreadID;
    if (uiPeriod != 5) {
        return 1;
    }
    g_timer = pfHandler;
    g_timerHandle = 77;
    memcpy(pvContext, &g_timerHandle, sizeof(g_timerHandle));
    return 0;
}

static uint32_t StopTimer(uint64_t ulPageTimer)
{
    if (ulPageTimer == g_timerHandle) {
        g_timerStops++;
        g_timer = NULL;
    }
    return 0;
}

static void SetText(const unsigned char **ppuc, uint16_t *pusLen, const char *pcText)
{
    *ppuc = (const unsigned char *)pcText;
    *pusLen = (uint16_t)strlen(pcText);
}

/* Requests carry their answer's status, Location and content type: the
 * library settles main requests and redirect chains from the request. URIs
 * go without their leading '/'. */
static STWebPageEvent Request(const char *pcUri, uint32_t uiStatus, const char *pcLocation, uint64_t ullBegin)
{
    STWebPageEvent ev;
    memset(&ev, 0, sizeof(ev));
    ev.ucProtol = 6;
    ev.usEventID = WEBPAGE_EVENT_REQUEST;
    ev.ucReqMethod = WEBPAGE_METHOD_GET;
    ev.usClientPort = 40001;
    ev.usServerPort = 80;
    ev.uiClientIp = 0x0A000002u;
    ev.uiServerIp = 0xC0000201u;
    SetText(&ev.pucHost, &ev.usHostLen, "www.example.com");
    SetText(&ev.pucURL, &ev.usURLLen, pcUri);
    SetText(&ev.pucContentType, &ev.usContentTypeLen, "text/html");
    if (pcLocation != NULL) {
        SetText(&ev.pucLocation, &ev.usLocationLen, pcLocation);
    }
    ev.usRspCode = uiStatus;
    ev.ullMsgBeginTime = ullBegin;
    ev.ullMsgEndTime = ullBegin + 1 * NS_PER_MS;
    ev.ullFirTime = 1000000000ull - 30 * NS_PER_MS; /* the flow's SYN */
    return ev;
}

static STWebPageEvent Response(const STWebPageEvent *pstRequest, uint64_t ullBegin, uint64_t ullEnd)
{
    STWebPageEvent ev = *pstRequest;
    ev.usEventID = WEBPAGE_EVENT_RESPONSE;
    ev.ucReqMethod = 0;
    ev.pucHost = ev.pucURL = ev.pucReferHost = ev.pucReferURL = NULL;
    ev.usHostLen = ev.usURLLen = ev.usReferHostLen = ev.usReferURLLen = 0;
    ev.ullMsgBeginTime = ullBegin;
    ev.ullMsgEndTime = ullEnd;
    return ev;
}

#define CHECK(cond)                                                                \
    do {                                                                           \
        if (!(cond)) {                                                             \
            fprintf(stderr, "check failed: %s (line %d)\n", #cond, __LINE__);      \
            return 1;                                                              \
        }                                                                          \
    } while (0)

int main(void)
{
    const uint64_t t0 = 1000000000ull;
    STWebPageConfig cfg = {LOG_LEVEL_ERROR, 0, 0};
    uint32_t flowSize = 0;
    CHECK(API_InitSDKLog(OnLog) == 0);
    CHECK(API_InitWebPage(0, &cfg, &flowSize, OnPageEnd, OnDns) == 0);
    CHECK(flowSize == sizeof(STFlowInfo));
    CHECK(API_InitWebPage(16, &cfg, &flowSize, OnPageEnd, OnDns) == 1);
    CHECK(API_InitWebPageTimer(0, StartTimer, StopTimer) == 0);
    CHECK(g_auiTimeThreshold[17] == 5000);

    STFlowInfo plain, secure;
    API_InitWebPageFlow(&plain);
    API_InitWebPageFlow(&secure);
    uint64_t pageID = 0;

    /* http redirects to https: the request carries the 301 and its Location. */
    STWebPageEvent ev = Request("", 301, "https://www.example.com/index.html", t0);
    CHECK(API_AssociateWebPage(0, &plain, &ev, &pageID) == WEBPAGE_OK);
    CHECK(pageID == 1);
    CHECK(g_timer != NULL);
    STWebPageEvent rsp = Response(&ev, t0 + 20 * NS_PER_MS, t0 + 21 * NS_PER_MS);
    CHECK(API_AssociateWebPage(0, &plain, &rsp, &pageID) == WEBPAGE_OK && pageID == 1);

    /* The page itself on the https flow: it follows the redirect. */
    ev = Request("index.html", 200, NULL, t0 + 60 * NS_PER_MS);
    ev.usServerPort = 443;
    ev.usClientPort = 40002;
    CHECK(API_AssociateWebPage(0, &secure, &ev, &pageID) == WEBPAGE_OK && pageID == 1);
    rsp = Response(&ev, t0 + 100 * NS_PER_MS, t0 + 120 * NS_PER_MS);
    CHECK(API_AssociateWebPage(0, &secure, &rsp, &pageID) == WEBPAGE_OK && pageID == 1);

    /* A black-listed host: success, page ID 0. An unknown event kind: 3. */
    STFlowInfo portal;
    API_InitWebPageFlow(&portal);
    ev = Request("", 200, NULL, t0 + 200 * NS_PER_MS);
    SetText(&ev.pucHost, &ev.usHostLen, "portal.example.com");
    CHECK(API_AssociateWebPage(0, &portal, &ev, &pageID) == WEBPAGE_OK && pageID == 0);
    ev.usEventID = 7;
    CHECK(API_AssociateWebPage(0, &portal, &ev, &pageID) == WEBPAGE_ERR_EVENT_ID);

    /* The quiet time (60 s) passes: the 13th run closes and reports the page
     * and, with no page left, stops the timer. */
    for (int run = 0; run < 13 && g_timer != NULL; ++run) {
        g_timer(0);
    }
    CHECK(g_results == 1 && g_timerStops == 1);
    CHECK(g_result.uiPageID == 1);
    CHECK(g_result.ucSuccFlag == 1 && g_result.usCauseCode == 200);
    CHECK(g_result.ucPageFlag == 0); /* an https redirect is never counted */
    CHECK(g_result.uiDnsDelay == 50);
    /* From the DNS begin (less than 10 s before the first request) to the end
     * of the last response. */
    CHECK(g_result.ullPageDelay == 170 * NS_PER_MS);

    API_ReleaseWebPage(0);
    CHECK(g_pstWebPage[0] == NULL);
    printf("c consumer: ok (%u log lines)\n", g_lines);
    return 0;
}
