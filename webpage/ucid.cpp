// UCID pages: requests that carry a UCID are placed by time alone among the
// pages such requests opened, on a list of their own, and their flows'
// responses follow them there.
#include <cstring>

#include "time_window.hpp"
#include "webpage_util.hpp"

namespace {

using orvane::ContextOf;

constexpr char kUcidMark[] = "/?ucid=";
constexpr size_t kUcidMarkLen = sizeof(kUcidMark) - 1;

// Whether the NUL-terminated text holds the mark, case ignored. Found by its
// '?', rarer in a URI than its '/'; neither is a letter, so only the bytes
// after them need their case ignored. A NUL among them is no match, so the
// test never reads past the text's end.
bool HoldsUcidMark(const char *pcText)
{
    for (const char *q = std::strchr(pcText, '?'); q != nullptr; q = std::strchr(q + 1, '?')) {
        if (q != pcText && q[-1] == '/' && orvane::EqualNoCase(q + 1, kUcidMark + 2, kUcidMarkLen - 2)) {
            return true;
        }
    }
    return false;
}

constexpr orvane::TimeJoinLines kUcidTimeJoin{
    "ucid  Page is webtype,match page with time is OK.",
    "Match ucid page(webtype) with time is OK,Update page error.",
    "Match ucid  page(webtype) with time is OK,Update page,PageID is %llu.",
};

}  // namespace

extern "C" {

uint32_t IsUrlContainsUcid(char *pcText, uint16_t usLen, uint16_t usTermPos)
{
    if (pcText == nullptr || usLen == 0) {
        return 0;
    }
    pcText[usTermPos] = '\0';
    return (usLen >= kUcidMarkLen && HoldsUcidMark(pcText)) ? 1u : 0u;
}

uint64_t WebPageUcidMsgMatch(STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_NONE, "para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint32_t uiTid = pstInfo->ucThreadID;
    LOG_TRACE(uiTid, "****Match ucid webpage is begin*********************************.");
    const uint64_t ullPageID = CompareUcidMsgTime(pstInfo);
    LOG_TRACE(uiTid, "ucid  Time match, PageID = %llu.", (unsigned long long)ullPageID);
    LOG_TRACE(uiTid, "****Match ucid  webpage is end*********************************.");
    return ullPageID;
}

uint64_t CompareUcidMsgTime(STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint32_t uiTid = pstInfo->ucThreadID;
    LOG_TRACE(uiTid, "ucid match page with time.");
    STWebPage *pstCtx = ContextOf(uiTid);
    if (pstCtx == nullptr || IsListEmpty(&pstCtx->stUcidPageNodeList) != 0) {
        LOG_TRACE(uiTid, "PageList is empty.");
        return 0;
    }

    // A UCID page is a web page by its type: no content test.
    const char *const pcFunc = __func__;
    const orvane::TimeWindow stWindow(COMPARE_TRANS_WITH_PAGE, pstInfo->ullReqBeginTime, pstInfo->ullReqEndTime,
                                      pstInfo->usCauseCode);
    STPageNode *pstHit = orvane::FindInList<STPageNode>(&pstCtx->stUcidPageNodeList, [&](STPageNode *pstPage) {
        return orvane::MayJoinByTime(pstPage, pstInfo->ullReqBeginTime) &&
               orvane::JoinByTransWindow(pstPage, pstInfo, stWindow, pcFunc, kUcidTimeJoin);
    });
    if (pstHit != nullptr) {
        return pstHit->uiPageID;
    }
    LOG_TRACE(uiTid, "match ucid  page with time but not match page.");
    return 0;
}

uint64_t InsertUcidPageNode(STEventInfo *pstInfo, uint32_t uiPageType)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "para err!", "ThreadID err!")) {
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
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    // No black-list test here: a UCID flow's responses always follow it.
    const STPageNode *pstPage = orvane::FlowPageTakingEvent(pstInfo, PAGE_LIST_UCID, __func__,
                                                            "Match ucid process,Get page by flow is OK,PageID is %llu.");
    return pstPage != nullptr ? pstPage->uiPageID : InsertUcidPageNode(pstInfo, PAGE_TYPE_SINGLE);
}

}  // extern "C"
