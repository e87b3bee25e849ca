// Moves a flow's finished transactions into its session, one list per
// direction, merging overlaps so that each list is a sorted run of disjoint
// busy intervals; then sums payload and busy time per direction.
#include "ott_internal.hpp"

namespace {

using orvane::FreeTrans;
using orvane::kOttErrorTid;
using orvane::ListInsertTail;
using orvane::ListRemove;
using orvane::PoolGive;
using orvane::TransOf;

STTranManage *TargetList(STOttSession *pstSession, uint8_t ucDirection)
{
    switch (ucDirection) {
        case OTT_DIRECTION_UP:
            return &pstSession->stUpTransList;
        case OTT_DIRECTION_DOWN:
            return &pstSession->stDwTransList;
        default:
            return nullptr;
    }
}

// Returns a node that is on no list (the new transaction) to the pool.
void ReturnLooseNode(STOttTransNode *pstNode, CMemPool *pstPool, const STTranManage *pstList)
{
    if (pstPool == nullptr || pstList == nullptr) {
        LOG_ERROR_AS("FreeOttTransNode", kOttErrorTid, "FreeOttTransNode input param error.");
        return;
    }
    PoolGive(&pstNode->stNode, pstPool);
}

// Links pstNode in front of pstBefore. Seen from pstBefore as the head, that
// spot is the ring's tail, so the list's own checked append does the linking.
uint32_t InsertBefore(STTranNode *pstNode, STTranNode *pstBefore, STTranManage *pstList)
{
    if (pstBefore == pstList->pstHead) {
        return InsertNodeHead(pstNode, pstList);
    }
    STTranNode *const pstHead = pstList->pstHead;
    pstList->pstHead = pstBefore;
    const uint32_t uiRet = ListInsertTail(pstNode, pstList);
    pstList->pstHead = pstHead;
    return uiRet;
}

struct Anchors {
    STOttTransNode *pstFirst = nullptr;  // where the new begin falls
    STOttTransNode *pstLast = nullptr;   // where the new end falls
    uint8_t ucBeginKind = 0;
    uint8_t ucEndKind = 0;

    bool Complete() const { return pstFirst != nullptr && pstLast != nullptr; }
    bool SetFirst(STOttTransNode *pstNode, uint8_t ucKind)
    {
        pstFirst = pstNode;
        ucBeginKind = ucKind;
        return Complete();
    }
    bool SetLast(STOttTransNode *pstNode, uint8_t ucKind)
    {
        pstLast = pstNode;
        ucEndKind = ucKind;
        return Complete();
    }
};

bool Within(uint64_t ullStamp, const STOttTransNode &stNode)
{
    return stNode.ullBeginTime <= ullStamp && ullStamp <= stNode.ullEndTime;
}

// In the gap in front of stNode: from the previous node's end, included, to
// stNode's begin, excluded.
bool InGapBefore(uint64_t ullStamp, const STOttTransNode &stPrev, const STOttTransNode &stNode)
{
    return stPrev.ullEndTime <= ullStamp && ullStamp < stNode.ullBeginTime;
}

// Walks from the tail towards the head and stops as soon as both anchors are
// known, so a transaction near the tail costs a step or two. The order of the
// checks decides which node a touching stamp belongs to.
Anchors FindAnchors(STTranManage *pstList, const STOttTransNode &stNew)
{
    // Nothing in the walk writes the new node: its stamps stay in registers.
    const uint64_t ullBegin = stNew.ullBeginTime;
    const uint64_t ullEnd = stNew.ullEndTime;
    Anchors stAnchors;
    STTranNode *const pstHead = pstList->pstHead;
    orvane::WalkListBackward(pstList, pstList->uiNodeNum, [&](STTranNode *pstCur) {
        STOttTransNode &stCur = *TransOf(pstCur);
        if (Within(ullBegin, stCur) && stAnchors.SetFirst(&stCur, OTT_MERGE_INSIDE)) {
            return true;
        }
        if (Within(ullEnd, stCur) && stAnchors.SetLast(&stCur, OTT_MERGE_INSIDE)) {
            return true;
        }
        if (pstCur == pstHead) {
            if (ullBegin < stCur.ullBeginTime) {
                stAnchors.SetFirst(&stCur, OTT_MERGE_BEFORE);
            }
            return true;
        }
        if (pstCur->pstPrev == nullptr) {
            return true;
        }
        const STOttTransNode &stPrev = *TransOf(pstCur->pstPrev);
        if (InGapBefore(ullBegin, stPrev, stCur) && stAnchors.SetFirst(&stCur, OTT_MERGE_BEFORE)) {
            return true;
        }
        return InGapBefore(ullEnd, stPrev, stCur) && stAnchors.SetLast(&stCur, OTT_MERGE_BEFORE);
    });
    return stAnchors;
}

// Drains the list from its head, summing each node and returning it to the
// pool (FreeOttTransNode's steps). The pool's tail and counters are kept in
// locals over the loop: no node lies in the pool's or the list's record.
void SumDirection(CMemPool *pstPool, STTranManage *pstList, uint64_t &ullPayLoad, uint64_t &ullDuration)
{
    STTranNode *pstFreeHead = pstPool->m_pstFreeHead;
    STTranNode *pstFreeTail = pstPool->m_pstFreeTail;
    uint32_t uiFree = pstPool->m_uiFreeNodeNum;
    uint32_t uiUsed = pstPool->m_uiUsedNodeNum;
    STTranNode *pstHead = pstList->pstHead;
    uint32_t uiNum = pstList->uiNodeNum;
    uint64_t ullPay = ullPayLoad;
    uint64_t ullDur = ullDuration;
    const uint32_t uiCount = uiNum;
    for (uint32_t i = 0; i < uiCount && pstHead != nullptr; ++i) {
        STOttTransNode *pstNode = TransOf(pstHead);
        ullPay += pstNode->uiPayLoad;
        // A node without a valid interval ends the sums; the rest is released unread.
        if (pstNode->ullBeginTime == 0 || pstNode->ullEndTime <= pstNode->ullBeginTime) {
            break;
        }
        ullDur += pstNode->ullEndTime - pstNode->ullBeginTime;
        // RemoveNode: the node is the head.
        STTranNode *const pstLinks = pstHead;
        if (uiNum == 1) {
            pstHead = nullptr;
            uiNum = 0;
        } else if (uiNum != 0 && pstLinks->pstNext != nullptr && pstLinks->pstPrev != nullptr) {
            pstLinks->pstPrev->pstNext = pstLinks->pstNext;
            pstLinks->pstNext->pstPrev = pstLinks->pstPrev;
            pstHead = pstLinks->pstNext;
            uiNum--;
        }
        // FreeNodeMem.
        pstLinks->pstPrev = nullptr;
        pstLinks->pstNext = nullptr;
        if (pstFreeTail != nullptr) {
            pstFreeTail->pstNext = pstLinks;
        } else {
            pstFreeHead = pstLinks;
        }
        pstFreeTail = pstLinks;
        uiFree++;
        uiUsed--;
    }
    pstPool->m_pstFreeHead = pstFreeHead;
    pstPool->m_pstFreeTail = pstFreeTail;
    pstPool->m_uiFreeNodeNum = uiFree;
    pstPool->m_uiUsedNodeNum = uiUsed;
    pstList->pstHead = pstHead;
    pstList->uiNodeNum = uiNum;
    ullPayLoad = ullPay;
    ullDuration = ullDur;
}

// The anchor walk and the merge it finds, kept out of line: its loop is
// compiled on its own, not inside the flow walk.
__attribute__((noinline)) void MergeByAnchors(STTranManage *pstList, STOttTransNode *pstNew, CMemPool *pstPool)
{
    const Anchors stAnchors = FindAnchors(pstList, *pstNew);
    if (!stAnchors.Complete()) {
        // Only a list out of time order gets here; the node must not be lost.
        ReturnLooseNode(pstNew, pstPool, pstList);
        return;
    }
    MergeOneTransaction(pstNew, stAnchors.pstFirst, stAnchors.pstLast, stAnchors.ucBeginKind,
                        stAnchors.ucEndKind, pstPool, pstList);
}

// StartMergeTrans, inline in the merge of a flow. Unlinked: the flow merge
// has just unlinked the node, so its links are null already.
template <bool Unlinked>
inline void MergeIntoList(STTranManage *pstList, STOttTransNode *pstNew, CMemPool *pstPool)
{
    if (pstList == nullptr || pstNew == nullptr || pstList->pstHead == nullptr ||
        pstList->pstHead->pstPrev == nullptr || pstNew->ullBeginTime >= pstNew->ullEndTime) {
        return;
    }
    STOttTransNode *pstHead = TransOf(pstList->pstHead);
    STOttTransNode *pstTail = TransOf(pstList->pstHead->pstPrev);
    if (pstNew->ullBeginTime > pstTail->ullEndTime) {
        ListInsertTail(&pstNew->stNode, pstList);
        return;
    }
    if (pstNew->ullEndTime < pstHead->ullBeginTime) {
        InsertNodeHead(&pstNew->stNode, pstList);
        return;
    }
    // Pull the tail out to the new end, so the end always lands in or before a node.
    if (pstNew->ullEndTime >= pstTail->ullEndTime) {
        pstTail->ullEndTime = pstNew->ullEndTime;
    }
    // Both stamps in the tail, the anchor walk's first node: the merge adds
    // the payload to the tail and returns the new node, as the walk would.
    if (pstPool != nullptr && pstList->uiNodeNum != 0 && Within(pstNew->ullBeginTime, *pstTail) &&
        Within(pstNew->ullEndTime, *pstTail)) {
        pstTail->uiPayLoad += pstNew->uiPayLoad;
        if (Unlinked) {
            orvane::PoolGiveUnlinked(&pstNew->stNode, pstPool);
        } else {
            PoolGive(&pstNew->stNode, pstPool);
        }
        return;
    }
    MergeByAnchors(pstList, pstNew, pstPool);
}

}  // namespace

extern "C" {

STOttTransNode *FindFirstOverTrans(const STTranManage *pstList)
{
    if (pstList == nullptr || pstList->pstHead == nullptr || pstList->uiNodeNum == 0) {
        return nullptr;
    }
    return TransOf(orvane::WalkList(pstList, [](STTranNode *pstNode) {
        return TransOf(pstNode)->ucState == OTT_STATE_OVER;
    }));
}

uint32_t API_OTTTransMerge(CMemPool *pstPool, STOttSession *pstSession, STOttFlow *pstFlow)
{
    if (pstPool == nullptr || pstSession == nullptr || pstFlow == nullptr) {
        return OTT_RET_PARAM;
    }
    STTranManage *const pstFlowList = &pstFlow->stTransList;
    if (pstFlowList->uiNodeNum == 0) {
        return OTT_RET_NOTHING;
    }
    // One pass in arrival order: every finished node before the current one
    // has already left the list, so this is the "first finished node" each time.
    orvane::WalkList(pstFlowList, [&](STTranNode *pstCur) {
        STOttTransNode *pstNode = TransOf(pstCur);
        if (pstNode->ucState != OTT_STATE_OVER) {
            return false;
        }
        STTranManage *pstTarget = TargetList(pstSession, pstNode->ucDirection);
        if (pstTarget == nullptr) {
            return true;  // the rest of the flow is dropped below
        }
        if (pstNode->ullBeginTime >= pstNode->ullEndTime) {
            FreeTrans(pstPool, pstNode, pstFlowList);
            return false;
        }
        if (ListRemove(pstCur, pstFlowList) != 0) {
            return true;
        }
        if (pstTarget->uiNodeNum == 0) {
            ListInsertTail(pstCur, pstTarget);
        } else {
            MergeIntoList<true>(pstTarget, pstNode, pstPool);
        }
        return false;
    });
    // Unfinished transactions do not outlive a merge.
    if (pstFlowList->uiNodeNum != 0) {
        orvane::ReleaseTransList(pstPool, pstFlowList);
    }
    return OTT_RET_OK;
}

void StartMergeTrans(STTranManage *pstList, STOttTransNode *pstNew, CMemPool *pstPool)
{
    MergeIntoList<false>(pstList, pstNew, pstPool);
}

void MergeOneTransaction(STOttTransNode *pstNew, STOttTransNode *pstFirst, STOttTransNode *pstLast,
                         uint8_t ucBeginKind, uint8_t ucEndKind, CMemPool *pstPool, STTranManage *pstList)
{
    if (pstNew == nullptr || pstFirst == nullptr || pstLast == nullptr || pstPool == nullptr ||
        pstList == nullptr) {
        return;
    }
    const bool bBeginInside = (ucBeginKind == OTT_MERGE_INSIDE);
    const bool bEndInside = (ucEndKind == OTT_MERGE_INSIDE);
    if ((!bBeginInside && ucBeginKind != OTT_MERGE_BEFORE) || (!bEndInside && ucEndKind != OTT_MERGE_BEFORE)) {
        return;
    }
    if (!bBeginInside && !bEndInside && pstFirst == pstLast) {
        // Wholly inside one gap: a node of its own.
        if (InsertBefore(&pstNew->stNode, &pstFirst->stNode, pstList) != 0) {
            ReturnLooseNode(pstNew, pstPool, pstList);
        }
        return;
    }
    if (!bBeginInside) {
        pstFirst->ullBeginTime = pstNew->ullBeginTime;
    }
    if (bEndInside) {
        pstFirst->ullEndTime = pstLast->ullEndTime;
    } else {
        pstFirst->ullEndTime = pstNew->ullEndTime;
    }
    // An end in a gap stops short of the node behind that gap.
    STOttTransNode *pstAbsorbTo = bEndInside ? pstLast : TransOf(pstLast->stNode.pstPrev);
    if (pstAbsorbTo == nullptr) {
        return;
    }
    UpdateMergeTransPayLoad(pstNew, pstFirst, pstAbsorbTo, ucBeginKind, ucEndKind, pstPool, pstList);
    if (pstAbsorbTo != pstFirst) {
        ReturnLooseNode(pstNew, pstPool, pstList);
    }
}

void UpdateMergeTransPayLoad(STOttTransNode *pstNew, STOttTransNode *pstFirst, STOttTransNode *pstLast,
                             uint8_t ucBeginKind, uint8_t ucEndKind, CMemPool *pstPool, STTranManage *pstList)
{
    (void)ucBeginKind;
    (void)ucEndKind;
    if (pstNew == nullptr || pstFirst == nullptr || pstLast == nullptr) {
        return;
    }
    pstFirst->uiPayLoad += pstNew->uiPayLoad;
    if (pstLast == pstFirst) {
        ReturnLooseNode(pstNew, pstPool, pstList);
        return;
    }
    const uint32_t uiLimit = (pstList != nullptr) ? pstList->uiNodeNum : TRAN_LIST_MAX_WALK;
    orvane::WalkListFrom(pstFirst->stNode.pstNext, uiLimit, [&](STTranNode *pstCur) {
        if (pstCur == &pstFirst->stNode) {
            return true;  // wrapped around: pstLast was not behind pstFirst
        }
        STOttTransNode *pstNode = TransOf(pstCur);
        pstFirst->uiPayLoad += pstNode->uiPayLoad;
        FreeTrans(pstPool, pstNode, pstList);
        return pstNode == pstLast;
    });
}

uint32_t API_OTTTransSpeed(CMemPool *pstPool, STOttSession *pstSession, uint64_t *pullUpPayLoad,
                           uint64_t *pullUpDuration, uint64_t *pullDwPayLoad, uint64_t *pullDwDuration)
{
    // Without a pool no node could go back, so the session would be left half read.
    if (pstPool == nullptr || pstSession == nullptr || pullUpPayLoad == nullptr ||
        pullUpDuration == nullptr || pullDwPayLoad == nullptr || pullDwDuration == nullptr) {
        return OTT_RET_PARAM;
    }
    uint64_t ullUpPayLoad = 0;
    uint64_t ullUpDuration = 0;
    uint64_t ullDwPayLoad = 0;
    uint64_t ullDwDuration = 0;
    SumDirection(pstPool, &pstSession->stUpTransList, ullUpPayLoad, ullUpDuration);
    SumDirection(pstPool, &pstSession->stDwTransList, ullDwPayLoad, ullDwDuration);
    orvane::ReleaseTransList(pstPool, &pstSession->stUpTransList);
    orvane::ReleaseTransList(pstPool, &pstSession->stDwTransList);
    *pullUpPayLoad = ullUpPayLoad;
    *pullUpDuration = ullUpDuration;
    *pullDwPayLoad = ullDwPayLoad;
    *pullDwDuration = ullDwDuration;
    return OTT_RET_OK;
}

}  // extern "C"
