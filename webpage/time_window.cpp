// Time windows of the association rules: is a request close enough in time to
// a page (or to one of its saved strings) for a rule to join them. Each
// compare type is one row of kWindowRules (time_window.hpp), read by
// EvaluateWindow here and by TimeWindow in the walks; the last
// rule, CompareMsgTimeWithAllPageNode, joins a request to a page on time alone.
#include <cstddef>

#include "time_window.hpp"
#include "webpage_util.hpp"

namespace {

using orvane::Bound;
using orvane::kNetworkColumnNum;
using orvane::kNsPerMs;
using orvane::kRowFallbackNs;
using orvane::kWindowRules;
using orvane::WindowRule;
using Kind = orvane::WindowKind;

constexpr uint32_t kInside = 0;

uint64_t ThresholdNs(const WindowRule &stRule, uint32_t enNetworkType, uint16_t usPageCauseCode)
{
    const uint32_t uiColumn = (enNetworkType >= 1 && enNetworkType < kNetworkColumnNum) ? enNetworkType : 0;
    const uint32_t uiMs = g_auiTimeThreshold[stRule.ucRow * kNetworkColumnNum + uiColumn];
    uint64_t ullWindow = uiMs != 0 ? uiMs * kNsPerMs : kRowFallbackNs[stRule.ucRow];
    if (stRule.bDouble407 && Is407CauseCode(usPageCauseCode) != 0) {
        ullWindow <<= 1;
    }
    return ullWindow;
}

// Order is checked before subtracting so that a time before the reference
// can never wrap into a small, "inside" distance.
bool WithinAfter(uint64_t ullTime, uint64_t ullRef, uint64_t ullWindow, Bound enBound)
{
    if (ullTime < ullRef) {
        return false;
    }
    const uint64_t ullGap = ullTime - ullRef;
    return enBound == Bound::kStrict ? ullGap < ullWindow : ullGap <= ullWindow;
}

bool NearRef(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRef, uint64_t ullWindow, Bound enBound)
{
    return enBound != Bound::kNone && ullRef != 0 &&
           (WithinAfter(ullBegin, ullRef, ullWindow, enBound) || WithinAfter(ullEnd, ullRef, ullWindow, enBound));
}

uint32_t EvaluateWindow(uint32_t enCompareType, uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                        uint64_t ullRefEnd, uint32_t enNetworkType, uint16_t usPageCauseCode,
                        uint16_t usEventCauseCode)
{
    if (enCompareType >= sizeof(kWindowRules) / sizeof(kWindowRules[0])) {
        return COMPARE_OUTSIDE;
    }
    const WindowRule &stRule = kWindowRules[enCompareType];
    const bool bBeganBeforeRef = ullBegin < ullRefBegin || ullBegin < ullRefEnd;
    switch (stRule.enKind) {
        case Kind::kNever:
            return COMPARE_OUTSIDE;
        case Kind::kString:
            // The event overlaps the latest activity it is compared with.
            if (bBeganBeforeRef) {
                return kInside;
            }
            if (stRule.bNeedsBothRefs && (ullRefBegin == 0 || ullRefEnd == 0)) {
                return COMPARE_OUTSIDE;
            }
            break;
        case Kind::kStatusAware:
            // A request still in flight that began before the page's last activity.
            if (ullEnd == 0 && bBeganBeforeRef) {
                return kInside;
            }
            break;
    }

    const uint64_t ullWindow = ThresholdNs(stRule, enNetworkType, usPageCauseCode);
    const bool bNear = NearRef(ullBegin, ullEnd, ullRefBegin, ullWindow, stRule.enAfterRefBegin) ||
                       NearRef(ullBegin, ullEnd, ullRefEnd, ullWindow, stRule.enAfterRefEnd);
    if (!bNear) {
        return COMPARE_OUTSIDE;
    }
    if (stRule.enKind == Kind::kString || ullBegin >= ullRefBegin) {
        return kInside;
    }
    // Only the end falls in the window: a transaction that began before the
    // page's last request belongs to it only if it was answered well.
    return orvane::ResponseOk(usEventCauseCode) ? kInside : COMPARE_OUTSIDE;
}

constexpr const char kAllPageFunc[] = "CompareMsgTimeWithAllPageNode";
constexpr uint32_t kLevelByTime = 1;

constexpr orvane::TimeJoinLines kWebPageTimeJoin{
    "Page is webtype,match page with time is OK.",
    "Match page(webtype) with time is OK,Update page error.",
    "Match page(webtype) with time is OK,Update page,PageID is %llu.",
};

// The windows of the time-only walk, prepared once for all its pages: the
// two rules with their bounds folded, and the web rule as the join takes it.
struct TimeOnlyWindows {
    orvane::FixedWindow<COMPARE_TRANS_WITH_PAGE> stWebPage;
    orvane::FixedWindow<COMPARE_APP_CORRELATION> stOtherPage;
    orvane::TimeWindow stWebJoin;
    // Their longest lengths, from the thresholds as they are now.
    uint64_t ullWebLongest = stWebPage.LongestLength();
    uint64_t ullOtherLongest = stOtherPage.LongestLength();

    void ReadLongest()
    {
        ullWebLongest = stWebPage.LongestLength();
        ullOtherLongest = stOtherPage.LongestLength();
    }
};

// Whether the page's window takes the event: a web page by the transaction
// window, any other by the application window. Most pages are outside, so
// the walk tests this inline and calls out only for a page that fits. A
// page long past the longest window of its kind is passed over on its two
// times.
__attribute__((always_inline)) inline bool FitsByTime(const STPageNode *pstPage, const STEventInfo *pstInfo,
                                                      uint64_t ullEarliest, const TimeOnlyWindows &stWindows)
{
    const bool bWeb = orvane::HasFlag(pstPage, PAGE_FLAG_WEBTYPE);
    if (orvane::LongPast(pstPage->ullPageLastReq, pstPage->ullPageLastRsp, ullEarliest,
                         bWeb ? stWindows.ullWebLongest : stWindows.ullOtherLongest) ||
        !orvane::MayJoinByTime(pstPage, pstInfo->ullReqBeginTime)) {
        return false;
    }
    if (bWeb) {
        const auto &stWeb = stWindows.stWebPage;
        return stWeb.Fits(pstPage->ullPageLastReq, pstPage->ullPageLastRsp, stWeb.LengthFor(pstPage->enNetworkType, 0));
    }
    const auto &stOther = stWindows.stOtherPage;
    return stOther.Fits(pstPage->ullPageLastReq, pstPage->ullPageLastRsp, stOther.LengthFor(pstPage->enNetworkType, 0));
}

// A page that FitsByTime: the ID that took the event, or 0 to go on.
uint64_t MatchPageByTime(STPageNode *pstPage, STEventInfo *pstInfo, const TimeOnlyWindows &stWindows)
{
    const uint8_t ucThreadID = pstInfo->ucThreadID;
    if (orvane::HasFlag(pstPage, PAGE_FLAG_WEBTYPE)) {
        return orvane::JoinByTransWindow(pstPage, pstInfo, stWindows.stWebJoin, kAllPageFunc, kWebPageTimeJoin)
                   ? pstPage->uiPageID
                   : 0;
    }

    LOG_TRACE_AS(kAllPageFunc, ucThreadID, "Page is not webtype,match page with time is OK.");
    // A web request near an application's traffic starts a page of its own
    // rather than being buried in the application's page.
    if (orvane::IsWebTypeAndNotBlack(pstInfo)) {
        const uint64_t ullNewID = InsertPageNode(pstInfo, PAGE_TYPE_ASSOCIATE, 0);
        if (ullNewID != 0) {
            LOG_TRACE_AS(kAllPageFunc, ucThreadID,
                         "Match page with time is OK,Reqevent is webtype and is not in blacklist,intert page,"
                         "PageID is %llu.",
                         static_cast<unsigned long long>(ullNewID));
            return ullNewID;
        }
        LOG_ERROR_AS(kAllPageFunc, ucThreadID,
                     "Match page with time is OK,Reqevent is webtype and is not in blacklist,intert page error.");
    }
    pstInfo->uiMatchLevel = kLevelByTime;
    if (UpdatePageNode(pstPage, pstInfo, PAGE_TYPE_ASSOCIATE) != 0) {
        LOG_ERROR_AS(kAllPageFunc, ucThreadID,
                     "Match page with time is OK,Reqevent is not webtype or is in blacklist.Update page error");
        return 0;
    }
    LOG_TRACE_AS(kAllPageFunc, ucThreadID,
                 "Match page with time is OK,Reqevent is not webtype or is in blacklist.Update page,PageID is %llu",
                 static_cast<unsigned long long>(pstPage->uiPageID));
    return pstPage->uiPageID;
}

}  // namespace

namespace orvane {

bool JoinByTransWindow(STPageNode *pstPage, STEventInfo *pstInfo, const TimeWindow &stWindow, const char *pcFunc,
                       const TimeJoinLines &stLines)
{
    const uint8_t ucTid = pstInfo->ucThreadID;
    if (!stWindow.Fits(pstPage->ullPageLastReq, pstPage->ullPageLastRsp,
                       stWindow.LengthFor(pstPage->enNetworkType, 0))) {
        return false;
    }
    LOG_TRACE_AS(pcFunc, ucTid, "%s", stLines.pcMatched);
    pstInfo->uiMatchLevel = kLevelByTime;
    if (UpdatePageNode(pstPage, pstInfo, PAGE_TYPE_ASSOCIATE) != 0) {
        LOG_ERROR_AS(pcFunc, ucTid, "%s", stLines.pcUpdateError);
        return false;
    }
    LOG_TRACE_AS(pcFunc, ucTid, stLines.pcUpdated, Llu(pstPage->uiPageID));
    return true;
}

}  // namespace orvane

extern "C" {

uint32_t CompareMsgTime(uint64_t ullPageFirReq, uint64_t ullReqBeginTime, uint64_t ullReqEndTime,
                        uint64_t ullRefBeginTime, uint64_t ullRefEndTime, uint32_t enCompareType,
                        uint32_t enNetworkType, uint16_t usPageCauseCode, uint16_t usEventCauseCode)
{
    // An event that began before the page did cannot belong to it.
    if (ullReqBeginTime != 0 && ullPageFirReq > ullReqBeginTime) {
        return COMPARE_OUTSIDE;
    }
    return EvaluateWindow(enCompareType, ullReqBeginTime, ullReqEndTime, ullRefBeginTime, ullRefEndTime,
                          enNetworkType, usPageCauseCode, usEventCauseCode);
}

// Locations of the main request and of sub-requests share one window.
uint32_t CompareMsgTimeUrlWithMainReqLocation(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                              uint64_t ullRefEnd, uint32_t enNetworkType)
{
    return EvaluateWindow(COMPARE_URL_WITH_MAIN_REQ_LOCATION, ullBegin, ullEnd, ullRefBegin, ullRefEnd,
                          enNetworkType, 0, 0);
}

uint32_t CompareMsgTimeUrlWithSubReqLocation(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                             uint64_t ullRefEnd, uint32_t enNetworkType)
    __attribute__((alias("CompareMsgTimeUrlWithMainReqLocation")));

uint32_t CompareMsgTimeRefererWithMainReqUrl(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                             uint64_t ullRefEnd, uint32_t enNetworkType)
{
    return EvaluateWindow(COMPARE_REFERER_WITH_MAIN_REQ_URL, ullBegin, ullEnd, ullRefBegin, ullRefEnd,
                          enNetworkType, 0, 0);
}

uint32_t CompareMsgTimeRefererWithSubReqUrl(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                            uint64_t ullRefEnd, uint32_t enNetworkType)
{
    return EvaluateWindow(COMPARE_REFERER_WITH_SUB_REQ_URL, ullBegin, ullEnd, ullRefBegin, ullRefEnd,
                          enNetworkType, 0, 0);
}

uint32_t CompareMsgTimeRefererWithReferer(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                          uint64_t ullRefEnd, uint32_t enNetworkType)
{
    return EvaluateWindow(COMPARE_REFERER_WITH_REFERER, ullBegin, ullEnd, ullRefBegin, ullRefEnd, enNetworkType, 0,
                          0);
}

uint32_t CompareMsgTimeHostWithMainReqHost(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                           uint64_t ullRefEnd, uint32_t enNetworkType, uint16_t usPageCauseCode)
{
    return EvaluateWindow(COMPARE_HOST_WITH_MAIN_REQ_HOST, ullBegin, ullEnd, ullRefBegin, ullRefEnd, enNetworkType,
                          usPageCauseCode, 0);
}

uint32_t CompareMsgTimeHostWithSubReqHost(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin,
                                          uint64_t ullRefEnd, uint32_t enNetworkType, uint16_t usPageCauseCode)
{
    return EvaluateWindow(COMPARE_HOST_WITH_SUB_REQ_HOST, ullBegin, ullEnd, ullRefBegin, ullRefEnd, enNetworkType,
                          usPageCauseCode, 0);
}

uint32_t CompareMsgTimeTransWithPage(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin, uint64_t ullRefEnd,
                                     uint32_t enNetworkType, uint16_t usEventCauseCode)
{
    return EvaluateWindow(COMPARE_TRANS_WITH_PAGE, ullBegin, ullEnd, ullRefBegin, ullRefEnd, enNetworkType, 0,
                          usEventCauseCode);
}

uint32_t CompareMsgTimeAppCorrelation(uint64_t ullBegin, uint64_t ullEnd, uint64_t ullRefBegin, uint64_t ullRefEnd,
                                      uint32_t enNetworkType, uint16_t usEventCauseCode)
{
    return EvaluateWindow(COMPARE_APP_CORRELATION, ullBegin, ullEnd, ullRefBegin, ullRefEnd, enNetworkType, 0,
                          usEventCauseCode);
}

uint64_t CompareMsgTimeWithAllPageNode(STEventInfo *pstInfo)
{
    if (!orvane::RecordArgsOk(__func__, pstInfo, LOG_TID_ANY, "Para err.", "ucThreadID err.")) {
        return 0;
    }
    const uint8_t ucThreadID = pstInfo->ucThreadID;
    LOG_TRACE(ucThreadID, "Other match is fail,match page with time.");
    const STWebPage *pstContext = orvane::ContextOf(ucThreadID);
    if (pstContext == nullptr || pstContext->stPageNodeList.uiNodeNum == 0) {
        LOG_TRACE(ucThreadID, "PageList is empty.");
        return 0;
    }

    // Newest page first, so among pages all within their windows the most
    // recently opened one takes the event.
    const uint64_t ullBegin = pstInfo->ullReqBeginTime;
    const uint64_t ullEnd = pstInfo->ullReqEndTime;
    const uint16_t usCause = pstInfo->usCauseCode;
    TimeOnlyWindows stWindows{
        orvane::FixedWindow<COMPARE_TRANS_WITH_PAGE>(ullBegin, ullEnd, usCause),
        orvane::FixedWindow<COMPARE_APP_CORRELATION>(ullBegin, ullEnd, usCause),
        orvane::TimeWindow(COMPARE_TRANS_WITH_PAGE, ullBegin, ullEnd, usCause),
    };
    const uint64_t ullEarliest = orvane::EarliestEventTime(ullBegin, ullEnd);
    uint64_t ullPageID = 0;
    orvane::WalkList(&pstContext->stPageNodeList, [&](STTranNode *pstNode) {
        STPageNode *pstPage = orvane::PageOf(pstNode);
        if (!FitsByTime(pstPage, pstInfo, ullEarliest, stWindows)) {
            return false;
        }
        ullPageID = MatchPageByTime(pstPage, pstInfo, stWindows);
        if (ullPageID != 0) {
            return true;
        }
        // A callback may have rewritten the thresholds.
        stWindows.ReadLongest();
        return false;
    });
    if (ullPageID == 0) {
        LOG_TRACE(ucThreadID, "Other match is fail,match page with time but not match page.");
    }
    return ullPageID;
}

}  // extern "C"
