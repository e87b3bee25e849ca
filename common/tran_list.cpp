// Circular doubly linked list. The damaged-list refusals of linking live in
// LinkBefore; every public insertion goes through it.
#include "list_walk.hpp"
#include "tran_ops.hpp"

using orvane::LinkAlone;
using orvane::LinkBefore;

extern "C" {

void InitSTTranManage(PFKeyCompare pfKeyCompare, STTranManage *pstList)
{
    if (pstList == nullptr) {
        return;
    }
    pstList->uiNodeNum = 0;
    pstList->pstHead = nullptr;
    pstList->pfKeyCompare = pfKeyCompare;
}

uint32_t GetTranNodeNum(const STTranManage *pstList) { return pstList->uiNodeNum; }

STTranNode *GetNodeHead(const STTranManage *pstList) { return pstList->pstHead; }

STTranNode *GetNodeTail(const STTranManage *pstList)
{
    return pstList->pstHead == nullptr ? nullptr : pstList->pstHead->pstPrev;
}

uint32_t IsListEmpty(const STTranManage *pstList) { return pstList->uiNodeNum == 0 ? 1u : 0u; }

uint32_t InsertNodeTail(STTranNode *pstNode, STTranManage *pstList) { return orvane::ListInsertTail(pstNode, pstList); }

uint32_t InsertNodeHead(STTranNode *pstNode, STTranManage *pstList) { return orvane::ListInsertHead(pstNode, pstList); }

uint32_t RemoveNode(STTranNode *pstNode, STTranManage *pstList) { return orvane::ListRemove(pstNode, pstList); }

STTranNode *SeekNode(const void *pKey, STTranManage *pstList)
{
    if (pKey == nullptr || pstList == nullptr || pstList->pfKeyCompare == nullptr ||
        pstList->pstHead == nullptr || pstList->uiNodeNum == 0) {
        return nullptr;
    }
    PFKeyCompare pfCompare = pstList->pfKeyCompare;
    return orvane::WalkList(pstList, [&](STTranNode *pstNode) {
        return pfCompare(TRAN_NODE_DATA(pstNode), pKey) == 0;
    });
}

uint32_t InsertNodeOrderByKey(const void *pKey, STTranNode *pstNode, STTranManage *pstList)
{
    if (pstNode == nullptr || pstList == nullptr || pstList->pfKeyCompare == nullptr) {
        return 1;
    }
    if (pstList->uiNodeNum == 0) {
        LinkAlone(pstNode, pstList);
        pstList->uiNodeNum++;
        return 0;
    }
    STTranNode *pstMatch = SeekNode(pKey, pstList);
    if (pstMatch == nullptr) {
        return InsertNodeTail(pstNode, pstList);
    }
    // Immediately before the match; the head stays, so a match on the head
    // puts the new node last.
    if (!LinkBefore(pstNode, pstMatch)) {
        return 1;
    }
    pstList->uiNodeNum++;
    return 0;
}

uint32_t GetListTranNodeNum(const STTranManage *pstList)
{
    if (pstList == nullptr || pstList->pstHead == nullptr) {
        return 0;
    }
    uint32_t uiCount = 0;
    orvane::WalkList(pstList, TRAN_LIST_MAX_WALK, [&](STTranNode *) {
        ++uiCount;
        return false;
    });
    return uiCount;
}

uint32_t CopyFrom(STTranManage *pstSrc, STTranManage *pstDst)
{
    if (pstSrc == nullptr || pstDst == nullptr) {
        return 1;
    }
    const uint32_t uiCount = pstSrc->uiNodeNum;
    for (uint32_t i = 0; i < uiCount; ++i) {
        STTranNode *pstNode = pstSrc->pstHead;
        if (RemoveNode(pstNode, pstSrc) != 0) {
            break;
        }
        InsertNodeTail(pstNode, pstDst);
    }
    return 0;
}

}  // extern "C"
