// Folds one event into the page it was assigned to: times, the main request
// and its flags, counters, the quiet counter and the flow's tie to the page.
#include <cstdint>

#include "webpage_util.hpp"

namespace {

using orvane::ClearPageFlag;
using orvane::HasFlag;
using orvane::Llu;
using orvane::ResponseOk;
using orvane::SetPageFlag;

// Method counting shared by UpdatePageNode and UpdateMethodInfo; anything but
// GET or POST (responses carry no method) counts nothing.
inline void CountMethod(STPageNode *pstPage, const STEventInfo *pstInfo)
{
    const bool bOk = ResponseOk(pstInfo->usCauseCode);
    if (pstInfo->uiReqMethod == WEBPAGE_METHOD_POST) {
        ++pstPage->usPostNum;
        if (bOk) {
            ++pstPage->usPostSuccNum;
        }
    } else if (pstInfo->uiReqMethod == WEBPAGE_METHOD_GET) {
        ++pstPage->usGetNum;
        if (bOk) {
            ++pstPage->usGetSuccNum;
        }
    }
}

inline void CountEvent(STPageNode *pstPage, const STEventInfo *pstInfo)
{
    if (pstInfo->uiEventID == WEBPAGE_EVENT_REQUEST) {
        ++pstPage->usReqNum;
        // A request whose flow closed will get no answer: count it answered,
        // never successful.
        if (pstInfo->ucFinRst == 1) {
            ++pstPage->usRspNum;
        }
    } else if (pstInfo->uiEventID == WEBPAGE_EVENT_RESPONSE) {
        ++pstPage->usRspNum;
        if (pstInfo->ucFinRst != 1 && ResponseOk(pstInfo->usCauseCode)) {
            ++pstPage->usRspSuccNum;
        }
    }
}

void BindFlow(STFlowInfo *pstFlow, STPageNode *pstPage, uint32_t uiPageType)
{
    if (uiPageType == PAGE_TYPE_ASSOCIATE) {
        pstFlow->uiPageType = PAGE_TYPE_ASSOCIATE;
        pstFlow->ullAssociatePageID = pstPage->uiPageID;
        pstFlow->pstAssociatePage = pstPage;
    } else if (uiPageType == PAGE_TYPE_SINGLE) {
        pstFlow->uiPageType = PAGE_TYPE_SINGLE;
        pstFlow->ullSinglePageID = pstPage->uiPageID;
        pstFlow->pstSinglePage = pstPage;
    }
}

}  // namespace

namespace orvane {

template <bool kLog>
void SetPageFirstTimeAs(STPageNode *pstPage, const STEventInfo *pstInfo, const char *pcFunc)
{
    const uint8_t ucTid = pstInfo->ucThreadID;
    if (pstInfo->ullReqBeginTime != 0) {
        pstPage->ullPageFirReq = pstInfo->ullReqBeginTime;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page first time is Req time, %llu!", Llu(pstPage->ullPageFirReq));
    } else {
        pstPage->ullPageFirReq = pstInfo->ullRspBeginTime;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page first time is Rsp time, %llu!", Llu(pstPage->ullPageFirReq));
    }
    // The connection set-up belongs to the page when the SYN came shortly
    // before its first message; an older or later SYN is another story.
    const uint64_t ullFirst = pstPage->ullPageFirReq;
    const uint64_t ullSyn = pstInfo->ullFirTime;
    if (ullSyn != 0 && ullFirst != 0 && ullSyn <= ullFirst && ullFirst - ullSyn <= SYN_TIME_MAX_GAP_NS) {
        pstPage->ullPageFirReq = ullSyn;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page first time is SYN time, %llu!", Llu(pstPage->ullPageFirReq));
    }
}

void SetPageFirstTime(STPageNode *pstPage, const STEventInfo *pstInfo, const char *pcFunc)
{
    if (LogOff()) {
        SetPageFirstTimeAs<false>(pstPage, pstInfo, pcFunc);
    } else {
        SetPageFirstTimeAs<true>(pstPage, pstInfo, pcFunc);
    }
}

}  // namespace orvane

namespace {

// The bodies of the three exported steps below, built for an off level
// (kLog false) and as written; the lines name the exported functions.
template <bool kLog>
void UpdateTimes(STPageNode *pstPage, STEventInfo *pstInfo)
{
    const char *const pcFunc = "UpdatePageReqAndRspTime";
    const uint8_t ucTid = pstInfo->ucThreadID;
    LOG_TRACE_IF(kLog, pcFunc, ucTid,
                 "Befor Update page time, ReqBeg is %llu, FirTime is %llu, ReqEnd is %llu; PageFirReq is %llu, "
                 "PageLastReq is %llu, PageLastRsp is %llu,DNSBeginTime is %llu , uiDnsDelay is %u.",
                 Llu(pstInfo->ullReqBeginTime), Llu(pstInfo->ullFirTime), Llu(pstInfo->ullMsgEndTime),
                 Llu(pstPage->ullPageFirReq), Llu(pstPage->ullPageLastReq), Llu(pstPage->ullPageLastRsp),
                 Llu(pstPage->ullDNSBeginTime), pstPage->uiDnsDelay);

    if (pstInfo->ullReqBeginTime > pstPage->ullPageLastReq) {
        pstPage->ullPageLastReq = pstInfo->ullReqBeginTime;
    }
    // The first time is set once: a late event never moves it earlier.
    if (pstPage->ullPageFirReq == 0) {
        orvane::SetPageFirstTimeAs<kLog>(pstPage, pstInfo, pcFunc);
    }
    if (pstInfo->ullMsgEndTime > pstPage->ullPageLastRsp) {
        pstPage->ullPageLastRsp = pstInfo->ullMsgEndTime;
    }

    LOG_TRACE_IF(kLog, pcFunc, ucTid,
                 "After update page time, PageFirReq is %llu, PageLastReq is %llu, PageLastRsp is %llu.DNSBeginTime "
                 "is %llu,DNSDelay is %u,PageID is %llu",
                 Llu(pstPage->ullPageFirReq), Llu(pstPage->ullPageLastReq), Llu(pstPage->ullPageLastRsp),
                 Llu(pstPage->ullDNSBeginTime), pstPage->uiDnsDelay, Llu(pstPage->uiPageID));
}

template <bool kLog>
void SetMainRequest(STPageNode *pstPage, STEventInfo *pstInfo)
{
    const char *const pcFunc = "SetMainPageReq";
    const uint8_t ucTid = pstInfo->ucThreadID;
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "Befor set page flag, PageFlag is %u.", pstPage->usPageFlag);

    // The main request is the first non-redirect answer; redirects before it
    // only mark the page, and nothing after it changes the verdict.
    if (!HasFlag(pstPage, PAGE_FLAG_MAIN_REQ)) {
        const uint16_t usCause = pstInfo->usCauseCode;
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Need set main req flag, CauseCode is %u.", usCause);
        if (IsRedirect(usCause) != 0) {
            LOG_TRACE_IF(kLog, pcFunc, ucTid, "Set page redirect.");
            SetPageFlag(pstPage, PAGE_FLAG_REDIRECT);
            if (pstInfo->ucLocationHttps != 0) {
                LOG_TRACE_IF(kLog, pcFunc, ucTid, "Set page Fir redirect is Https successfully.");
                SetPageFlag(pstPage, PAGE_FLAG_HTTPS_REDIRECT);
            }
        } else if (usCause != 0) {
            LOG_TRACE_IF(kLog, pcFunc, ucTid, "Set main req flag.");
            SetPageFlag(pstPage, PAGE_FLAG_MAIN_REQ);
            pstPage->usMainCauseCode = usCause;
            if (ResponseOk(usCause)) {
                LOG_TRACE_IF(kLog, pcFunc, ucTid, "Set page success.");
                SetPageFlag(pstPage, PAGE_FLAG_SUCCESS);
            } else {
                LOG_TRACE_IF(kLog, pcFunc, ucTid, "Set page fail.");
                ClearPageFlag(pstPage, PAGE_FLAG_SUCCESS);
            }
        }
    }

    LOG_TRACE_IF(kLog, pcFunc, ucTid, "After set page flag, PageFlag is %u.", pstPage->usPageFlag);
}

template <bool kLog>
uint32_t UpdatePage(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t uiPageType)
{
    const char *const pcFunc = "UpdatePageNode";
    const uint8_t ucTid = pstInfo->ucThreadID;
    LOG_TRACE_IF(kLog, pcFunc, ucTid, "Update page, PageID is %llu, PageType is %u, Method is %u, CauseCode is %u.",
                 Llu(pstPage->uiPageID), uiPageType, pstInfo->uiReqMethod, pstInfo->usCauseCode);

    UpdateTimes<kLog>(pstPage, pstInfo);
    SetMainRequest<kLog>(pstPage, pstInfo);
    if (pstInfo->usCauseCode != 0) {
        pstPage->usCauseCode = pstInfo->usCauseCode;
    }
    CountEvent(pstPage, pstInfo);

    if (HasFlag(pstPage, PAGE_FLAG_ALL_POST)) {
        LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page is all post, req method is %u.", pstInfo->uiReqMethod);
        if (pstInfo->uiReqMethod == WEBPAGE_METHOD_GET) {
            ClearPageFlag(pstPage, PAGE_FLAG_ALL_POST);
            LOG_TRACE_IF(kLog, pcFunc, ucTid, "Page has get.");
        }
    }
    CountMethod(pstPage, pstInfo);
    pstPage->ucTimeOutNum = 0;

    STFlowInfo *pstFlow = pstInfo->pstFlowInfo;
    if (pstFlow == nullptr) {
        LOG_ERROR_IF(kLog, pcFunc, ucTid, "pFlowInfo err.");
        return 1;
    }
    BindFlow(pstFlow, pstPage, uiPageType);
    return 0;
}

}  // namespace

extern "C" {

uint32_t IsRsponseOK(uint16_t usCauseCode) { return ResponseOk(usCauseCode) ? 1u : 0u; }

void UpdateMethodInfo(STPageNode *pstPage, STEventInfo *pstInfo)
{
    if (pstPage == nullptr || pstInfo == nullptr) {
        return;
    }
    CountMethod(pstPage, pstInfo);
}

void UpdatePageReqAndRspTime(STPageNode *pstPage, STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr, LOG_TID_ANY, nullptr, "ucThreadID err.")) {
        return;
    }
    if (orvane::LogOff()) {
        UpdateTimes<false>(pstPage, pstInfo);
    } else {
        UpdateTimes<true>(pstPage, pstInfo);
    }
}

void SetMainPageReq(STPageNode *pstPage, STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr, LOG_TID_ANY, nullptr, "ucThreadID err.")) {
        return;
    }
    if (orvane::LogOff()) {
        SetMainRequest<false>(pstPage, pstInfo);
    } else {
        SetMainRequest<true>(pstPage, pstInfo);
    }
}

uint32_t UpdatePageNode(STPageNode *pstPage, STEventInfo *pstInfo, uint32_t uiPageType)
{
    if (pstInfo == nullptr || pstPage == nullptr || !orvane::IsValidThread(pstInfo->ucThreadID)) {
        (void)orvane::RecordArgsOk(__func__, pstInfo, pstPage != nullptr, LOG_TID_ANY, "para err.",
                                   "ucThreadID err.");
        return 1;
    }
    return orvane::LogOff() ? UpdatePage<false>(pstPage, pstInfo, uiPageType)
                            : UpdatePage<true>(pstPage, pstInfo, uiPageType);
}

}  // extern "C"
