// Closing quiet pages: the timer run, the release walks, the page judgement
// and the page result handed to the daemon.
#include <climits>

#include "webpage_util.hpp"

namespace {

using orvane::ContextOf;
using orvane::HasFlag;
using orvane::IsValidThread;
using orvane::PageListOf;
using orvane::PageOf;

constexpr uint8_t kDefaultQuietRuns = 12;
// ucTimeOutNum is 8 bits wide: a longer configured quiet time is capped here
// rather than left to wrap the counter and keep the page open for ever.
constexpr uint32_t kMaxQuietRuns = UINT8_MAX;

constexpr uint64_t kNsPerTimerRun = 5000000000ull;
constexpr uint64_t kDnsBeginMaxLeadNs = 9999999999ull;
constexpr uint64_t kLongPageNs = 120000000000ull;

constexpr uint16_t kMainCauseOkMin = 200;
constexpr uint16_t kMainCauseOkMax = 299;

// A judged page succeeds when more than num/den of its requests were answered
// successfully; a page with fewer than kCountedMinReq requests does not count.
struct SuccessRule {
    uint32_t uiNum;
    uint32_t uiDen;
};
constexpr SuccessRule kOrdinaryRule{4, 5};
constexpr SuccessRule kUcidRule{7, 10};
constexpr uint16_t kCountedMinReq = 5;

const SuccessRule &RuleOf(const STPageNode *pstPage) { return pstPage->ucIsUcidPage != 0 ? kUcidRule : kOrdinaryRule; }

uint8_t QuietRunLimit()
{
    const uint32_t uiSeconds = g_stWebPageConfig.usPageTimeOut;
    if (uiSeconds == 0) {
        return kDefaultQuietRuns;
    }
    const uint32_t uiRuns = uiSeconds / PAGE_TIMER_PERIOD_S;
    return static_cast<uint8_t>(uiRuns < kMaxQuietRuns ? uiRuns : kMaxQuietRuns);
}

// Only associate pages that look like web pages get a success verdict.
bool IsJudgedPage(const STPageNode *pstPage)
{
    if (pstPage->uiPageType != PAGE_TYPE_ASSOCIATE || !HasFlag(pstPage, PAGE_FLAG_WEBTYPE)) {
        return false;
    }
    return pstPage->ucIsUcidPage != 0 || !HasFlag(pstPage, PAGE_FLAG_ALL_POST);
}

// Delay from the DNS query when it began shortly before the page, else from
// the page's first time. Unsigned on purpose: the daemon's clock is trusted.
uint64_t PageDelay(const STPageNode *pstPage)
{
    const uint64_t ullDns = pstPage->ullDNSBeginTime;
    const uint64_t ullFirst = pstPage->ullPageFirReq;
    const bool bFromDns = ullDns != 0 && ullFirst >= ullDns && ullFirst - ullDns <= kDnsBeginMaxLeadNs;
    return pstPage->ullPageLastRsp - (bFromDns ? ullDns : ullFirst);
}

void ReportPage(STPageKQI *pstKQI)
{
    PFPageEndFunc pfPageEnd = g_PageEndFunc;
    if (pfPageEnd != nullptr) {
        (void)pfPageEnd(pstKQI);
    }
}

}  // namespace

namespace orvane {

void StopPageTimer(const char *pcFunc, uint32_t uiThreadID, STWebPage *pstCtx)
{
    LOG_TRACE_AS(pcFunc, uiThreadID, "Do not have any page, stop pagetimer.");
    if (g_stWebPageTimer.pfStopPageTimer != nullptr && pstCtx->ulPageTimer != 0) {
        LOG_TRACE_AS(pcFunc, uiThreadID, "stop pagetimer.");
        (void)g_stWebPageTimer.pfStopPageTimer(pstCtx->ulPageTimer);
        pstCtx->ulPageTimer = 0;
    }
}

}  // namespace orvane

extern "C" {

uint32_t API_InitWebPageTimer(uint32_t uiThreadID, PFStartPageTimer pfStart, PFStopPageTimer pfStop)
{
    if (!IsValidThread(uiThreadID) || pfStart == nullptr || pfStop == nullptr) {
        LOG_ERROR(uiThreadID, "Init para error.");
        return 1;
    }
    LOG_TRACE(uiThreadID, "PageTimerSize is %u.", (uint32_t)sizeof(STWebPageTimer));
    g_stWebPageTimer.pfStartPageTimer = pfStart;
    g_stWebPageTimer.pfStopPageTimer = pfStop;
    LOG_TRACE(uiThreadID, "InitWebPageTimer OK.");
    return 0;
}

void WebPageTimeOut(uint32_t uiThreadID)
{
    STWebPage *pstCtx = orvane::ExistingContext(__func__, uiThreadID);
    if (pstCtx == nullptr) {
        return;
    }
    LOG_TRACE(uiThreadID, "Page timer out process.");
    const uint32_t uiLeft = ProcessPageListTimeOut(uiThreadID, PAGE_PROC_TIMER, 0, PAGE_LIST_ORDINARY);
    const uint32_t uiUcidLeft = ProcessPageListTimeOut(uiThreadID, PAGE_PROC_TIMER, 0, PAGE_LIST_UCID);
    if (uiLeft != 0 || uiUcidLeft != 0) {
        return;
    }
    orvane::StopPageTimer(__func__, uiThreadID, pstCtx);
    orvane::LogPoolCounts(__func__, uiThreadID, pstCtx);
}

uint32_t ProcessPageListTimeOut(uint32_t uiThreadID, uint8_t ucProcType, uint8_t ucReport, uint8_t ucListType)
{
    if (!IsValidThread(uiThreadID)) {
        LOG_ERROR(uiThreadID, "ThreadID error.");
        return 0;
    }
    STWebPage *pstCtx = ContextOf(uiThreadID);
    if (pstCtx == nullptr) {
        return 0;
    }
    STTranManage *pstList = PageListOf(pstCtx, ucListType);
    const uint32_t uiPageNum = pstList->uiNodeNum;
    if (uiPageNum == 0) {
        LOG_TRACE(uiThreadID, "Page is empty.");
        return 0;
    }
    LOG_TRACE(uiThreadID, "Page num is %u.", uiPageNum);

    const char *const pcFunc = __func__;
    uint32_t uiClosed = 0;
    // The configured quiet time, read again after each step that may have
    // called the daemon (a log line, a page result), which may rewrite it.
    uint8_t ucQuietRuns = QuietRunLimit();
    (void)orvane::WalkList(pstList, uiPageNum, [&](STTranNode *pstNode) {
        STPageNode *pstPage = PageOf(pstNode);
        // Most runs only count a quiet page: ProcessPageNodeTimeOut's first
        // step, taken here without the call (it logs nothing on that path).
        if (ucProcType == PAGE_PROC_TIMER && pstPage->ucTimeOutNum < ucQuietRuns) {
            pstPage->ucTimeOutNum++;
            return false;
        }
        const uint8_t ucDone = ProcessPageNodeTimeOut(uiThreadID, pstPage, ucProcType, ucReport);
        ucQuietRuns = QuietRunLimit();
        if (ucDone != 1) {
            return false;
        }
        ReleasePageNode(uiThreadID, pstPage);
        const uint64_t ullPageID = pstPage->uiPageID;
        // A node the list refuses to give up stays linked rather than
        // being handed out twice by the pool.
        if (orvane::ListRemove(pstNode, pstList) == 0) {
            (void)orvane::PoolGive(pstNode, &pstCtx->stPageNodePool);
            LOG_TRACE_AS(pcFunc, uiThreadID, "Page is timeout,delete page,PageID is %llu.",
                         (unsigned long long)ullPageID);
            ucQuietRuns = QuietRunLimit();
            ++uiClosed;
        }
        return false;
    });
    return uiPageNum - uiClosed;
}

uint8_t ProcessPageNodeTimeOut(uint32_t uiThreadID, STPageNode *pstPage, uint8_t ucProcType, uint8_t ucReport)
{
    if (!IsValidThread(uiThreadID) || pstPage == nullptr) {
        LOG_ERROR(uiThreadID, "para error.");
        return 0;
    }
    bool bJudge = false;
    switch (ucProcType) {
    case PAGE_PROC_TIMER: {
        if (pstPage->ucTimeOutNum < QuietRunLimit()) {
            pstPage->ucTimeOutNum++;
            return 0;
        }
        bJudge = true;
        break;
    }
    case PAGE_PROC_RELEASE:
        break;
    case PAGE_PROC_RELEASE_NODE:
        if (ucReport == 0) {
            return 1;
        }
        break;
    default:
        return 0;
    }

    STPageKQI stKQI;
    InitPageKQI(&stKQI);
    stKQI.usCauseCode = HasFlag(pstPage, PAGE_FLAG_MAIN_REQ) ? pstPage->usMainCauseCode : pstPage->usCauseCode;
    stKQI.uiPageID = pstPage->uiPageID;

    // Releasing nodes reports only which page ended and how.
    if (ucProcType != PAGE_PROC_RELEASE_NODE) {
        LOG_TRACE(uiThreadID, "page is timeout  page reqEvent is %u usRspNum  %u  RspSuccNum %u ", pstPage->usReqNum,
                  pstPage->usRspNum, pstPage->usRspSuccNum);
        if (bJudge && IsJudgedPage(pstPage)) {
            uint32_t uiMainCauseFail = 0;
            stKQI.ucSuccFlag = static_cast<uint8_t>(IsPageOK(pstPage, &uiMainCauseFail));
            stKQI.ucPageFlag = IsInvalidPage(pstPage, stKQI.ucSuccFlag);
            if (uiMainCauseFail == 0 && stKQI.ucSuccFlag == 0) {
                stKQI.usCauseCode = WEBPAGE_CAUSE_LOW_SUCCESS_RATIO;
            }
        }
        LOG_TRACE(uiThreadID,
                  "page is timeout  page time ,PageFirReq is %llu, PageLastReq is %llu, PageLastRsp is "
                  "%llu.DNSBeginTime is %llu,DNSDelay is %u,PageID is %llu",
                  (unsigned long long)pstPage->ullPageFirReq, (unsigned long long)pstPage->ullPageLastReq,
                  (unsigned long long)pstPage->ullPageLastRsp, (unsigned long long)pstPage->ullDNSBeginTime,
                  pstPage->uiDnsDelay, (unsigned long long)pstPage->uiPageID);

        uint64_t ullDelay = PageDelay(pstPage);
        // Requests left unanswered: the page lasted at least its quiet time.
        const uint64_t ullQuietNs = static_cast<uint64_t>(pstPage->ucTimeOutNum) * kNsPerTimerRun;
        if (pstPage->usRspNum < pstPage->usReqNum && ullDelay < ullQuietNs) {
            LOG_TRACE(uiThreadID, "RspNum < ReqNum   real pageDelay %llu < 60s;", (unsigned long long)ullDelay);
            ullDelay = ullQuietNs;
            stKQI.usCauseCode = WEBPAGE_CAUSE_UNANSWERED;
        }
        if (ullDelay > kLongPageNs) {
            LOG_TRACE(uiThreadID,
                      "Page is delay >120s  pageflag is %u,flag is %u,PageID is %llu,pagedelay is %llu,DnsDelay is "
                      "%u;",
                      stKQI.ucPageFlag, stKQI.ucSuccFlag, (unsigned long long)pstPage->uiPageID,
                      (unsigned long long)ullDelay, pstPage->uiDnsDelay);
            stKQI.ucPageFlag = 0;
            stKQI.ucSuccFlag = 0;
        }
        stKQI.uiDnsDelay = pstPage->uiDnsDelay;
        stKQI.ullPageDelay = ullDelay;
    }

    LOG_INFO(uiThreadID,
             "Page is timeout,usCauseCode is %u,pageflag is %u,flag is %u,PageID is %llu,pagedelay is %llu,DnsDelay "
             "is %u",
             stKQI.usCauseCode, stKQI.ucPageFlag, stKQI.ucSuccFlag, (unsigned long long)stKQI.uiPageID,
             (unsigned long long)stKQI.ullPageDelay, stKQI.uiDnsDelay);
    ReportPage(&stKQI);
    return 1;
}

void ReleasePageNode(uint32_t uiThreadID, STPageNode *pstPage)
{
    if (!IsValidThread(uiThreadID) || pstPage == nullptr) {
        LOG_ERROR(uiThreadID, "Para error.");
        return;
    }
    STWebPage *pstCtx = ContextOf(uiThreadID);
    if (pstCtx == nullptr) {
        return;
    }
    CMemPool *pstPool = &pstCtx->stMatchStrMemPool;
    ReleaseMatchList(&pstPage->stHostList, pstPool);
    ReleaseMatchList(&pstPage->stURLList, pstPool);
    ReleaseMatchList(&pstPage->stRefererList, pstPool);
    ReleaseMatchList(&pstPage->stLocationList, pstPool);
}

void InitPageKQI(STPageKQI *pstPageKQI)
{
    if (pstPageKQI != nullptr) {
        ORV_MEMSET(pstPageKQI, sizeof(*pstPageKQI), 0, sizeof(*pstPageKQI));
    }
}

uint32_t IsPageMainCauseOK(uint16_t usCauseCode)
{
    return (usCauseCode >= kMainCauseOkMin && usCauseCode <= kMainCauseOkMax) ? 1u : 0u;
}

uint32_t IsPageOK(STPageNode *pstPage, uint32_t *puiMainCauseFail)
{
    if (pstPage == nullptr || puiMainCauseFail == nullptr) {
        return 0;
    }
    // usMainCauseCode stays 0 until the main request is known, which fails here.
    const bool bMainOK = IsPageMainCauseOK(pstPage->usMainCauseCode) != 0;
    *puiMainCauseFail = bMainOK ? 0u : 1u;
    if (!bMainOK || pstPage->usReqNum == 0) {
        return 0;
    }
    const SuccessRule &stRule = RuleOf(pstPage);
    const uint64_t ullGood = static_cast<uint64_t>(pstPage->usRspSuccNum) * stRule.uiDen;
    const uint64_t ullNeeded = static_cast<uint64_t>(pstPage->usReqNum) * stRule.uiNum;
    return ullGood > ullNeeded ? 1u : 0u;
}

uint8_t IsInvalidPage(STPageNode *pstPage, uint8_t ucSuccFlag)
{
    if (pstPage == nullptr || HasFlag(pstPage, PAGE_FLAG_HTTPS_REDIRECT)) {
        return 0;
    }
    if (g_stTestConfig == 1) {
        return 1;
    }
    // A failed ordinary page always counts; a successful one, and any UCID
    // page, only once it carried enough requests to be a real page.
    if (pstPage->ucIsUcidPage == 0 && ucSuccFlag == 0) {
        return 1;
    }
    return pstPage->usReqNum >= kCountedMinReq ? 1 : 0;
}

}  // extern "C"
