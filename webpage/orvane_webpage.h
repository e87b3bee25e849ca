/* Web page association API of liborvaneSDK: entry points, daemon callbacks
 * and the records that cross the library boundary (C11 / C++17). */
#ifndef ORVANE_WEBPAGE_H
#define ORVANE_WEBPAGE_H

#include <stddef.h>
#include <stdint.h>
#include "orvane_export.h"
#include "orvane_log.h"

ORVANE_BEGIN_DECLS

#define WEBPAGE_THREAD_NUM 16u

/* Event kinds in STWebPageEvent.usEventID. */
#define WEBPAGE_EVENT_REQUEST 0u
#define WEBPAGE_EVENT_RESPONSE 1u

/* Request methods in STWebPageEvent.ucReqMethod. */
#define WEBPAGE_METHOD_GET 1u
#define WEBPAGE_METHOD_POST 2u

/* Return codes of API_AssociateWebPage. */
#define WEBPAGE_OK 0u
#define WEBPAGE_ERR_PARAM 1u
#define WEBPAGE_ERR_NO_CONTEXT 2u
#define WEBPAGE_ERR_EVENT_ID 3u
#define WEBPAGE_ERR_NO_PAGE 4u

/* Library cause codes of STPageKQI.usCauseCode beyond HTTP statuses. */
#define WEBPAGE_CAUSE_LOW_SUCCESS_RATIO 2000u
#define WEBPAGE_CAUSE_UNANSWERED 2001u

struct STWebPage;
struct STPageNode;

/* One HTTP request or response as the daemon decoded it; 120 bytes. */
typedef struct STWebPageEvent {
    uint8_t ucProtol;
    uint8_t ucFinRst;
    uint16_t usClientPort;
    uint16_t usServerPort;
    uint16_t usHostLen;
    uint16_t usURLLen;
    uint16_t usReferHostLen;
    uint16_t usReferURLLen;
    uint16_t usLocationLen;
    uint16_t usContentTypeLen;
    uint16_t usReserved;
    uint32_t uiClientIp;
    uint32_t uiServerIp;
    uint32_t usEventID;
    uint32_t ucReqMethod;
    uint32_t usRspCode;
    uint32_t enNetworkType;
    uint32_t uiReserved;
    const unsigned char *pucHost;
    const unsigned char *pucURL;
    const unsigned char *pucReferHost;
    const unsigned char *pucReferURL;
    const unsigned char *pucLocation;
    const unsigned char *pucContentType;
    uint64_t ullMsgBeginTime;
    uint64_t ullMsgEndTime;
    uint64_t ullFirTime;
} STWebPageEvent;

/* The daemon's per-flow area, zeroed by API_InitWebPageFlow; 48 bytes. */
typedef struct STFlowInfo {
    uint8_t ucIsUcid;
    uint8_t ucIsBlack;
    uint8_t aucReserved[6];
    uint64_t ullSinglePageID;
    uint64_t ullAssociatePageID;
    struct STPageNode *pstSinglePage;
    struct STPageNode *pstAssociatePage;
    uint32_t uiPageType;
    uint32_t uiReserved;
} STFlowInfo;

/* The page result handed to the page-end callback; 24 bytes. */
typedef struct STPageKQI {
    uint8_t ucPageFlag;
    uint8_t ucSuccFlag;
    uint16_t usCauseCode;
    uint32_t uiDnsDelay;
    uint64_t uiPageID;
    uint64_t ullPageDelay;
} STPageKQI;

/* Log level and page time-out passed at set-up; 8 bytes. */
typedef struct STWebPageConfig {
    uint32_t enLogLevel;
    uint16_t usPageTimeOut;
    uint16_t usReserved;
} STWebPageConfig;

#define PAGE_CONTENT_TYPE_NUM 5
#define PAGE_CONTENT_TYPE_LEN 30
#define PAGE_FLASH_KEYWORD_NUM 3
#define PAGE_FLASH_KEYWORD_LEN 10
#define PAGE_HOST_BLACK_NUM 5
#define PAGE_HOST_BLACK_LEN 20
#define PAGE_INPUT_KEYWORD_LEN 10

/* Classification settings shared by all threads; 304 bytes. */
typedef struct STPageConfig {
    uint32_t uiReserved1;
    uint32_t uiReserved2;
    uint32_t uiHeartBeatHostKey;
    char aacContentType[PAGE_CONTENT_TYPE_NUM][PAGE_CONTENT_TYPE_LEN];
    char aacFlashKeyword[PAGE_FLASH_KEYWORD_NUM][PAGE_FLASH_KEYWORD_LEN];
    char aacHostBlackKeyword[PAGE_HOST_BLACK_NUM][PAGE_HOST_BLACK_LEN];
    char acUcInputKeyword[PAGE_INPUT_KEYWORD_LEN];
    uint8_t aucReserved[2];
} STPageConfig;

/* What the library asks the daemon's DNS cache at page creation. */
typedef struct STDNSQueryInfo {
    const char *pcHost;
    uint16_t usHostLen;
    uint16_t usReserved;
    uint32_t uiServerIp;
} STDNSQueryInfo;

typedef struct STDNSQueryResult {
    uint64_t ullDNSBeginTime;
    uint64_t ullReserved;
    uint32_t uiDnsDelay;
    uint32_t uiReserved;
} STDNSQueryResult;

/* Daemon callbacks. Their results are not used by the library. */
typedef uint32_t (*PFPageEndFunc)(STPageKQI *pstPageKQI);
typedef uint32_t (*PFDNSQueryFunc)(STDNSQueryInfo *pstQuery, STDNSQueryResult *pstResult);
typedef void (*PFPageTimerHandler)(uint32_t uiThreadID);
/* Starts a periodic timer running pfHandler(uiThreadID) every uiPeriod seconds
 * and stores its non-zero handle in the first 8 bytes of pvContext. */
typedef uint32_t (*PFStartPageTimer)(uint32_t uiThreadID, uint32_t uiPeriod,
                                     PFPageTimerHandler pfHandler, void *pvContext);
typedef uint32_t (*PFStopPageTimer)(uint64_t ulPageTimer);

typedef struct STWebPageTimer {
    PFStartPageTimer pfStartPageTimer;
    PFStopPageTimer pfStopPageTimer;
} STWebPageTimer;

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
ORVANE_STATIC_ASSERT(sizeof(STWebPageEvent) == 120, "STWebPageEvent is 120 bytes");
ORVANE_STATIC_ASSERT(offsetof(STWebPageEvent, uiClientIp) == 20, "uiClientIp at 20");
ORVANE_STATIC_ASSERT(offsetof(STWebPageEvent, usEventID) == 28, "usEventID at 28");
ORVANE_STATIC_ASSERT(offsetof(STWebPageEvent, enNetworkType) == 40, "enNetworkType at 40");
ORVANE_STATIC_ASSERT(offsetof(STWebPageEvent, pucHost) == 48, "pucHost at 48");
ORVANE_STATIC_ASSERT(offsetof(STWebPageEvent, pucContentType) == 88, "pucContentType at 88");
ORVANE_STATIC_ASSERT(offsetof(STWebPageEvent, ullMsgBeginTime) == 96, "ullMsgBeginTime at 96");
ORVANE_STATIC_ASSERT(offsetof(STWebPageEvent, ullFirTime) == 112, "ullFirTime at 112");
ORVANE_STATIC_ASSERT(sizeof(STFlowInfo) == 48, "STFlowInfo is 48 bytes");
ORVANE_STATIC_ASSERT(offsetof(STFlowInfo, ullSinglePageID) == 8, "ullSinglePageID at 8");
ORVANE_STATIC_ASSERT(offsetof(STFlowInfo, pstSinglePage) == 24, "pstSinglePage at 24");
ORVANE_STATIC_ASSERT(offsetof(STFlowInfo, uiPageType) == 40, "uiPageType at 40");
ORVANE_STATIC_ASSERT(sizeof(STPageKQI) == 24, "STPageKQI is 24 bytes");
ORVANE_STATIC_ASSERT(offsetof(STPageKQI, uiDnsDelay) == 4, "uiDnsDelay at 4");
ORVANE_STATIC_ASSERT(offsetof(STPageKQI, uiPageID) == 8, "uiPageID at 8");
ORVANE_STATIC_ASSERT(offsetof(STPageKQI, ullPageDelay) == 16, "ullPageDelay at 16");
ORVANE_STATIC_ASSERT(sizeof(STWebPageConfig) == 8, "STWebPageConfig is 8 bytes");
ORVANE_STATIC_ASSERT(offsetof(STWebPageConfig, usPageTimeOut) == 4, "usPageTimeOut at 4");
ORVANE_STATIC_ASSERT(sizeof(STPageConfig) == 304, "STPageConfig is 304 bytes");
ORVANE_STATIC_ASSERT(offsetof(STPageConfig, uiHeartBeatHostKey) == 8, "heartbeat key at 8");
ORVANE_STATIC_ASSERT(offsetof(STPageConfig, aacContentType) == 12, "content types at 12");
ORVANE_STATIC_ASSERT(offsetof(STPageConfig, aacFlashKeyword) == 162, "flash keywords at 162");
ORVANE_STATIC_ASSERT(offsetof(STPageConfig, aacHostBlackKeyword) == 192, "host keywords at 192");
ORVANE_STATIC_ASSERT(offsetof(STPageConfig, acUcInputKeyword) == 292, "input keyword at 292");
ORVANE_STATIC_ASSERT(sizeof(STDNSQueryInfo) == 16, "STDNSQueryInfo is 16 bytes");
ORVANE_STATIC_ASSERT(offsetof(STDNSQueryResult, uiDnsDelay) == 16, "uiDnsDelay at 16");
ORVANE_STATIC_ASSERT(sizeof(STWebPageTimer) == 16, "STWebPageTimer is 16 bytes");
#endif

/* Shared configuration, written at set-up and read by every thread. */
ORVANE_API extern STWebPageConfig g_stWebPageConfig;
ORVANE_API extern STPageConfig g_stPageConfig;
ORVANE_API extern STWebPageTimer g_stWebPageTimer;
ORVANE_API extern uint8_t g_stTestConfig;
ORVANE_API extern uint32_t g_auiTimeThreshold[24];
ORVANE_API extern uint16_t g_ausCauseCode407[16];
ORVANE_API extern PFPageEndFunc g_PageEndFunc;
ORVANE_API extern PFDNSQueryFunc g_DNSQueryFunc;
/* Per-thread contexts and page-ID counters. */
ORVANE_API extern struct STWebPage *g_pstWebPage[16];
ORVANE_API extern uint64_t g_aulPageID[16];

ORVANE_API uint32_t API_InitConfig(uint32_t uiThreadID, const STWebPageConfig *pstConfig);
ORVANE_API uint32_t API_InitWebPage(uint32_t uiThreadID, const STWebPageConfig *pstConfig,
                                    uint32_t *puiFlowInfoSize, PFPageEndFunc pfPageEnd,
                                    PFDNSQueryFunc pfDNSQuery);
ORVANE_API uint32_t API_InitWebPageTimer(uint32_t uiThreadID, PFStartPageTimer pfStart,
                                         PFStopPageTimer pfStop);
ORVANE_API void API_InitWebPageFlow(STFlowInfo *pstFlowInfo);
ORVANE_API uint32_t API_AssociateWebPage(uint32_t uiThreadID, STFlowInfo *pstFlowInfo,
                                         const STWebPageEvent *pstEvent, uint64_t *pullPageID);
ORVANE_API void API_ReleaseWebPage(uint32_t uiThreadID);
ORVANE_API void API_ReleaseWebPageNode(uint32_t uiThreadID, uint32_t ucReport);
ORVANE_API void API_PrintWebPageLog(uint32_t uiThreadID, uint32_t uiPrintType);
ORVANE_API uint32_t API_TestConfig(uint32_t uiThreadID, uint8_t ucTestSwitch);
ORVANE_API void InitWebPageConfig(STPageConfig *pstPageConfig);
/* The page timer's handler: run it every 5 seconds on the thread's own thread. */
ORVANE_API void WebPageTimeOut(uint32_t uiThreadID);

ORVANE_END_DECLS

#endif
