// Shared by the OTT sources only; nothing here is exported.
#ifndef ORVANE_OTT_INTERNAL_HPP
#define ORVANE_OTT_INTERNAL_HPP

#include "list_walk.hpp"
#include "log_macros.h"
#include "orvane_ott.h"
#include "tran_ops.hpp"

namespace orvane {

// The facility has no thread context: its failures log under a number
// outside the page threads, its dumps under thread 0.
constexpr uint32_t kOttErrorTid = 16;
constexpr uint32_t kOttDumpTid = 0;

inline STOttTransNode *TransOf(STTranNode *pstNode)
{
    return reinterpret_cast<STOttTransNode *>(pstNode);
}

// FreeOttTransNode inline; its refusal (and log line) stays its own.
inline void FreeTrans(CMemPool *pstPool, STOttTransNode *pstNode, STTranManage *pstList)
{
    if (pstPool == nullptr || pstNode == nullptr || pstList == nullptr) {
        FreeOttTransNode(pstPool, pstNode, pstList);
        return;
    }
    // RemoveNode then FreeNodeMem, their link clearing done once: the pool
    // clears the links whether or not the list gave the node up.
    STTranNode *const pstLinks = &pstNode->stNode;
    if (pstList->uiNodeNum == 1) {
        pstList->pstHead = nullptr;
        pstList->uiNodeNum = 0;
    } else if (pstList->uiNodeNum != 0 && pstList->pstHead != nullptr && pstLinks->pstNext != nullptr &&
               pstLinks->pstPrev != nullptr) {
        pstLinks->pstPrev->pstNext = pstLinks->pstNext;
        pstLinks->pstNext->pstPrev = pstLinks->pstPrev;
        if (pstList->pstHead == pstLinks) {
            pstList->pstHead = pstLinks->pstNext;
        }
        pstList->uiNodeNum--;
    }
    pstLinks->pstPrev = nullptr;
    pstLinks->pstNext = nullptr;
    if (pstPool->m_pstFreeTail != nullptr) {
        pstPool->m_pstFreeTail->pstNext = pstLinks;
    } else {
        pstPool->m_pstFreeHead = pstLinks;
    }
    pstPool->m_pstFreeTail = pstLinks;
    pstPool->m_uiFreeNodeNum++;
    pstPool->m_uiUsedNodeNum--;
}

// Returns every node of the list to the pool from the front; a missing head
// is logged and counted like a node.
void ReleaseTransList(CMemPool *pstPool, STTranManage *pstList);

}  // namespace orvane

#endif
