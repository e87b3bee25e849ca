// TEMPORARY: weak placeholders so partial builds link while modules land. Removed before release.
#include "webpage_internal.h"
extern "C" {
__attribute__((weak)) uint32_t GetReqEventInfo(const STWebPageEvent *, STEventInfo *) { return 0; }
__attribute__((weak)) uint32_t GetRspEventInfo(const STWebPageEvent *, STEventInfo *) { return 0; }
__attribute__((weak)) uint32_t StrlwrAndBKDRHash(char *, uint32_t) { return 0; }
__attribute__((weak)) void AssemblyString(char *, uint16_t *, const char *, uint16_t, uint16_t) {}
__attribute__((weak)) void ProcLocation(char *, uint16_t, uint16_t *, uint32_t *) {}
__attribute__((weak)) void LocationIsHttps(STEventInfo *, uint16_t) {}
__attribute__((weak)) uint32_t IsRedirect(uint16_t) { return 0; }
__attribute__((weak)) uint32_t Is407CauseCode(uint16_t) { return 0; }
__attribute__((weak)) uint64_t InsertPageNode(STEventInfo *, uint32_t, uint8_t) { return 0; }
__attribute__((weak)) void SaveFirReqString(STEventInfo *, STPageNode *) {}
__attribute__((weak)) void InitPageNode(STPageNode *) {}
__attribute__((weak)) void InitPageProcessInfo(uint8_t, STFlowInfo *, STEventInfo *) {}
__attribute__((weak)) STPageNode * GetSinglePageNodeByFlowInfo(STEventInfo *, uint8_t) { return 0; }
__attribute__((weak)) STPageNode * GetAssociatePageNodeByFlowInfo(STEventInfo *, uint8_t) { return 0; }
__attribute__((weak)) STPageNode * GetPageNodeByFlowInfo(STEventInfo *, uint8_t) { return 0; }
__attribute__((weak)) uint32_t UpdatePageNode(STPageNode *, STEventInfo *, uint32_t) { return 0; }
__attribute__((weak)) void UpdatePageReqAndRspTime(STPageNode *, STEventInfo *) {}
__attribute__((weak)) void SetMainPageReq(STPageNode *, STEventInfo *) {}
__attribute__((weak)) uint32_t IsRsponseOK(uint16_t) { return 0; }
__attribute__((weak)) void UpdateMethodInfo(STPageNode *, STEventInfo *) {}
__attribute__((weak)) uint8_t IsWebType(const char *, uint16_t, uint16_t, uint16_t) { return 0; }
__attribute__((weak)) uint8_t IsBlackList(char *, uint16_t, uint16_t, char *, uint16_t, uint16_t, char *, uint16_t, uint16_t) { return 0; }
__attribute__((weak)) uint8_t IsHostBlackList(char *, uint16_t, uint16_t) { return 0; }
__attribute__((weak)) uint8_t IsUrlBlackList(char *, uint16_t, uint16_t) { return 0; }
__attribute__((weak)) uint32_t IsHeartBreak(uint32_t) { return 0; }
__attribute__((weak)) uint64_t ProcessHeartBeat(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t WebPageEventReqProcess(STEventInfo *, const STWebPageEvent *) { return 0; }
__attribute__((weak)) uint64_t WebPageMsgMatch(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t ProcessNoMsgOrMatchFail(STEventInfo *, uint8_t) { return 0; }
__attribute__((weak)) uint64_t WebPageEventRspProcess(STEventInfo *, const STWebPageEvent *) { return 0; }
__attribute__((weak)) uint32_t GetCompareInfo(STEventInfo *, uint32_t, STCompareInfo *) { return 0; }
__attribute__((weak)) void StrcatUriWithPort(char *, uint16_t *, uint16_t, const char *, uint16_t, uint16_t) {}
__attribute__((weak)) uint8_t IsUrlSameAsLocation(STCompareInfo *, char *, uint16_t) { return 0; }
__attribute__((weak)) uint8_t IsRefererSameAsUrl(STCompareInfo *, char *, uint16_t, const char *, uint16_t) { return 0; }
__attribute__((weak)) uint32_t CompareMainReqStrWithDiffType(STPageNode *, STCompareInfo *, uint32_t) { return 0; }
__attribute__((weak)) uint64_t CompareMainReqString(STEventInfo *, STCompareInfo *, uint32_t) { return 0; }
__attribute__((weak)) uint64_t SpecialProcHostWithMainReqHost(STPageNode *, STEventInfo *, STCompareInfo *, uint32_t) { return 0; }
__attribute__((weak)) void SpecialProcUrlWithMainReqLocation(STPageNode *, STEventInfo *) {}
__attribute__((weak)) uint64_t CompareMainReqCommon(STEventInfo *, uint32_t) { return 0; }
__attribute__((weak)) STPageNode * GetLatelyAssociatePageNode(STEventInfo *) { return 0; }
__attribute__((weak)) uint32_t GetSubCompareInfo(STPageNode *, STEventInfo *, uint32_t, STCompareInfo *) { return 0; }
__attribute__((weak)) uint32_t CompareSubReqStrWithDiffType(STMatchStrNode *, STCompareInfo *, const char *, uint16_t, uint32_t) { return 0; }
__attribute__((weak)) uint64_t CompareSubReqString(STEventInfo *, STPageNode *, STCompareInfo *, uint32_t) { return 0; }
__attribute__((weak)) uint64_t CompareRefererWithAllReqReferer(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t CompareRefererWithReferer(STEventInfo *, STPageNode *) { return 0; }
__attribute__((weak)) uint64_t ProcessSpecialUri(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t CompareSubReqCommon(STPageNode *, STEventInfo *, uint32_t) { return 0; }
__attribute__((weak)) uint64_t CompareUrlWithSubReqLocation(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t CompareRefererWithSubReqUrl(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t CompareHostWithSubReqHost(STEventInfo *) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTime(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint32_t, uint32_t, uint16_t, uint16_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeUrlWithMainReqLocation(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeUrlWithSubReqLocation(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeRefererWithMainReqUrl(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeRefererWithSubReqUrl(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeRefererWithReferer(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeHostWithMainReqHost(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t, uint16_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeHostWithSubReqHost(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t, uint16_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeTransWithPage(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t, uint16_t) { return 0; }
__attribute__((weak)) uint32_t CompareMsgTimeAppCorrelation(uint64_t, uint64_t, uint64_t, uint64_t, uint32_t, uint16_t) { return 0; }
__attribute__((weak)) uint64_t CompareMsgTimeWithAllPageNode(STEventInfo *) { return 0; }
__attribute__((weak)) uint32_t IsUrlContainsUcid(char *, uint16_t, uint16_t) { return 0; }
__attribute__((weak)) uint64_t WebPageUcidMsgMatch(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t CompareUcidMsgTime(STEventInfo *) { return 0; }
__attribute__((weak)) uint64_t InsertUcidPageNode(STEventInfo *, uint32_t) { return 0; }
__attribute__((weak)) uint64_t UcidGetPageNodeByFlowInfo(STEventInfo *) { return 0; }
__attribute__((weak)) void SaveStringCommon(STEventInfo *) {}
__attribute__((weak)) void SaveString(STEventInfo *, STPageNode *, uint64_t, uint64_t, uint32_t) {}
__attribute__((weak)) void ReleaseMatchList(STTranManage *, CMemPool *) {}
__attribute__((weak)) uint32_t ProcessPageListTimeOut(uint32_t, uint8_t, uint8_t, uint8_t) { return 0; }
__attribute__((weak)) uint8_t ProcessPageNodeTimeOut(uint32_t, STPageNode *, uint8_t, uint8_t) { return 0; }
__attribute__((weak)) void ReleasePageNode(uint32_t, STPageNode *) {}
__attribute__((weak)) void InitPageKQI(STPageKQI *) {}
__attribute__((weak)) uint32_t IsPageMainCauseOK(uint16_t) { return 0; }
__attribute__((weak)) uint32_t IsPageOK(STPageNode *, uint32_t *) { return 0; }
__attribute__((weak)) uint8_t IsInvalidPage(STPageNode *, uint8_t) { return 0; }
__attribute__((weak)) uint32_t API_InitConfig(uint32_t, const STWebPageConfig *) { return 0; }
__attribute__((weak)) uint32_t API_InitWebPage(uint32_t, const STWebPageConfig *, uint32_t *, PFPageEndFunc, PFDNSQueryFunc) { return 0; }
__attribute__((weak)) uint32_t API_InitWebPageTimer(uint32_t, PFStartPageTimer, PFStopPageTimer) { return 0; }
__attribute__((weak)) void API_InitWebPageFlow(STFlowInfo *) {}
__attribute__((weak)) uint32_t API_AssociateWebPage(uint32_t, STFlowInfo *, const STWebPageEvent *, uint64_t *) { return 0; }
__attribute__((weak)) void API_ReleaseWebPage(uint32_t) {}
__attribute__((weak)) void API_ReleaseWebPageNode(uint32_t, uint32_t) {}
__attribute__((weak)) void API_PrintWebPageLog(uint32_t, uint32_t) {}
__attribute__((weak)) uint32_t API_TestConfig(uint32_t, uint8_t) { return 0; }
__attribute__((weak)) void InitWebPageConfig(STPageConfig *) {}
__attribute__((weak)) void WebPageTimeOut(uint32_t) {}
}
