// The list and pool operations as inline code, for hot paths inside the
// library; the exported functions of the same names are these, so both give
// the same results on damaged lists and dry pools.
#ifndef ORVANE_TRAN_OPS_HPP
#define ORVANE_TRAN_OPS_HPP

#include "tran_list.h"

namespace orvane {

constexpr uint8_t kPoolGrowModeOn = 1;

inline void LinkAlone(STTranNode *pstNode, STTranManage *pstList)
{
    pstNode->pstPrev = pstNode;
    pstNode->pstNext = pstNode;
    pstList->pstHead = pstNode;
}

// Puts the node between pstAt and its predecessor (before the head: last);
// refuses a damaged list.
inline bool LinkBefore(STTranNode *pstNode, STTranNode *pstAt)
{
    if (pstAt == nullptr || pstAt->pstPrev == nullptr) {
        return false;
    }
    STTranNode *pstPrev = pstAt->pstPrev;
    pstNode->pstNext = pstAt;
    pstPrev->pstNext = pstNode;
    pstNode->pstPrev = pstPrev;
    pstAt->pstPrev = pstNode;
    return true;
}

// InsertNodeTail.
inline uint32_t ListInsertTail(STTranNode *pstNode, STTranManage *pstList)
{
    if (pstNode == nullptr || pstList == nullptr) {
        return 1;
    }
    if (pstList->uiNodeNum == 0) {
        LinkAlone(pstNode, pstList);
    } else if (!LinkBefore(pstNode, pstList->pstHead)) {
        return 1;
    }
    pstList->uiNodeNum++;
    return 0;
}

// InsertNodeHead.
inline uint32_t ListInsertHead(STTranNode *pstNode, STTranManage *pstList)
{
    if (ListInsertTail(pstNode, pstList) != 0) {
        return 1;
    }
    pstList->pstHead = pstNode;
    return 0;
}

// RemoveNode.
inline uint32_t ListRemove(STTranNode *pstNode, STTranManage *pstList)
{
    if (pstNode == nullptr || pstList == nullptr || pstList->uiNodeNum == 0) {
        return 1;
    }
    if (pstList->uiNodeNum == 1) {
        pstList->pstHead = nullptr;
    } else {
        if (pstList->pstHead == nullptr || pstNode->pstNext == nullptr || pstNode->pstPrev == nullptr) {
            return 1;
        }
        pstNode->pstPrev->pstNext = pstNode->pstNext;
        pstNode->pstNext->pstPrev = pstNode->pstPrev;
        if (pstList->pstHead == pstNode) {
            pstList->pstHead = pstNode->pstNext;
        }
    }
    pstNode->pstPrev = nullptr;
    pstNode->pstNext = nullptr;
    pstList->uiNodeNum--;
    return 0;
}

// ApplyNodeMem; ClearLinks false leaves the node's links as the free list
// had them, for a caller that links or returns the node at once.
template <bool ClearLinks = true>
inline STTranNode *PoolTake(CMemPool *pstPool)
{
    if (pstPool == nullptr) {
        return nullptr;
    }
    if (pstPool->m_ucGrowMode == kPoolGrowModeOn && pstPool->m_uiUsedNodeNum >= 4u * pstPool->m_uiFreeNodeNum) {
        ReallocNode(pstPool);
    }
    STTranNode *pstNode = pstPool->m_pstFreeHead;
    if (pstNode == nullptr) {
        return nullptr;
    }
    pstPool->m_pstFreeHead = pstNode->pstNext;
    if (pstPool->m_pstFreeHead == nullptr) {
        pstPool->m_pstFreeTail = nullptr;
    }
    if (ClearLinks) {
        pstNode->pstPrev = nullptr;
        pstNode->pstNext = nullptr;
    }
    pstPool->m_uiFreeNodeNum--;
    pstPool->m_uiUsedNodeNum++;
    return pstNode;
}

// PoolGive for a node whose links are already null (just unlinked).
inline void PoolGiveUnlinked(STTranNode *pstNode, CMemPool *pstPool)
{
    if (pstPool->m_pstFreeTail != nullptr) {
        pstPool->m_pstFreeTail->pstNext = pstNode;
    } else {
        pstPool->m_pstFreeHead = pstNode;
    }
    pstPool->m_pstFreeTail = pstNode;
    pstPool->m_uiFreeNodeNum++;
    pstPool->m_uiUsedNodeNum--;
}

// FreeNodeMem: a returned node is reused last.
inline uint32_t PoolGive(STTranNode *pstNode, CMemPool *pstPool)
{
    if (pstNode == nullptr || pstPool == nullptr) {
        return 1;
    }
    pstNode->pstPrev = nullptr;
    pstNode->pstNext = nullptr;
    PoolGiveUnlinked(pstNode, pstPool);
    return 0;
}

}  // namespace orvane

#endif
