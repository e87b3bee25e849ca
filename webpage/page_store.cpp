// The thread's open pages: creation from an event, page IDs, the first
// request's identity, the DNS answer at creation, and finding a flow's page.
#include <cstddef>
#include <cstdint>

#include "webpage_util.hpp"

namespace {

using orvane::ClearPageFlag;
using orvane::ContextOf;
using orvane::CopyCut;
using orvane::IsValidThread;
using orvane::Llu;
using orvane::MakePageID;
using orvane::PageListOf;
using orvane::PageOf;
using orvane::SetPageFlag;
using orvane::FindFlowPage;

// Asks the daemon's DNS cache when the host was resolved and how long it
// took; true when it was asked. The lines on the answer are FinishPage's.
bool AskDns(STPageNode *pstPage, const STEventInfo *pstInfo, const char *pcFunc)
{
    const PFDNSQueryFunc pfQuery = g_DNSQueryFunc;
    if (pstInfo->usHostLen == 0 || pfQuery == nullptr) {
        return false;
    }
    STDNSQueryInfo stQuery{};
    stQuery.pcHost = pstInfo->acHost;
    stQuery.usHostLen = pstInfo->usHostLen;
    stQuery.uiServerIp = pstInfo->uiServerIp;
    STDNSQueryResult stResult{};
    LOG_TRACE_AS(pcFunc, pstInfo->ucThreadID, "query DNS host %s, serverIP is %u , hostLen %u", pstInfo->acHost,
                 pstInfo->uiServerIp, pstInfo->usHostLen);
    (void)pfQuery(&stQuery, &stResult);
    pstPage->ullDNSBeginTime = stResult.ullDNSBeginTime;
    pstPage->uiDnsDelay = stResult.uiDnsDelay;
    return true;
}

// The creating event's cause: any cause marks the page; a non-redirect one
// is the main request; success is judged on redirects too.
template <bool kLog>
void ApplyFirstCause(STPageNode *pstPage, const STEventInfo *pstInfo, const char *pcFunc)
{
    const uint8_t ucTid = pstInfo->ucThreadID;
    const uint16_t usCause = pstInfo->usCauseCode;
    if (usCause == 0) {
        return;
    }
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page has first causecode is %u.", usCause);
    SetPageFlag(pstPage, PAGE_FLAG_HAS_CAUSE);
    if (IsRedirect(usCause) == 0) {
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "This event is main request.");
        SetPageFlag(pstPage, PAGE_FLAG_MAIN_REQ);
        pstPage->usMainCauseCode = usCause;
    }
    if (orvane::ResponseOk(usCause)) {
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "The rsponse is OK.");
        SetPageFlag(pstPage, PAGE_FLAG_SUCCESS);
    } else {
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "The rsponse is fail.");
        ClearPageFlag(pstPage, PAGE_FLAG_SUCCESS);
    }
}

// SaveFirReqString past its checks, built for an off level (kLog false) and
// as written.
template <bool kLog>
void SaveFirstRequest(STEventInfo *pstInfo, STPageNode *pstPage)
{
    const char *const pcFunc = "SaveFirReqString";
    const uint8_t ucTid = pstInfo->ucThreadID;
    if (pstInfo->usHostLen != 0) {
        pstPage->usHostLen = CopyCut(pstPage->acHost, HOST_MAX_LEN, pstInfo->acHost, pstInfo->usHostLen);
        pstPage->uiHostKey = pstInfo->uiHostHashKey;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Save host info to page, HostLen is %u, Host is [%s], HostKey is %u.",
                     pstPage->usHostLen, pstPage->acHost, pstPage->uiHostKey);
    }
    if (pstInfo->usURLLen != 0) {
        pstPage->usURLLen = CopyCut(pstPage->acURL, URL_MAX_LEN, pstInfo->acURL, pstInfo->usURLLen);
        pstPage->uiURLKey = pstInfo->uiURLHashKey;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Save URL info to page, URLLen is %u, URL is [%s], URLKey is %u.",
                     pstPage->usURLLen, pstPage->acURL, pstPage->uiURLKey);
    }
    if (pstInfo->usLocationLen != 0) {
        pstPage->usLocationLen =
            CopyCut(pstPage->acLocation, LOCATION_MAX_LEN, pstInfo->acLocation, pstInfo->usLocationLen);
        pstPage->uiLocationKey = pstInfo->uiLocationHashKey;
        LOG_TRACE_IF(kLog, pcFunc, ucTid,
                     "Save location info to page, LocationLen is %u, Location is [%s], LocationKey is %u.",
                     pstPage->usLocationLen, pstPage->acLocation, pstPage->uiLocationKey);
    }
    // Only the referer's key is kept: pages are never compared by referer text.
    pstPage->uiRefererKey = pstInfo->uiRefererHashKey;
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "Save Referer info to page, RefererKey is %u.", pstPage->uiRefererKey);
}

// The steps of making a page after the DNS query, which may have called the
// daemon: from here on nothing does, so they are built for an off level
// (kLog false) and as written. bAsked: the DNS cache answered.
template <bool kLog>
void FinishPage(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t uiPageType, const orvane::PageCreation &stHow,
                bool bAsked)
{
    const uint8_t ucTid = pstInfo->ucThreadID;
    const char *const pcFunc = stHow.pcFunc;
    if (bAsked) {
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "query DNS begin time is  %llu ,DNSDelay is %u",
                     Llu(pstPage->ullDNSBeginTime), pstPage->uiDnsDelay);
    }
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "DNS begin time is , %llu! DNS delay is %u ,PageID is %llu",
                 Llu(pstPage->ullDNSBeginTime), pstPage->uiDnsDelay, Llu(pstPage->uiPageID));
    orvane::SetPageFirstTime(pstPage, pstInfo, pcFunc);

    pstPage->uiPageID = MakePageID(ucTid, ++g_aulPageID[ucTid]);
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "Insert new page, uiPageID is %llu!", Llu(pstPage->uiPageID));

    if (uiPageType == PAGE_TYPE_ASSOCIATE) {
        SetPageFlag(pstPage, PAGE_FLAG_WEBTYPE);
    }
    if (stHow.bWebTypeTest &&
        IsWebType(pstInfo->acContentType, pstInfo->usContentTypeLen, CONTENT_TYPE_MAX_LEN, pstInfo->usCauseCode) == 0) {
        ClearPageFlag(pstPage, PAGE_FLAG_WEBTYPE);
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page is not webtype.");
    }
    ApplyFirstCause<kLog>(pstPage, pstInfo, pcFunc);
    if (pstInfo->uiReqMethod == WEBPAGE_METHOD_POST) {
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page is created by post.");
        SetPageFlag(pstPage, PAGE_FLAG_ALL_POST);
    }

    if (stHow.bSaveFirReq) {
        SaveFirstRequest<kLog>(pstInfo, pstPage);
    }
}

}  // namespace

namespace orvane {

uint64_t CreatePage(STEventInfo *pstInfo, uint32_t uiPageType, const PageCreation &stHow)
{
    const uint8_t ucTid = pstInfo->ucThreadID;
    const char *const pcFunc = stHow.pcFunc;
    // Only GET and POST start web pages; other methods keep to their flow.
    if (pstInfo->uiReqMethod != WEBPAGE_METHOD_GET && pstInfo->uiReqMethod != WEBPAGE_METHOD_POST) {
        LOG_TRACE_AS(pcFunc, ucTid, "%s", stHow.pcMethodLine);
        uiPageType = PAGE_TYPE_SINGLE;
    }

    // A thread without a context has no pool either; both end here alike.
    // Nothing is evicted when the pool is dry: the event stays without a page.
    STWebPage *pstCtx = ContextOf(ucTid);
    STTranNode *pstNode = pstCtx == nullptr ? nullptr : orvane::PoolTake(&pstCtx->stPageNodePool);
    if (pstNode == nullptr) {
        LOG_ERROR_AS(pcFunc, ucTid, "PageNodePool is NULL!");
        return 0;
    }
    if (orvane::ListInsertHead(pstNode, PageListOf(pstCtx, stHow.ucListType)) != 0) {
        LOG_ERROR_AS(pcFunc, ucTid, "Insert page node fail!");
        (void)orvane::PoolGive(pstNode, &pstCtx->stPageNodePool);
        return 0;
    }

    STPageNode *pstPage = PageOf(pstNode);
    InitPageNode(pstPage);
    pstPage->ucIsUcidPage = stHow.ucIsUcidPage;
    pstPage->uiPageType = uiPageType;
    pstPage->enNetworkType = pstInfo->enNetworkType;
    pstInfo->uiMatchLevel = 0;  // the creating event is its page's main level

    const bool bAsked = AskDns(pstPage, pstInfo, pcFunc);
    if (orvane::LogOff()) {
        FinishPage<false>(pstPage, pstInfo, uiPageType, stHow, bAsked);
    } else {
        FinishPage<true>(pstPage, pstInfo, uiPageType, stHow, bAsked);
    }
    // The new page is returned whether or not the flow could be tied to it.
    (void)UpdatePageNode(pstPage, pstInfo, uiPageType);
    return pstPage->uiPageID;
}

STPageNode *SeekFlowPage(STWebPage *pstCtx, uint64_t ullPageID, uint8_t ucListType)
{
    STTranNode *pstNode = SeekNode(&ullPageID, PageListOf(pstCtx, ucListType));
    return pstNode == nullptr ? nullptr : PageOf(pstNode);
}

}  // namespace orvane

extern "C" {

void InitPageNode(STPageNode *pstPage)
{
    if (pstPage == nullptr) {
        return;
    }
    // A reused node must not leak its last page's texts or counters.
    ORV_MEMSET(pstPage, sizeof(*pstPage), 0, sizeof(*pstPage));
    InitSTTranManage(MatchStrCompare, &pstPage->stHostList);
    InitSTTranManage(MatchStrCompare, &pstPage->stURLList);
    InitSTTranManage(MatchStrCompare, &pstPage->stRefererList);
    InitSTTranManage(MatchStrCompare, &pstPage->stLocationList);
}

void InitPageProcessInfo(uint8_t ucThreadID, STFlowInfo *pstFlowInfo, STEventInfo *pstInfo)
{
    if (pstInfo == nullptr) {
        LOG_ERROR(ucThreadID, "para error.");
        return;
    }
    orvane::ResetRecord(ucThreadID, pstFlowInfo, pstInfo);
}

void SaveFirReqString(STEventInfo *pstInfo, STPageNode *pstPage)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr, LOG_TID_ANY, "Para err!", "ThreadID err!")) {
        return;
    }
    if (orvane::LogOff()) {
        SaveFirstRequest<false>(pstInfo, pstPage);
    } else {
        SaveFirstRequest<true>(pstInfo, pstPage);
    }
}

uint64_t InsertPageNode(STEventInfo *pstInfo, uint32_t uiPageType, uint8_t bIsAllRuleFail)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "para err!", "ThreadID err!")) {
        return 0;
    }
    LOG_TRACE(pstInfo->ucThreadID, "Insert page node, pagetype is %u, IsAllRuleFail is %u!", uiPageType,
              bIsAllRuleFail);
    // A page nothing else claimed counts as a web page only for web content.
    const orvane::PageCreation stHow{__func__, "Insert page, Method is not GET and POST!", PAGE_LIST_ORDINARY, 0,
                                     bIsAllRuleFail == 1, true};
    return orvane::CreatePage(pstInfo, uiPageType, stHow);
}

STPageNode *GetSinglePageNodeByFlowInfo(STEventInfo *pstInfo, uint8_t ucListType)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "para err.", "ucThreadID err.")) {
        return nullptr;
    }
    const uint8_t ucTid = pstInfo->ucThreadID;
    STFlowInfo *pstFlow = pstInfo->pstFlowInfo;
    if (pstFlow == nullptr) {
        LOG_ERROR(ucTid, "pFlowInfo err.");
        return nullptr;
    }
    LOG_TRACE(ucTid, "SinglePageID in flowinfo is %llu.", Llu(pstFlow->ullSinglePageID));
    return FindFlowPage(pstInfo, pstFlow->ullSinglePageID, pstFlow->pstSinglePage, ucListType, false);
}

STPageNode *GetAssociatePageNodeByFlowInfo(STEventInfo *pstInfo, uint8_t ucListType)
{
    if (pstInfo == nullptr || pstInfo->pstFlowInfo == nullptr || !IsValidThread(pstInfo->ucThreadID)) {
        return nullptr;
    }
    STFlowInfo *pstFlow = pstInfo->pstFlowInfo;
    return FindFlowPage(pstInfo, pstFlow->ullAssociatePageID, pstFlow->pstAssociatePage, ucListType, false);
}

STPageNode *GetPageNodeByFlowInfo(STEventInfo *pstInfo, uint8_t ucListType)
{
    if (pstInfo == nullptr || pstInfo->pstFlowInfo == nullptr) {
        return nullptr;
    }
    switch (pstInfo->pstFlowInfo->uiPageType) {
    case PAGE_TYPE_ASSOCIATE:
        return GetAssociatePageNodeByFlowInfo(pstInfo, ucListType);
    case PAGE_TYPE_SINGLE:
        return GetSinglePageNodeByFlowInfo(pstInfo, ucListType);
    default:
        return nullptr;
    }
}

}  // extern "C"
