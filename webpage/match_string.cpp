// Strings a page keeps from its later transactions, so that requests they
// lead to can be associated with it: one list per kind, oldest at the head.
#include <cstddef>

#include "webpage_util.hpp"

namespace {

using orvane::ContextOf;
using orvane::IsValidThread;
using orvane::MatchStrOf;
using orvane::NodeOf;
using orvane::Smaller;

// What a kind of string is made of: the page list it goes on, the working
// record's text (by offset, the arrays differ in size), length and key, and
// the page's first-request key it must differ from.
struct MatchStrKind {
    uint32_t uiKind;
    STTranManage STPageNode::*pstList;
    size_t textOffset;
    uint16_t textCapacity;
    uint16_t STEventInfo::*pusLen;
    uint32_t STEventInfo::*puiKey;
    uint32_t STPageNode::*puiFirstReqKey;
};

// In the order an event's strings are saved.
constexpr MatchStrKind kKinds[] = {
    {MATCH_STR_URL, &STPageNode::stURLList, offsetof(STEventInfo, acURL), URL_MAX_LEN, &STEventInfo::usURLLen,
     &STEventInfo::uiURLHashKey, &STPageNode::uiURLKey},
    {MATCH_STR_HOST, &STPageNode::stHostList, offsetof(STEventInfo, acHost), HOST_MAX_LEN, &STEventInfo::usHostLen,
     &STEventInfo::uiHostHashKey, &STPageNode::uiHostKey},
    {MATCH_STR_REFERER, &STPageNode::stRefererList, offsetof(STEventInfo, acRefererUrl), REFERER_MAX_LEN,
     &STEventInfo::usRefererUrlLen, &STEventInfo::uiRefererHashKey, &STPageNode::uiRefererKey},
    {MATCH_STR_LOCATION, &STPageNode::stLocationList, offsetof(STEventInfo, acLocation), LOCATION_MAX_LEN,
     &STEventInfo::usLocationLen, &STEventInfo::uiLocationHashKey, &STPageNode::uiLocationKey},
};

const MatchStrKind *KindOf(uint32_t uiKind)
{
    for (const MatchStrKind &stKind : kKinds) {
        if (stKind.uiKind == uiKind) {
            return &stKind;
        }
    }
    return nullptr;
}

const char *TextOf(const STEventInfo *pstInfo, const MatchStrKind &stKind)
{
    return reinterpret_cast<const char *>(pstInfo) + stKind.textOffset;
}

// The flow's open associate page on the ordinary list, by cached pointer or
// by ID. A page the timer has closed keeps its ID behind the flow's pointer,
// but strings linked onto its node would never be released: when the node is
// reused its lists start empty, and the strings are lost to the pool.
STPageNode *FlowAssociatePage(STEventInfo *pstInfo)
{
    if (!orvane::IsValidThread(pstInfo->ucThreadID)) {
        return nullptr;
    }
    return orvane::FindFlowPage(pstInfo, pstInfo->pstFlowInfo->ullAssociatePageID,
                                pstInfo->pstFlowInfo->pstAssociatePage, PAGE_LIST_ORDINARY, true);
}

STMatchStrNode *FindString(const STTranManage *pstList, uint32_t uiKey)
{
    return orvane::FindInList<STMatchStrNode>(pstList,
                                              [&](const STMatchStrNode *pstStr) { return pstStr->uiHashKey == uiKey; });
}

// Whether a non-empty list is the ring its count says: from the head,
// uiNodeNum distinct nodes whose links agree, the last leading back to the
// head (a walk that comes back to the head only then visits no node twice).
bool IsIntactRing(const STTranManage *pstList)
{
    STTranNode *const pstHead = pstList->pstHead;
    STTranNode *pstNode = pstHead;
    for (uint32_t i = 1; i <= pstList->uiNodeNum; ++i) {
        STTranNode *pstNext = pstNode->pstNext;
        if (pstNext == nullptr || pstNext->pstPrev != pstNode) {
            return false;
        }
        if (pstNext == pstHead) {
            return i == pstList->uiNodeNum;
        }
        pstNode = pstNext;
    }
    return false;
}

// SaveString's work once the kind is known and the arguments checked.
__attribute__((always_inline)) inline void SaveKind(STEventInfo *pstInfo, STPageNode *pstPage, CMemPool *pstPool,
                                                     uint64_t ullBeginTime, uint64_t ullEndTime,
                                                     const MatchStrKind &stKind)
{
    STTranManage *pstList = &(pstPage->*(stKind.pstList));
    if (pstList->uiNodeNum > MATCH_STR_NODE_NUM) {
        return;
    }
    const uint32_t uiKey = pstInfo->*(stKind.puiKey);

    STMatchStrNode *pstStr = FindString(pstList, uiKey);
    if (pstStr != nullptr) {
        // Seen again: it becomes the newest of its list, keeping its text and
        // the level it was first saved with.
        STTranNode *pstNode = NodeOf(pstStr);
        // Already the newest, its links agreeing with its neighbours': moving
        // it to the tail would rewrite every link as it is.
        STTranNode *const pstHead = pstList->pstHead;
        const bool bInPlace = pstList->uiNodeNum >= 2 && pstNode != pstHead && pstHead->pstPrev == pstNode &&
                              pstNode->pstNext == pstHead && pstNode->pstPrev != nullptr &&
                              pstNode->pstPrev->pstNext == pstNode;
        if (!bInPlace && orvane::ListRemove(pstNode, pstList) == 0 && orvane::ListInsertTail(pstNode, pstList) != 0) {
            orvane::PoolGive(pstNode, pstPool);
            return;
        }
        pstStr->ullBeginTime = ullBeginTime;
        pstStr->ullEndTime = ullEndTime;
        return;
    }

    // A full pool drops the string; the page keeps working with what it has.
    STTranNode *pstNode = orvane::PoolTake(pstPool);
    if (pstNode == nullptr) {
        return;
    }
    if (orvane::ListInsertTail(pstNode, pstList) != 0) {
        orvane::PoolGive(pstNode, pstPool);
        return;
    }
    pstStr = MatchStrOf(pstNode);
    const size_t len = Smaller(Smaller(pstInfo->*(stKind.pusLen), stKind.textCapacity), MATCH_STR_MAX_LEN);
    pstStr->ullBeginTime = ullBeginTime;
    pstStr->ullEndTime = ullEndTime;
    pstStr->usStrLen = static_cast<uint16_t>(len);
    pstStr->uiHashKey = uiKey;
    ORV_MEMCPY(pstStr->acStr, MATCH_STR_MAX_LEN, TextOf(pstInfo, stKind), len);
    pstStr->acStr[len] = '\0';
    pstStr->uiMatchLevel = pstInfo->uiMatchLevel + 1;
}

// SaveStringCommon's step for kind K (in kKinds' order, with its fields
// known at compile time): a string the event has and the page's first
// request had not.
template <size_t K>
inline void SaveIfNew(STEventInfo *pstInfo, STPageNode *pstPage, CMemPool *pstPool, uint64_t ullBegin,
                      uint64_t ullEnd)
{
    constexpr const MatchStrKind &stKind = kKinds[K];
    const uint32_t uiKey = pstInfo->*(stKind.puiKey);
    if (uiKey != 0 && uiKey != pstPage->*(stKind.puiFirstReqKey)) {
        SaveKind(pstInfo, pstPage, pstPool, ullBegin, ullEnd, stKind);
    }
}

}  // namespace

extern "C" {

void SaveStringCommon(STEventInfo *pstInfo)
{
    if (pstInfo == nullptr || pstInfo->pstFlowInfo == nullptr || pstInfo->pstFlowInfo->ullAssociatePageID == 0) {
        return;
    }
    STPageNode *pstPage = FlowAssociatePage(pstInfo);
    // Deep association chains stop here: strings of level 4 are the last.
    if (pstPage == nullptr || pstInfo->uiMatchLevel > MATCH_LEVEL_SAVE_MAX) {
        return;
    }
    const uint64_t ullBegin =
        pstInfo->ullReqBeginTime > pstInfo->ullRspBeginTime ? pstInfo->ullReqBeginTime : pstInfo->ullRspBeginTime;
    const uint64_t ullEnd = pstInfo->ullMsgEndTime != 0 ? pstInfo->ullMsgEndTime : ullBegin;
    if (ullBegin == 0 && ullEnd == 0) {
        return;
    }
    // FlowAssociatePage found the page through the thread's context.
    CMemPool *pstPool = &ContextOf(pstInfo->ucThreadID)->stMatchStrMemPool;
    SaveIfNew<0>(pstInfo, pstPage, pstPool, ullBegin, ullEnd);
    SaveIfNew<1>(pstInfo, pstPage, pstPool, ullBegin, ullEnd);
    SaveIfNew<2>(pstInfo, pstPage, pstPool, ullBegin, ullEnd);
    SaveIfNew<3>(pstInfo, pstPage, pstPool, ullBegin, ullEnd);
    static_assert(sizeof(kKinds) / sizeof(kKinds[0]) == 4, "every kind saved");
}

void SaveString(STEventInfo *pstInfo, STPageNode *pstPage, uint64_t ullBeginTime, uint64_t ullEndTime,
                uint32_t uiStrType)
{
    const MatchStrKind *pstKind = KindOf(uiStrType);
    if (pstInfo == nullptr || pstPage == nullptr || pstKind == nullptr) {
        return;
    }
    if ((pstPage->*(pstKind->pstList)).uiNodeNum > MATCH_STR_NODE_NUM || !IsValidThread(pstInfo->ucThreadID)) {
        return;
    }
    STWebPage *pstCtx = ContextOf(pstInfo->ucThreadID);
    if (pstCtx == nullptr) {
        return;
    }
    SaveKind(pstInfo, pstPage, &pstCtx->stMatchStrMemPool, ullBeginTime, ullEndTime, *pstKind);
}

void ReleaseMatchList(STTranManage *pstList, CMemPool *pstPool)
{
    if (pstList == nullptr || pstPool == nullptr) {
        return;
    }
    if (pstList->pstHead == nullptr || pstList->uiNodeNum == 0) {
        return;
    }
    if (IsIntactRing(pstList)) {
        // Unlinking node by node would leave this same state: every node in
        // the pool in list order, its links cleared, the list empty.
        STTranNode *pstNode = pstList->pstHead;
        for (uint32_t i = pstList->uiNodeNum; i != 0; --i) {
            STTranNode *pstNext = pstNode->pstNext;
            pstNode->pstPrev = nullptr;
            pstNode->pstNext = nullptr;
            orvane::PoolGiveUnlinked(pstNode, pstPool);
            pstNode = pstNext;
        }
        pstList->pstHead = nullptr;
        pstList->uiNodeNum = 0;
        return;
    }
    // The walk reads each successor before the visit, so every node can be
    // unlinked as it is visited; a node the list refuses to give up stays.
    orvane::WalkList(pstList, pstList->uiNodeNum, [&](STTranNode *pstNode) {
        if (orvane::ListRemove(pstNode, pstList) == 0) {
            orvane::PoolGive(pstNode, pstPool);
        }
        return false;
    });
}

}  // extern "C"
