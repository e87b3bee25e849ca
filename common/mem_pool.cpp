// Fixed-size node pool: nodes are handed out from the free list's head and
// returned at its tail, so a returned node is reused last (FIFO).
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tran_list.h"
#include "tran_ops.hpp"

namespace {

constexpr uint8_t kGrowModeOn = orvane::kPoolGrowModeOn;
constexpr uint8_t kMaxGrowAttempts = 3;  // the third attempt is refused: two growth blocks at most
constexpr uint32_t kHeaderSize = sizeof(STTranNode);
constexpr size_t kNodeAlign = alignof(STTranNode);

// Nodes lie back to back, header then user area. A user-area size that is not
// a multiple of the pointer size is rounded up so every header stays aligned;
// the library's own sizes (976, 160, 24) are multiples already.
size_t NodeStride(uint32_t uiNodeSize)
{
    return ((size_t)uiNodeSize + kHeaderSize + kNodeAlign - 1) & ~(kNodeAlign - 1);
}

// Links a fresh block's nodes in address order; returns the last one.
STTranNode *LinkBlock(void *pBlock, uint32_t uiCount, uint32_t uiNodeSize)
{
    const size_t stride = NodeStride(uiNodeSize);
    unsigned char *pucBase = static_cast<unsigned char *>(pBlock);
    STTranNode *pstNode = nullptr;
    for (uint32_t i = 0; i < uiCount; ++i) {
        pstNode = reinterpret_cast<STTranNode *>(pucBase + stride * i);
        pstNode->pstPrev = nullptr;
        pstNode->pstNext = (i + 1 < uiCount) ? reinterpret_cast<STTranNode *>(pucBase + stride * (i + 1))
                                             : nullptr;
    }
    return pstNode;
}

}  // namespace

extern "C" {

void InitMemPool(CMemPool *pstPool)
{
    if (pstPool != nullptr) {
        std::memset(pstPool, 0, sizeof(*pstPool));
    }
}

uint32_t setInitMemPool(uint32_t uiNodeNum, uint32_t uiNodeSize, uint8_t ucGrowMode, CMemPool *pstPool)
{
    if (uiNodeNum == 0 || uiNodeSize == 0 || pstPool == nullptr) {
        return 1;
    }
    const uint32_t uiInit = (ucGrowMode == kGrowModeOn) ? uiNodeNum / 2 : uiNodeNum;
    if (uiInit == 0) {
        return 1;  // a growing pool of one node would start with an empty block
    }
    InitMemPool(pstPool);
    pstPool->m_uiInitNodeNum = uiInit;
    pstPool->m_uiGrowNodeNum = (ucGrowMode == kGrowModeOn) ? uiNodeNum / 4 : 0;

    void *pBlock = std::malloc((size_t)uiInit * NodeStride(uiNodeSize));
    if (pBlock == nullptr) {
        InitMemPool(pstPool);
        return 1;
    }
    pstPool->m_apstBlock[0] = pBlock;
    pstPool->m_pstFreeHead = static_cast<STTranNode *>(pBlock);
    pstPool->m_pstFreeTail = LinkBlock(pBlock, uiInit, uiNodeSize);
    pstPool->m_uiNodeSize = uiNodeSize;
    pstPool->m_uiMaxNodeNum = uiNodeNum;
    pstPool->m_uiFreeNodeNum = uiInit;
    pstPool->m_uiUsedNodeNum = 0;
    pstPool->m_ucGrowMode = ucGrowMode;
    return 0;
}

void ReallocNode(CMemPool *pstPool)
{
    if (pstPool == nullptr) {
        return;
    }
    const uint32_t uiMade = pstPool->m_uiFreeNodeNum + pstPool->m_uiUsedNodeNum;
    if (pstPool->m_uiMaxNodeNum <= uiMade) {
        return;
    }
    if (pstPool->m_uiGrowNodeNum + uiMade >= pstPool->m_uiMaxNodeNum) {
        pstPool->m_uiGrowNodeNum = pstPool->m_uiMaxNodeNum - uiMade;
    }
    if (pstPool->m_ucGrowBlockNum >= kMaxGrowAttempts) {
        return;
    }
    pstPool->m_ucGrowBlockNum++;
    if (pstPool->m_ucGrowBlockNum >= kMaxGrowAttempts) {
        return;
    }
    if (pstPool->m_pstFreeTail == nullptr) {
        std::printf("[ReallocNode]m_pstFreeHead is null.\n");
        return;
    }
    const uint32_t uiGrow = pstPool->m_uiGrowNodeNum;
    if (uiGrow == 0) {
        return;
    }
    void *pBlock = std::malloc((size_t)uiGrow * NodeStride(pstPool->m_uiNodeSize));
    if (pBlock == nullptr) {
        return;
    }
    pstPool->m_apstBlock[pstPool->m_ucGrowBlockNum] = pBlock;
    STTranNode *pstLast = LinkBlock(pBlock, uiGrow, pstPool->m_uiNodeSize);
    pstPool->m_pstFreeTail->pstNext = static_cast<STTranNode *>(pBlock);
    pstPool->m_pstFreeTail = pstLast;
    pstPool->m_uiFreeNodeNum += uiGrow;
}

STTranNode *ApplyNodeMem(CMemPool *pstPool) { return orvane::PoolTake(pstPool); }

uint32_t FreeNodeMem(STTranNode *pstNode, CMemPool *pstPool) { return orvane::PoolGive(pstNode, pstPool); }

void FreeCMemPoolList(CMemPool *pstPool)
{
    if (pstPool == nullptr) {
        return;
    }
    for (void *&pBlock : pstPool->m_apstBlock) {
        std::free(pBlock);
        pBlock = nullptr;
    }
    InitMemPool(pstPool);
}

uint32_t GetFreeNodeNum(const CMemPool *pstPool) { return pstPool == nullptr ? 0 : pstPool->m_uiFreeNodeNum; }

uint32_t GetListFreeNodeNum(const CMemPool *pstPool)
{
    if (pstPool == nullptr) {
        return 0;
    }
    // Bounded by what the pool ever made, so a corrupted free list cannot loop.
    const uint32_t uiBound = pstPool->m_uiFreeNodeNum + pstPool->m_uiUsedNodeNum;
    uint32_t uiCount = 0;
    for (const STTranNode *pstNode = pstPool->m_pstFreeHead; pstNode != nullptr && uiCount <= uiBound;
         pstNode = pstNode->pstNext) {
        ++uiCount;
    }
    return uiCount;
}

}  // extern "C"
