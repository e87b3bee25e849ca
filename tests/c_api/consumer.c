/* A plain C11 daemon: includes the public headers, links the shared library
 * and drives one request through it. Exit status 0 means all checks held. */
#include <stdio.h>
#include <string.h>

#include "orvane_log.h"
#include "orvane_webpage.h"

static unsigned g_lines;

static uint32_t OnLog(uint32_t uiLevel, const char *pcLine)
{
    (void)uiLevel;
    (void)pcLine;
    g_lines++;
    return 0;
}

static uint32_t OnPageEnd(STPageKQI *pstKQI)
{
    (void)pstKQI;
    return 0;
}

static uint32_t OnDns(STDNSQueryInfo *pstQuery, STDNSQueryResult *pstResult)
{
    (void)pstQuery;
    (void)pstResult;
    return 0;
}

#define CHECK(cond)                                                   \
    do {                                                              \
        if (!(cond)) {                                                \
            fprintf(stderr, "check failed: %s (line %d)\n", #cond, __LINE__); \
            return 1;                                                 \
        }                                                             \
    } while (0)

int main(void)
{
    STWebPageConfig cfg = {LOG_LEVEL_ERROR, 0, 0};
    uint32_t flowSize = 0;
    CHECK(API_InitSDKLog(OnLog) == 0);
    CHECK(API_InitWebPage(0, &cfg, &flowSize, OnPageEnd, OnDns) == 0);
    CHECK(flowSize == sizeof(STFlowInfo));
    CHECK(API_InitWebPage(16, &cfg, &flowSize, OnPageEnd, OnDns) == 1);
    CHECK(g_auiTimeThreshold[17] == 5000);

    STFlowInfo flow;
    API_InitWebPageFlow(&flow);
    STWebPageEvent ev;
    memset(&ev, 0, sizeof(ev));
    ev.pucHost = (const unsigned char *)"www.example.com";
    ev.usHostLen = 15;
    ev.pucURL = (const unsigned char *)"/index.html";
    ev.usURLLen = 11;
    ev.ucReqMethod = 1;
    ev.ullMsgBeginTime = 1000000000ull;
    ev.ullMsgEndTime = 1001000000ull;
    uint64_t pageID = 0;
    CHECK(API_AssociateWebPage(0, &flow, &ev, &pageID) == 0);
    CHECK(pageID == 1);
    ev.usEventID = 7;
    CHECK(API_AssociateWebPage(0, &flow, &ev, &pageID) == 3);
    API_ReleaseWebPage(0);
    CHECK(g_pstWebPage[0] == NULL);
    printf("c consumer: ok (%u log lines)\n", g_lines);
    return 0;
}
