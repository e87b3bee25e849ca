// UCID pages: requests that carry a UCID are placed by time alone among the
// pages such requests opened, on a list of their own, and their flows'
// responses follow them there.
#include "webpage_util.hpp"

namespace {

using orvane::ContextOf;
using orvane::HasFlag;

constexpr char kUcidMark[] = "/?ucid=";
constexpr size_t kUcidMarkLen = sizeof(kUcidMark) - 1;

}  // namespace

extern "C" {

uint32_t IsUrlContainsUcid(char *pcText, uint16_t usLen, uint16_t usTermPos)
{
    if (pcText == nullptr || usLen == 0) {
        return 0;
    }
    pcText[usTermPos] = '\0';
    return (usLen >= kUcidMarkLen && orvane::ContainsNoCase(pcText, kUcidMark, kUcidMarkLen)) ? 1u : 0u;
}

uint64_t WebPageUcidMsgMatch(STEventInfo *pstInfo)
{
    if (pstInfo == nullptr) {
        LOG_ERROR(LOG_TID_NONE, "para err.");
        return 0;
    }
    const uint32_t uiTid = pstInfo->ucThreadID;
    if (uiTid >= WEBPAGE_THREAD_NUM) {
        LOG_ERROR(uiTid, "ucThreadID err.");
        return 0;
    }
    LOG_TRACE(uiTid, "****Match ucid webpage is begin*********************************.");
    const uint64_t ullPageID = CompareUcidMsgTime(pstInfo);
    LOG_TRACE(uiTid, "ucid  Time match, PageID = %llu.", (unsigned long long)ullPageID);
    LOG_TRACE(uiTid, "****Match ucid  webpage is end*********************************.");
    return ullPageID;
}

uint64_t CompareUcidMsgTime(STEventInfo *pstInfo)
{
    if (pstInfo == nullptr) {
        LOG_ERROR(LOG_TID_ANY, "Para err.");
        return 0;
    }
    const uint32_t uiTid = pstInfo->ucThreadID;
    if (uiTid >= WEBPAGE_THREAD_NUM) {
        LOG_ERROR(uiTid, "ucThreadID err.");
        return 0;
    }
    LOG_TRACE(uiTid, "ucid match page with time.");
    STWebPage *pstCtx = ContextOf(uiTid);
    if (pstCtx == nullptr || IsListEmpty(&pstCtx->stUcidPageNodeList) != 0) {
        LOG_TRACE(uiTid, "PageList is empty.");
        return 0;
    }

    const char *const pcFunc = __func__;
    const uint64_t ullBegin = pstInfo->ullReqBeginTime;
    STPageNode *pstHit = orvane::FindInList<STPageNode>(&pstCtx->stUcidPageNodeList, [&](STPageNode *pstPage) {
        if (pstPage->uiPageType != PAGE_TYPE_ASSOCIATE || !HasFlag(pstPage, PAGE_FLAG_SUCCESS)) {
            return false;
        }
        // A request never joins a page that began after it.
        if (ullBegin != 0 && pstPage->ullPageFirReq > ullBegin) {
            return false;
        }
        if (CompareMsgTimeTransWithPage(ullBegin, pstInfo->ullReqEndTime, pstPage->ullPageLastReq,
                                        pstPage->ullPageLastRsp, pstPage->enNetworkType,
                                        pstInfo->usCauseCode) != 0) {
            return false;
        }
        LOG_TRACE_AS(pcFunc, uiTid, "ucid  Page is webtype,match page with time is OK.");
        pstInfo->uiMatchLevel = 1;
        if (UpdatePageNode(pstPage, pstInfo, PAGE_TYPE_ASSOCIATE) != 0) {
            LOG_ERROR_AS(pcFunc, uiTid, "Match ucid page(webtype) with time is OK,Update page error.");
            return false;
        }
        LOG_TRACE_AS(pcFunc, uiTid, "Match ucid  page(webtype) with time is OK,Update page,PageID is %llu.",
                     (unsigned long long)pstPage->uiPageID);
        return true;
    });
    if (pstHit != nullptr) {
        return pstHit->uiPageID;
    }
    LOG_TRACE(uiTid, "match ucid  page with time but not match page.");
    return 0;
}

uint64_t InsertUcidPageNode(STEventInfo *pstInfo, uint32_t uiPageType)
{
    if (pstInfo == nullptr) {
        LOG_ERROR(LOG_TID_ANY, "para err!");
        return 0;
    }
    if (pstInfo->ucThreadID >= WEBPAGE_THREAD_NUM) {
        LOG_ERROR(pstInfo->ucThreadID, "ThreadID err!");
        return 0;
    }
    LOG_TRACE(pstInfo->ucThreadID, "Insert ucidpage node, pagetype is %u", uiPageType);
    // A UCID page keeps no first-request strings, and its type alone makes it
    // a web page: no content test.
    const orvane::PageCreation stHow{__func__, "Insert ucidpage, Method is not GET and POST!", PAGE_LIST_UCID, 1,
                                     false, false};
    return orvane::CreatePage(pstInfo, uiPageType, stHow);
}

uint64_t UcidGetPageNodeByFlowInfo(STEventInfo *pstInfo)
{
    if (pstInfo == nullptr) {
        LOG_ERROR(LOG_TID_ANY, "Para err.");
        return 0;
    }
    const uint32_t uiTid = pstInfo->ucThreadID;
    if (uiTid >= WEBPAGE_THREAD_NUM) {
        LOG_ERROR(uiTid, "ucThreadID err.");
        return 0;
    }
    // No black-list test here: a UCID flow's responses always follow it.
    STPageNode *pstPage = GetPageNodeByFlowInfo(pstInfo, PAGE_LIST_UCID);
    if (pstPage != nullptr) {
        LOG_TRACE(uiTid, "Match ucid process,Get page by flow is OK,PageID is %llu.",
                  (unsigned long long)pstPage->uiPageID);
        if (UpdatePageNode(pstPage, pstInfo, pstPage->uiPageType) == 0) {
            return pstPage->uiPageID;
        }
    }
    LOG_TRACE(uiTid, "Match fail process,Get page by flow is NOK,insert new page.");
    return InsertUcidPageNode(pstInfo, PAGE_TYPE_SINGLE);
}

}  // extern "C"
