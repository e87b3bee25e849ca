/* Records and operations of the page association behind the public API.
 * Every operation here is exported by name for the daemon's diagnostics and
 * tests; the layouts are fixed for the 64-bit target (C11 / C++17). */
#ifndef ORVANE_WEBPAGE_INTERNAL_H
#define ORVANE_WEBPAGE_INTERNAL_H

#include <stddef.h>
#include <stdint.h>
#include "orvane_webpage.h"
#include "tran_list.h"

ORVANE_BEGIN_DECLS

/* Thread numbers outside 0..15 that log lines use for "no known thread". */
#define LOG_TID_NONE 255u
#define LOG_TID_ANY 16u

/* Pool sizes of one thread context. */
#define PAGE_NODE_NUM 30u
#define PAGE_NODE_SIZE 976u
#define MATCH_STR_NODE_NUM 300u
#define MATCH_STR_NODE_SIZE 160u
#define FLOW_INFO_SIZE 48u

/* Text capacities (the arrays hold one byte more for the NUL). */
#define HOST_MAX_LEN 64u
#define URL_MAX_LEN 256u
#define REFERER_MAX_LEN 256u
#define LOCATION_MAX_LEN 128u
#define CONTENT_TYPE_MAX_LEN 64u
#define URI_MAX_LEN 128u
#define REFERER_PATH_MAX_LEN 128u
#define MATCH_STR_MAX_LEN 128u

#define PAGE_ID_BLACK UINT64_MAX
#define PAGE_ID_MASK 0x0FFFFFFFFFFFFFFFull
#define PAGE_ID_THREAD_SHIFT 60u
#define COMPARE_OUTSIDE 0xFFFFFFFFu
#define METHOD_NONE 0xFFFFu
#define MATCH_LEVEL_NONE 5u
#define MATCH_LEVEL_SAVE_MAX 3u
#define SYN_TIME_MAX_GAP_NS 5000000000ull
#define PAGE_TIMER_PERIOD_S 5u

enum {
    PAGE_TYPE_NONE = 0,
    PAGE_TYPE_SINGLE = 1,
    PAGE_TYPE_ASSOCIATE = 2
};

enum {
    PAGE_FLAG_SUCCESS = 0x0001,
    PAGE_FLAG_WEBTYPE = 0x0002,
    PAGE_FLAG_HAS_CAUSE = 0x0004,
    PAGE_FLAG_REDIRECT = 0x0008,
    PAGE_FLAG_ALL_POST = 0x0010,
    PAGE_FLAG_MAIN_REQ = 0x0020,
    PAGE_FLAG_HTTPS_REDIRECT = 0x0080
};

/* What an association rule compares (enCompareType). */
enum {
    COMPARE_URL_WITH_MAIN_REQ_LOCATION = 0,
    COMPARE_REFERER_WITH_MAIN_REQ_URL = 1,
    COMPARE_HOST_WITH_MAIN_REQ_HOST = 2,
    COMPARE_URL_WITH_SUB_REQ_LOCATION = 3,
    COMPARE_REFERER_WITH_SUB_REQ_URL = 4,
    COMPARE_HOST_WITH_SUB_REQ_HOST = 5,
    COMPARE_REFERER_WITH_REFERER = 6,
    COMPARE_NONE = 7,
    COMPARE_TRANS_WITH_PAGE = 8,
    COMPARE_APP_CORRELATION = 9,
    COMPARE_TRANS_WITH_PAGE_ALT = 10
};

/* Rows of g_auiTimeThreshold (4 network-type columns each). */
enum {
    TIME_THRESHOLD_TRANS_WITH_PAGE = 0,
    TIME_THRESHOLD_HOST = 1,
    TIME_THRESHOLD_REFERER_URL = 2,
    TIME_THRESHOLD_URL_LOCATION = 3,
    TIME_THRESHOLD_APP_CORRELATION = 4,
    TIME_THRESHOLD_REFERER_REFERER = 5
};

/* Kinds of saved match strings. */
enum {
    MATCH_STR_LOCATION = 2,
    MATCH_STR_HOST = 5,
    MATCH_STR_URL = 6,
    MATCH_STR_REFERER = 7
};

/* How a page is being closed. */
enum {
    PAGE_PROC_TIMER = 1,
    PAGE_PROC_RELEASE = 2,
    PAGE_PROC_RELEASE_NODE = 3
};

/* List selector of the flow look-ups and the timeout walk. */
enum {
    PAGE_LIST_ORDINARY = 0,
    PAGE_LIST_UCID = 1
};

/* One caller thread's association context. ulPageTimer must stay first:
 * the daemon's timer start callback writes the handle there. */
typedef struct STWebPage {
    uint64_t ulPageTimer;
    CMemPool stPageNodePool;
    STTranManage stPageNodeList;
    STTranManage stUcidPageNodeList;
    CMemPool stMatchStrMemPool;
} STWebPage;

/* The working record of one event: normalised, lower-cased, hashed texts. */
typedef struct STEventInfo {
    uint8_t ucThreadID;
    uint8_t ucLocationHttps;
    uint16_t usClientPort;
    uint16_t usServerPort;
    uint16_t usCauseCode;
    uint16_t usHostLen;
    uint16_t usURLLen;
    uint16_t usRefererUrlLen;
    uint16_t usLocationLen;
    uint16_t usContentTypeLen;
    uint16_t usUriLen;
    uint32_t uiClientIp;
    uint32_t uiServerIp;
    uint32_t uiHostHashKey;
    uint32_t uiURLHashKey;
    uint32_t uiRefererHashKey;
    uint32_t uiLocationHashKey;
    char acHost[HOST_MAX_LEN + 1];
    char acURL[URL_MAX_LEN + 1];
    char acRefererUrl[REFERER_MAX_LEN + 1];
    char acLocation[LOCATION_MAX_LEN + 1];
    char acContentType[CONTENT_TYPE_MAX_LEN + 1];
    char acUri[URI_MAX_LEN + 1];
    uint64_t ullReqBeginTime;
    uint64_t ullReqEndTime;
    uint64_t ullRspBeginTime;
    uint64_t ullRspEndTime;
    uint64_t ullMsgEndTime;
    uint64_t ullFirTime;
    STFlowInfo *pstFlowInfo;
    uint32_t uiReqMethod;
    uint32_t uiMatchLevel;
    uint32_t enNetworkType;
    uint32_t uiEventID;
    uint8_t ucFinRst;
} STEventInfo;

/* One open page, the user area of a page-pool node. */
typedef struct STPageNode {
    uint8_t ucIsUcidPage;
    uint8_t ucTimeOutNum;
    uint16_t usReqNum;
    uint16_t usRspNum;
    uint16_t usRspSuccNum;
    uint16_t usGetNum;
    uint16_t usPostNum;
    uint16_t usGetSuccNum;
    uint16_t usPostSuccNum;
    uint16_t usMainCauseCode;
    uint16_t usCauseCode;
    uint16_t usPageFlag;
    uint16_t usHostLen;
    uint16_t usURLLen;
    uint16_t usLocationLen;
    uint32_t uiHostKey;
    uint32_t uiURLKey;
    uint32_t uiRefererKey;
    uint32_t uiLocationKey;
    uint32_t uiDnsDelay;
    uint64_t ullDNSBeginTime;
    uint64_t uiPageID;
    uint64_t ullPageFirReq;
    uint64_t ullPageLastReq;
    uint64_t ullPageLastRsp;
    char acHost[HOST_MAX_LEN + 1];
    char acURL[URL_MAX_LEN + 1];
    char acLocation[LOCATION_MAX_LEN + 1];
    uint32_t uiPageType;
    uint32_t enNetworkType;
    STTranManage stHostList;
    STTranManage stURLList;
    STTranManage stRefererList;
    STTranManage stLocationList;
} STPageNode;

/* One saved match string, the user area of a match-string pool node. */
typedef struct STMatchStrNode {
    uint64_t ullBeginTime;
    uint64_t ullEndTime;
    uint32_t uiHashKey;
    uint16_t usStrLen;
    char acStr[MATCH_STR_MAX_LEN + 1];
    uint32_t uiMatchLevel;
} STMatchStrNode;

/* What one association rule compares: the event's side and the list walked. */
typedef struct STCompareInfo {
    STTranManage *pstCompareList;
    uint32_t uiHostKey;
    uint32_t uiURLKey;
    uint32_t uiRefererKey;
    uint32_t uiClientIp;
    uint32_t uiServerIp;
    uint16_t usHostLen;
    uint16_t usHostMaxLen;
    uint16_t usURLLen;
    uint16_t usURLMaxLen;
    uint16_t usRefererLen;
    uint16_t usRefererMaxLen;
    uint16_t usClientPort;
    uint16_t usServerPort;
    char *pcHost;
    char *pcURL;
    char *pcReferer;
} STCompareInfo;

ORVANE_STATIC_ASSERT(sizeof(STPageNode) <= PAGE_NODE_SIZE, "a page fits its pool node");
ORVANE_STATIC_ASSERT(sizeof(STMatchStrNode) <= MATCH_STR_NODE_SIZE, "a match string fits its pool node");
ORVANE_STATIC_ASSERT(offsetof(STWebPage, ulPageTimer) == 0, "timer handle is the context's first member");

/* Event intake */
ORVANE_API uint32_t GetReqEventInfo(const STWebPageEvent *pstEvent, STEventInfo *pstInfo);
ORVANE_API uint32_t GetRspEventInfo(const STWebPageEvent *pstEvent, STEventInfo *pstInfo);
ORVANE_API uint32_t StrlwrAndBKDRHash(char *pcText, uint32_t uiCount);
ORVANE_API void AssemblyString(char *pcDst, uint16_t *pusDstLen, const char *pcSrc, uint16_t usSrcLen,
                               uint16_t usDstMax);
ORVANE_API void ProcLocation(char *pcLocation, uint16_t usMax, uint16_t *pusLen, uint32_t *puiHashKey);
ORVANE_API void LocationIsHttps(STEventInfo *pstInfo, uint16_t usCompareLen);
ORVANE_API uint32_t IsRedirect(uint16_t usCauseCode);
ORVANE_API uint32_t Is407CauseCode(uint16_t usCauseCode);

/* Page store */
ORVANE_API uint64_t InsertPageNode(STEventInfo *pstInfo, uint32_t uiPageType, uint8_t bIsAllRuleFail);
ORVANE_API void SaveFirReqString(STEventInfo *pstInfo, STPageNode *pstPage);
ORVANE_API void InitPageNode(STPageNode *pstPage);
ORVANE_API void InitPageProcessInfo(uint8_t ucThreadID, STFlowInfo *pstFlowInfo, STEventInfo *pstInfo);
ORVANE_API STPageNode *GetSinglePageNodeByFlowInfo(STEventInfo *pstInfo, uint8_t ucListType);
ORVANE_API STPageNode *GetAssociatePageNodeByFlowInfo(STEventInfo *pstInfo, uint8_t ucListType);
ORVANE_API STPageNode *GetPageNodeByFlowInfo(STEventInfo *pstInfo, uint8_t ucListType);

/* Page update */
ORVANE_API uint32_t UpdatePageNode(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t uiPageType);
ORVANE_API void UpdatePageReqAndRspTime(STPageNode *pstPage, STEventInfo *pstInfo);
ORVANE_API void SetMainPageReq(STPageNode *pstPage, STEventInfo *pstInfo);
ORVANE_API uint32_t IsRsponseOK(uint16_t usCauseCode);
ORVANE_API void UpdateMethodInfo(STPageNode *pstPage, STEventInfo *pstInfo);

/* Request classification and heartbeat */
ORVANE_API uint8_t IsWebType(const char *pcContentType, uint16_t usLen, uint16_t usMax, uint16_t usCauseCode);
ORVANE_API uint8_t IsBlackList(char *pcURL, uint16_t usURLLen, uint16_t usURLMax, char *pcReferer,
                               uint16_t usRefererLen, uint16_t usRefererMax, char *pcContentType,
                               uint16_t usContentTypeLen, uint16_t usContentTypeMax);
ORVANE_API uint8_t IsHostBlackList(char *pcHost, uint16_t usLen, uint16_t usMax);
ORVANE_API uint8_t IsUrlBlackList(char *pcURL, uint16_t usLen, uint16_t usMax);
ORVANE_API uint32_t IsHeartBreak(uint32_t uiHostHashKey);
ORVANE_API uint64_t ProcessHeartBeat(STEventInfo *pstInfo);

/* Match driver */
ORVANE_API uint64_t WebPageEventReqProcess(STEventInfo *pstInfo, const STWebPageEvent *pstEvent);
ORVANE_API uint64_t WebPageMsgMatch(STEventInfo *pstInfo);
ORVANE_API uint64_t ProcessNoMsgOrMatchFail(STEventInfo *pstInfo, uint8_t bIsAllRuleMatchFail);
ORVANE_API uint64_t WebPageEventRspProcess(STEventInfo *pstInfo, const STWebPageEvent *pstEvent);

/* Main-request comparison */
ORVANE_API uint32_t GetCompareInfo(STEventInfo *pstInfo, uint32_t enCompareType, STCompareInfo *pstCompare);
ORVANE_API void StrcatUriWithPort(char *pcDst, uint16_t *pusLen, uint16_t usMax, const char *pcPath,
                                  uint16_t usPathLen, uint16_t usPort);
ORVANE_API uint8_t IsUrlSameAsLocation(STCompareInfo *pstCompare, char *pcLocation, uint16_t usLocationLen);
ORVANE_API uint8_t IsRefererSameAsUrl(STCompareInfo *pstCompare, char *pcURL, uint16_t usURLLen,
                                      const char *pcHost, uint16_t usHostLen);
ORVANE_API uint32_t CompareMainReqStrWithDiffType(STPageNode *pstPage, STCompareInfo *pstCompare,
                                                  uint32_t enCompareType);
ORVANE_API uint64_t CompareMainReqString(STEventInfo *pstInfo, STCompareInfo *pstCompare, uint32_t enCompareType);
ORVANE_API uint64_t SpecialProcHostWithMainReqHost(STPageNode *pstPage, STEventInfo *pstInfo,
                                                   STCompareInfo *pstCompare, uint32_t enCompareType);
ORVANE_API void SpecialProcUrlWithMainReqLocation(STPageNode *pstPage, STEventInfo *pstInfo);
ORVANE_API uint64_t CompareMainReqCommon(STEventInfo *pstInfo, uint32_t enCompareType);

/* Sub-request and referer comparison */
ORVANE_API STPageNode *GetLatelyAssociatePageNode(STEventInfo *pstInfo);
ORVANE_API uint32_t GetSubCompareInfo(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t enCompareType,
                                      STCompareInfo *pstCompare);
ORVANE_API uint32_t CompareSubReqStrWithDiffType(STMatchStrNode *pstStr, STCompareInfo *pstCompare,
                                                 const char *pcHost, uint16_t usHostLen, uint32_t enCompareType);
ORVANE_API uint64_t CompareSubReqString(STEventInfo *pstInfo, STPageNode *pstPage, STCompareInfo *pstCompare,
                                        uint32_t enCompareType);
ORVANE_API uint64_t CompareRefererWithAllReqReferer(STEventInfo *pstInfo);
ORVANE_API uint64_t CompareRefererWithReferer(STEventInfo *pstInfo, STPageNode *pstPage);
ORVANE_API uint64_t ProcessSpecialUri(STEventInfo *pstInfo);
ORVANE_API uint64_t CompareSubReqCommon(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t enCompareType);
ORVANE_API uint64_t CompareUrlWithSubReqLocation(STEventInfo *pstInfo);
ORVANE_API uint64_t CompareRefererWithSubReqUrl(STEventInfo *pstInfo);
ORVANE_API uint64_t CompareHostWithSubReqHost(STEventInfo *pstInfo);

/* Time windows: 0 inside, COMPARE_OUTSIDE outside. */
ORVANE_API uint32_t CompareMsgTime(uint64_t ullPageFirReq, uint64_t ullReqBeginTime, uint64_t ullReqEndTime,
                                   uint64_t ullRefBeginTime, uint64_t ullRefEndTime, uint32_t enCompareType,
                                   uint32_t enNetworkType, uint16_t usPageCauseCode, uint16_t usEventCauseCode);
ORVANE_API uint32_t CompareMsgTimeUrlWithMainReqLocation(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                         uint64_t ullRefEnd, uint32_t enNetworkType);
ORVANE_API uint32_t CompareMsgTimeUrlWithSubReqLocation(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                        uint64_t ullRefEnd, uint32_t enNetworkType);
ORVANE_API uint32_t CompareMsgTimeRefererWithMainReqUrl(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                        uint64_t ullRefEnd, uint32_t enNetworkType);
ORVANE_API uint32_t CompareMsgTimeRefererWithSubReqUrl(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                       uint64_t ullRefEnd, uint32_t enNetworkType);
ORVANE_API uint32_t CompareMsgTimeRefererWithReferer(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                     uint64_t ullRefEnd, uint32_t enNetworkType);
ORVANE_API uint32_t CompareMsgTimeHostWithMainReqHost(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                      uint64_t ullRefEnd, uint32_t enNetworkType,
                                                      uint16_t usPageCauseCode);
ORVANE_API uint32_t CompareMsgTimeHostWithSubReqHost(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                     uint64_t ullRefEnd, uint32_t enNetworkType,
                                                     uint16_t usPageCauseCode);
ORVANE_API uint32_t CompareMsgTimeTransWithPage(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                uint64_t ullRefEnd, uint32_t enNetworkType, uint16_t usEventCauseCode);
ORVANE_API uint32_t CompareMsgTimeAppCorrelation(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                                 uint64_t ullRefEnd, uint32_t enNetworkType, uint16_t usEventCauseCode);
ORVANE_API uint64_t CompareMsgTimeWithAllPageNode(STEventInfo *pstInfo);

/* UCID pages */
ORVANE_API uint32_t IsUrlContainsUcid(char *pcText, uint16_t usLen, uint16_t usTermPos);
ORVANE_API uint64_t WebPageUcidMsgMatch(STEventInfo *pstInfo);
ORVANE_API uint64_t CompareUcidMsgTime(STEventInfo *pstInfo);
ORVANE_API uint64_t InsertUcidPageNode(STEventInfo *pstInfo, uint32_t uiPageType);
ORVANE_API uint64_t UcidGetPageNodeByFlowInfo(STEventInfo *pstInfo);

/* Match strings */
ORVANE_API void SaveStringCommon(STEventInfo *pstInfo);
ORVANE_API void SaveString(STEventInfo *pstInfo, STPageNode *pstPage, uint64_t ullBeginTime, uint64_t ullEndTime,
                           uint32_t uiStrType);
ORVANE_API void ReleaseMatchList(STTranManage *pstList, CMemPool *pstPool);

/* Page timeout and result */
ORVANE_API uint32_t ProcessPageListTimeOut(uint32_t uiThreadID, uint8_t ucProcType, uint8_t ucReport,
                                           uint8_t ucListType);
ORVANE_API uint8_t ProcessPageNodeTimeOut(uint32_t uiThreadID, STPageNode *pstPage, uint8_t ucProcType,
                                          uint8_t ucReport);
ORVANE_API void ReleasePageNode(uint32_t uiThreadID, STPageNode *pstPage);
ORVANE_API void InitPageKQI(STPageKQI *pstPageKQI);
ORVANE_API uint32_t IsPageMainCauseOK(uint16_t usCauseCode);
ORVANE_API uint32_t IsPageOK(STPageNode *pstPage, uint32_t *puiMainCauseFail);
ORVANE_API uint8_t IsInvalidPage(STPageNode *pstPage, uint8_t ucSuccFlag);

ORVANE_END_DECLS

#endif
