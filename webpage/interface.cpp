// The exported surface of the page association: per-thread contexts, the
// shared configuration and the per-event entry point.
#include <cstdlib>
#include <cstring>

#include "webpage_util.hpp"

namespace {

using orvane::ContextOf;
using orvane::IsValidThread;
using orvane::ThreadOf;

// Page configuration defaults. The host names are deployment settings; these
// neutral ones keep a fresh install from black-listing real sites.
constexpr const char *kHeartBeatHost = "longpoll.social.example";
constexpr const char *kContentTypes[PAGE_CONTENT_TYPE_NUM] = {
    "text/html", "application/xhtml+xml", "application/x-shockwa", "text/vnd.wap.wml",
    "application/vnd.wap.xhtml+xml"};
constexpr const char *kFlashKeywords[PAGE_FLASH_KEYWORD_NUM] = {"flash", "flv", ".swf"};
constexpr const char *kHostBlackKeywords[PAGE_HOST_BLACK_NUM] = {
    "portal.example.com", "onebox", "nosdn", "statistic", "suggest.example.net"};
constexpr const char *kInputKeyword = "ucinput";
constexpr uint32_t kReserved1 = 120;
constexpr uint32_t kReserved2 = 1024;

// Rows are rule families, columns network types 0..3 (milliseconds).
constexpr uint32_t kTimeThresholdDefaults[24] = {
    2000,  2000,  2000,  2000,   // transaction with web page
    3000,  3000,  3000,  3000,   // host rules
    3500,  3500,  3500,  3500,   // referer against URL
    15000, 15000, 15000, 15000,  // URL against redirect location
    2000,  5000,  3000,  2000,   // transaction with non-web page
    2000,  2000,  2000,  2000};  // referer against referer

constexpr uint16_t kProxyAuthCause = 407;

template <size_t N>
void CopyText(char (&dst)[N], const char *src)
{
    std::memset(dst, 0, N);
    const size_t n = orvane::BoundedLen(src, N - 1);
    ORV_MEMCPY(dst, N - 1, src, n);
}

// Closes every page of both lists; true when both ended empty, in which case
// the running timer is stopped. Lines carry the calling entry point's name.
bool CloseAllPages(const char *pcFunc, uint32_t uiThreadID, uint8_t ucProcType, uint8_t ucReport)
{
    STWebPage *pstCtx = ContextOf(uiThreadID);
    const uint32_t uiLeft = ProcessPageListTimeOut(uiThreadID, ucProcType, ucReport, PAGE_LIST_ORDINARY);
    const uint32_t uiUcidLeft = ProcessPageListTimeOut(uiThreadID, ucProcType, ucReport, PAGE_LIST_UCID);
    if (IsListEmpty(&pstCtx->stPageNodeList) == 0 || IsListEmpty(&pstCtx->stUcidPageNodeList) == 0 ||
        uiLeft != 0 || uiUcidLeft != 0) {
        LOG_ERROR_AS(pcFunc, uiThreadID, "release web page not success.");
        return false;
    }
    orvane::StopPageTimer(pcFunc, uiThreadID, pstCtx);
    return true;
}

}  // namespace

extern "C" {

STWebPageConfig g_stWebPageConfig;
STPageConfig g_stPageConfig;
STWebPageTimer g_stWebPageTimer;
uint8_t g_stTestConfig;
uint32_t g_auiTimeThreshold[24];
uint16_t g_ausCauseCode407[16];
PFPageEndFunc g_PageEndFunc;
PFDNSQueryFunc g_DNSQueryFunc;
STWebPage *g_pstWebPage[16];
uint64_t g_aulPageID[16];

void InitWebPageConfig(STPageConfig *pstPageConfig)
{
    if (pstPageConfig == nullptr) {
        return;
    }
    std::memset(pstPageConfig, 0, sizeof(*pstPageConfig));
    pstPageConfig->uiReserved1 = kReserved1;
    pstPageConfig->uiReserved2 = kReserved2;
    char acHost[PAGE_HOST_BLACK_LEN * 4] = {0};
    CopyText(acHost, kHeartBeatHost);
    pstPageConfig->uiHeartBeatHostKey = StrlwrAndBKDRHash(acHost, (uint32_t)std::strlen(acHost));
    for (size_t i = 0; i < PAGE_CONTENT_TYPE_NUM; ++i) {
        CopyText(pstPageConfig->aacContentType[i], kContentTypes[i]);
    }
    for (size_t i = 0; i < PAGE_FLASH_KEYWORD_NUM; ++i) {
        CopyText(pstPageConfig->aacFlashKeyword[i], kFlashKeywords[i]);
    }
    for (size_t i = 0; i < PAGE_HOST_BLACK_NUM; ++i) {
        CopyText(pstPageConfig->aacHostBlackKeyword[i], kHostBlackKeywords[i]);
    }
    CopyText(pstPageConfig->acUcInputKeyword, kInputKeyword);
}

uint32_t API_InitConfig(uint32_t uiThreadID, const STWebPageConfig *pstConfig)
{
    if (!IsValidThread(uiThreadID) || pstConfig == nullptr) {
        LOG_ERROR(uiThreadID, "Init para error.");
        return 1;
    }
    g_stWebPageConfig.enLogLevel = pstConfig->enLogLevel;
    g_stWebPageConfig.usPageTimeOut = pstConfig->usPageTimeOut;
    g_enSDKLogLevel = pstConfig->enLogLevel;
    return 0;
}

uint32_t API_InitWebPage(uint32_t uiThreadID, const STWebPageConfig *pstConfig, uint32_t *puiFlowInfoSize,
                         PFPageEndFunc pfPageEnd, PFDNSQueryFunc pfDNSQuery)
{
    if (pstConfig == nullptr || !IsValidThread(uiThreadID) || puiFlowInfoSize == nullptr || pfPageEnd == nullptr ||
        pfDNSQuery == nullptr) {
        LOG_ERROR(uiThreadID, "Init para error.");
        return 1;
    }
    const uint8_t ucThreadID = ThreadOf(uiThreadID);
    if (g_pstWebPage[ucThreadID] != nullptr) {
        LOG_ERROR(uiThreadID, "g_pstWebPage[ucThreadID] error.");
        return 2;
    }
    STWebPage *pstCtx = static_cast<STWebPage *>(std::calloc(1, sizeof(STWebPage)));
    if (pstCtx == nullptr) {
        LOG_ERROR(uiThreadID, "malloc error.");
        return 3;
    }
    g_pstWebPage[ucThreadID] = pstCtx;
    g_aulPageID[ucThreadID] = 0;
    *puiFlowInfoSize = FLOW_INFO_SIZE;
    LOG_TRACE(uiThreadID, "FLOWINFO: size is %u.", FLOW_INFO_SIZE);

    if (ucThreadID == 0) {
        g_PageEndFunc = pfPageEnd;
        g_DNSQueryFunc = pfDNSQuery;
        g_ausCauseCode407[0] = kProxyAuthCause;
        g_stTestConfig = 0;
        InitWebPageConfig(&g_stPageConfig);
        g_stWebPageConfig = *pstConfig;
        std::memcpy(g_auiTimeThreshold, kTimeThresholdDefaults, sizeof(g_auiTimeThreshold));
        g_enSDKLogLevel = pstConfig->enLogLevel;
    }

    // A pool whose block cannot be had stays empty: the context still works,
    // page creation just finds no node.
    (void)setInitMemPool(PAGE_NODE_NUM, PAGE_NODE_SIZE, 0, &pstCtx->stPageNodePool);
    (void)setInitMemPool(MATCH_STR_NODE_NUM, MATCH_STR_NODE_SIZE, 0, &pstCtx->stMatchStrMemPool);
    LOG_TRACE(uiThreadID, "PagePool: size is %u, num is %d.", PAGE_NODE_SIZE, (int)PAGE_NODE_NUM);
    LOG_TRACE(uiThreadID, "MatchPool: size is %u, num is %d.", MATCH_STR_NODE_SIZE, (int)MATCH_STR_NODE_NUM);

    InitSTTranManage(PageIDCompare, &pstCtx->stPageNodeList);
    InitSTTranManage(PageIDCompare, &pstCtx->stUcidPageNodeList);
    pstCtx->ulPageTimer = 0;
    g_stWebPageTimer.pfStartPageTimer = nullptr;
    g_stWebPageTimer.pfStopPageTimer = nullptr;
    return 0;
}

void API_InitWebPageFlow(STFlowInfo *pstFlowInfo)
{
    if (pstFlowInfo != nullptr) {
        std::memset(pstFlowInfo, 0, sizeof(*pstFlowInfo));
    }
}

uint32_t API_AssociateWebPage(uint32_t uiThreadID, STFlowInfo *pstFlowInfo, const STWebPageEvent *pstEvent,
                              uint64_t *pullPageID)
{
    if (!IsValidThread(uiThreadID) || pstFlowInfo == nullptr || pstEvent == nullptr || pullPageID == nullptr) {
        LOG_ERROR(uiThreadID, "para error.");
        return WEBPAGE_ERR_PARAM;
    }
    const uint8_t ucThreadID = ThreadOf(uiThreadID);
    STWebPage *pstCtx = g_pstWebPage[ucThreadID];
    if (pstCtx == nullptr) {
        LOG_ERROR(uiThreadID, "Init error.");
        return WEBPAGE_ERR_NO_CONTEXT;
    }
    // The start callback records its handle in ulPageTimer; until it does,
    // every event asks again.
    if (pstCtx->ulPageTimer == 0 && g_stWebPageTimer.pfStartPageTimer != nullptr) {
        g_stWebPageTimer.pfStartPageTimer(uiThreadID, PAGE_TIMER_PERIOD_S, WebPageTimeOut, pstCtx);
    }
    // From here to the event's handling no daemon code runs: one level test
    // serves every line (the timer start above may have changed the level).
    const bool bLogOn = !orvane::LogOff();
    if (bLogOn) {
        LOG_INFO(uiThreadID,
                 "Webpage receive event info: ucProtol=%u; ucFinRst =%u; usClientPort=%u; usServerPort=%u;"
                 "usHostLen=%u; usURLLen=%u; usReferHostLen=%u; usReferURLLen=%u; usLocationLen=%u;"
                 "usContentTypeLen=%u; uiClientIp=%u; uiServerIp=%u; usEventID=%u; ucReqMethod=%u; usRspCode=%u; "
                 "enNetworkType=%u; ",
                 pstEvent->ucProtol, pstEvent->ucFinRst, pstEvent->usClientPort, pstEvent->usServerPort,
                 pstEvent->usHostLen, pstEvent->usURLLen, pstEvent->usReferHostLen, pstEvent->usReferURLLen,
                 pstEvent->usLocationLen, pstEvent->usContentTypeLen, pstEvent->uiClientIp, pstEvent->uiServerIp,
                 pstEvent->usEventID, pstEvent->ucReqMethod, pstEvent->usRspCode, pstEvent->enNetworkType);
    }

    *pullPageID = 0;
    if (bLogOn) {
        orvane::LogPoolCounts(__func__, uiThreadID, pstCtx);
    }
    const uint32_t uiPrePageNum = pstCtx->stPageNodeList.uiNodeNum;
    if (bLogOn) {
        LOG_TRACE(uiThreadID, "Webpage receive event, EventID is %u.", pstEvent->usEventID);
        LOG_TRACE(uiThreadID, "ucPrePageNum=%d.", (int)uiPrePageNum);
    }

    STEventInfo stInfo;
    orvane::ResetRecord(ucThreadID, pstFlowInfo, &stInfo);

    uint64_t ullPageID = 0;
    switch (pstEvent->usEventID) {
    case WEBPAGE_EVENT_RESPONSE:
        // The record, the event and the thread are checked: the steps are
        // taken without their own checks.
        (void)orvane::ReadResponseEvent(pstEvent, &stInfo);
        ullPageID = (pstFlowInfo->ucIsUcid == 1) ? UcidGetPageNodeByFlowInfo(&stInfo) : orvane::FallBack(&stInfo, 0);
        break;
    case WEBPAGE_EVENT_REQUEST:
        ullPageID = orvane::HandleRequest(&stInfo, pstEvent);
        break;
    default:
        return WEBPAGE_ERR_EVENT_ID;
    }

    *pullPageID = ullPageID;
    // The handling may have called the daemon; saving strings never does.
    const bool bLogOnAfter = !orvane::LogOff();
    if (bLogOnAfter) {
        LOG_INFO(uiThreadID, "After match, PageID is %llu.", (unsigned long long)ullPageID);
    }
    // An event that made or dropped a page saves nothing here: a new page
    // already holds its first request's strings.
    if (pstCtx->stPageNodeList.uiNodeNum == uiPrePageNum) {
        SaveStringCommon(&stInfo);
        if (bLogOnAfter) {
            LOG_TRACE(uiThreadID, "SaveString.");
        }
    }
    if (bLogOnAfter) {
        orvane::LogPoolCounts(__func__, uiThreadID, pstCtx);
    }

    if (ullPageID == 0) {
        return WEBPAGE_ERR_NO_PAGE;
    }
    if (ullPageID == PAGE_ID_BLACK) {
        *pullPageID = 0;
    }
    return WEBPAGE_OK;
}

void API_ReleaseWebPage(uint32_t uiThreadID)
{
    STWebPage *pstCtx = orvane::ExistingContext(__func__, uiThreadID);
    if (pstCtx == nullptr) {
        return;
    }
    LOG_TRACE(uiThreadID, "release web page process.");
    (void)CloseAllPages(__func__, uiThreadID, PAGE_PROC_RELEASE, 1);
    FreeCMemPoolList(&pstCtx->stPageNodePool);
    FreeCMemPoolList(&pstCtx->stMatchStrMemPool);
    std::free(pstCtx);
    g_pstWebPage[ThreadOf(uiThreadID)] = nullptr;
}

void API_ReleaseWebPageNode(uint32_t uiThreadID, uint32_t ucReport)
{
    if (orvane::ExistingContext(__func__, uiThreadID) == nullptr) {
        return;
    }
    LOG_TRACE(uiThreadID, "release web page Node.");
    (void)CloseAllPages(__func__, uiThreadID, PAGE_PROC_RELEASE_NODE, static_cast<uint8_t>(ucReport & 0xFFu));
}

void API_PrintWebPageLog(uint32_t uiThreadID, uint32_t uiPrintType)
{
    STWebPage *pstCtx = orvane::ExistingContext(__func__, uiThreadID);
    if (pstCtx == nullptr) {
        return;
    }
    if (uiPrintType == 1 || uiPrintType == 2) {
        orvane::LogPoolCounts(__func__, uiThreadID, pstCtx);
    }
    if (uiPrintType == 1 || uiPrintType == 3) {
        LOG_TRACE(uiThreadID, "stPageNodeList page node num %u", GetTranNodeNum(&pstCtx->stPageNodeList));
    }
}

uint32_t API_TestConfig(uint32_t uiThreadID, uint8_t ucTestSwitch)
{
    if (!IsValidThread(uiThreadID)) {
        LOG_ERROR(uiThreadID, "Init para error.");
        return 1;
    }
    g_stTestConfig = ucTestSwitch;
    return 0;
}

}  // extern "C"
