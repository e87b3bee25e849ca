// The one bounded walk over an STTranManage list. Every list walk in the
// library goes through here, so the bound is checked in one place: stop on
// returning to the head, on a null link, or after the counted number of nodes.
#ifndef ORVANE_LIST_WALK_HPP
#define ORVANE_LIST_WALK_HPP

#include "tran_list.h"

namespace orvane {

template <typename T>
inline T *NodeData(STTranNode *pstNode)
{
    return static_cast<T *>(TRAN_NODE_DATA(pstNode));
}

template <typename T>
inline STTranNode *NodeOf(T *pData)
{
    return reinterpret_cast<STTranNode *>(pData) - 1;
}

// Visits at most uiLimit nodes from the head, newest-first for the page lists.
// The successor is read before the visit, so the visitor may unlink and free
// the node it is given. The visitor returns true to stop; the node it stopped
// on is returned, or null when the walk ran out.
template <typename Visit>
inline STTranNode *WalkList(const STTranManage *pstList, uint32_t uiLimit, Visit &&visit)
{
    if (pstList == nullptr || pstList->pstHead == nullptr) {
        return nullptr;
    }
    STTranNode *const pstHead = pstList->pstHead;
    STTranNode *pstNode = pstHead;
    for (uint32_t uiLeft = uiLimit; uiLeft != 0 && pstNode != nullptr; --uiLeft) {
        STTranNode *pstNext = pstNode->pstNext;
        if (visit(pstNode)) {
            return pstNode;
        }
        if (pstNext == pstHead) {
            break;
        }
        pstNode = pstNext;
    }
    return nullptr;
}

template <typename Visit>
inline STTranNode *WalkList(const STTranManage *pstList, Visit &&visit)
{
    return pstList == nullptr ? nullptr : WalkList(pstList, pstList->uiNodeNum, visit);
}

// Typed form: the visitor receives the node's data as T*.
template <typename T, typename Visit>
inline T *FindInList(const STTranManage *pstList, Visit &&visit)
{
    STTranNode *pstHit = WalkList(pstList, [&](STTranNode *pstNode) {
        return visit(NodeData<T>(pstNode));
    });
    return pstHit == nullptr ? nullptr : NodeData<T>(pstHit);
}

// From the tail towards the head, same bounds: stops after visiting the head,
// on a null link, or after uiLimit nodes. The predecessor is read before the
// visit, so the visitor may unlink the node it is given.
template <typename Visit>
inline STTranNode *WalkListBackward(const STTranManage *pstList, uint32_t uiLimit, Visit &&visit)
{
    if (pstList == nullptr || pstList->pstHead == nullptr) {
        return nullptr;
    }
    STTranNode *const pstHead = pstList->pstHead;
    STTranNode *pstNode = pstHead->pstPrev;
    for (uint32_t i = 0; i < uiLimit && pstNode != nullptr; ++i) {
        STTranNode *pstPrev = pstNode->pstPrev;
        if (visit(pstNode)) {
            return pstNode;
        }
        if (pstNode == pstHead) {
            break;
        }
        pstNode = pstPrev;
    }
    return nullptr;
}

// Forward from pstStart, a node on some list, same bounds: stops on coming
// back to pstStart, on a null link, or after uiLimit nodes.
template <typename Visit>
inline STTranNode *WalkListFrom(STTranNode *pstStart, uint32_t uiLimit, Visit &&visit)
{
    STTranNode *pstNode = pstStart;
    for (uint32_t i = 0; i < uiLimit && pstNode != nullptr; ++i) {
        STTranNode *pstNext = pstNode->pstNext;
        if (visit(pstNode)) {
            return pstNode;
        }
        if (pstNext == pstStart) {
            break;
        }
        pstNode = pstNext;
    }
    return nullptr;
}

// Empties a list from the front: the count is read once, and that many times
// the current head (null once the list ran dry early) goes to the visitor,
// which is expected to unlink it. The visitor returns true to stop.
template <typename Visit>
inline void DrainList(STTranManage *pstList, Visit &&visit)
{
    if (pstList == nullptr) {
        return;
    }
    const uint32_t uiCount = pstList->uiNodeNum;
    for (uint32_t i = 0; i < uiCount; ++i) {
        if (visit(pstList->pstHead)) {
            return;
        }
    }
}

}  // namespace orvane

#endif
