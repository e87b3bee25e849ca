/* Circular doubly linked list whose nodes carry their links in a 16-byte
 * header, and the fixed-size node pool that feeds it (C11 / C++17). */
#ifndef ORVANE_TRAN_LIST_H
#define ORVANE_TRAN_LIST_H

#include <stdint.h>
#include "orvane_export.h"

ORVANE_BEGIN_DECLS

typedef struct STTranNode {
    struct STTranNode *pstPrev; /* for the head: the last node */
    struct STTranNode *pstNext; /* for the last node: the head */
} STTranNode;

/* Receives a node's data (just past the header) and the caller's key; 0 means match. */
typedef uint32_t (*PFKeyCompare)(const void *pNodeData, const void *pKey);

typedef struct STTranManage {
    uint32_t uiNodeNum;
    STTranNode *pstHead;
    PFKeyCompare pfKeyCompare;
} STTranManage;

typedef struct CMemPool {
    STTranNode *m_pstFreeHead;
    STTranNode *m_pstFreeTail;
    void *m_apstBlock[3];
    uint8_t m_ucGrowMode;
    uint8_t m_ucGrowBlockNum;
    uint32_t m_uiInitNodeNum;
    uint32_t m_uiGrowNodeNum;
    uint32_t m_uiNodeSize;
    uint32_t m_uiMaxNodeNum;
    uint32_t m_uiFreeNodeNum;
    uint32_t m_uiUsedNodeNum;
} CMemPool;

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
ORVANE_STATIC_ASSERT(sizeof(STTranNode) == 16, "node header is 16 bytes");
ORVANE_STATIC_ASSERT(sizeof(STTranManage) == 24, "list manager is 24 bytes");
#endif

/* Bound of GetListTranNodeNum's walk. */
#define TRAN_LIST_MAX_WALK 1001u

ORVANE_API void InitSTTranManage(PFKeyCompare pfKeyCompare, STTranManage *pstList);
ORVANE_API uint32_t GetTranNodeNum(const STTranManage *pstList);
ORVANE_API STTranNode *GetNodeHead(const STTranManage *pstList);
ORVANE_API STTranNode *GetNodeTail(const STTranManage *pstList);
ORVANE_API uint32_t IsListEmpty(const STTranManage *pstList);
ORVANE_API uint32_t InsertNodeTail(STTranNode *pstNode, STTranManage *pstList);
ORVANE_API uint32_t InsertNodeHead(STTranNode *pstNode, STTranManage *pstList);
ORVANE_API uint32_t RemoveNode(STTranNode *pstNode, STTranManage *pstList);
ORVANE_API STTranNode *SeekNode(const void *pKey, STTranManage *pstList);
ORVANE_API uint32_t InsertNodeOrderByKey(const void *pKey, STTranNode *pstNode, STTranManage *pstList);
ORVANE_API uint32_t GetListTranNodeNum(const STTranManage *pstList);
ORVANE_API uint32_t CopyFrom(STTranManage *pstSrc, STTranManage *pstDst);

/* Key-compare routines of the page lists and the match-string lists. */
ORVANE_API uint32_t PageIDCompare(const void *pNodeData, const void *pKey);
ORVANE_API uint32_t MatchStrCompare(const void *pNodeData, const void *pKey);

ORVANE_API void InitMemPool(CMemPool *pstPool);
ORVANE_API uint32_t setInitMemPool(uint32_t uiNodeNum, uint32_t uiNodeSize, uint8_t ucGrowMode, CMemPool *pstPool);
ORVANE_API STTranNode *ApplyNodeMem(CMemPool *pstPool);
ORVANE_API void ReallocNode(CMemPool *pstPool);
ORVANE_API uint32_t FreeNodeMem(STTranNode *pstNode, CMemPool *pstPool);
ORVANE_API void FreeCMemPoolList(CMemPool *pstPool);
ORVANE_API uint32_t GetFreeNodeNum(const CMemPool *pstPool);
ORVANE_API uint32_t GetListFreeNodeNum(const CMemPool *pstPool);

/* The user area of a pooled node starts right after its header. */
#define TRAN_NODE_DATA(node) ((void *)((STTranNode *)(node) + 1))

ORVANE_END_DECLS

#endif
