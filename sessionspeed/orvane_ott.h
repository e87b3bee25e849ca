/* OTT transaction speed API of liborvaneSDK: the records the daemon fills and
 * allocates, the entry points, and the merge and dump operations (C11 / C++17).
 *
 * The daemon records finished and unfinished transactions per flow, merges a
 * flow into its session (one list of disjoint busy intervals per direction)
 * and reads per direction the summed payload and the summed busy time. */
#ifndef ORVANE_OTT_H
#define ORVANE_OTT_H

#include <stddef.h>
#include <stdint.h>
#include "orvane_export.h"
#include "tran_list.h"

ORVANE_BEGIN_DECLS

/* STOttTrans.ucDirection */
#define OTT_DIRECTION_UP 1u
#define OTT_DIRECTION_DOWN 2u

/* STOttTrans.ucState: only this value is a finished transaction. */
#define OTT_STATE_OVER 2u

/* ucType, the first byte of a flow or session record. */
#define OTT_TYPE_FLOW 0u
#define OTT_TYPE_SESSION 1u

/* Return codes of the entry points. */
#define OTT_RET_OK 0u
#define OTT_RET_NOTHING 1u /* nothing to do, or no pool node was free */
#define OTT_RET_PARAM 2u   /* an argument is absent or out of range */

/* Where a new transaction's stamp lies relative to a session node: inside its
 * closed interval, or in the gap in front of it. */
#define OTT_MERGE_INSIDE 1u
#define OTT_MERGE_BEFORE 2u

/* Bytes of a pool node beyond its list header. */
#define OTT_TRANS_NODE_DATA_SIZE 24u
#define OTT_FLOW_SIZE 32u
#define OTT_SESSION_SIZE 56u

/* One transaction as the daemon reports it. */
typedef struct STOttTrans {
    uint64_t ullBeginTime;
    uint64_t ullEndTime;
    uint32_t uiPayLoad;
    uint8_t ucDirection;
    uint8_t ucState;
    uint8_t aucReserved[2];
} STOttTrans;

/* Input of API_OTTTransProcess: astTrans[1] is read only when ucTransNum is 2. */
typedef struct STOttTransInput {
    STOttTrans astTrans[2];
    uint8_t ucTransNum;
    uint8_t aucReserved[7];
} STOttTransInput;

/* One recorded transaction: a pool node, links first. */
typedef struct STOttTransNode {
    STTranNode stNode;
    uint64_t ullBeginTime;
    uint64_t ullEndTime;
    uint32_t uiPayLoad;
    uint8_t ucDirection;
    uint8_t ucState;
} STOttTransNode;

/* Per-flow record, owned by the daemon: transactions in arrival order. */
typedef struct STOttFlow {
    uint8_t ucType;
    STTranManage stTransList;
} STOttFlow;

/* Per-session record, owned by the daemon: merged intervals per direction,
 * sorted by time and non-overlapping. */
typedef struct STOttSession {
    uint8_t ucType;
    STTranManage stUpTransList;
    STTranManage stDwTransList;
} STOttSession;

ORVANE_STATIC_ASSERT(sizeof(STOttTrans) == 24, "STOttTrans is 24 bytes");
ORVANE_STATIC_ASSERT(offsetof(STOttTrans, ullEndTime) == 8, "ullEndTime at 8");
ORVANE_STATIC_ASSERT(offsetof(STOttTrans, uiPayLoad) == 16, "uiPayLoad at 16");
ORVANE_STATIC_ASSERT(offsetof(STOttTrans, ucDirection) == 20, "ucDirection at 20");
ORVANE_STATIC_ASSERT(offsetof(STOttTrans, ucState) == 21, "ucState at 21");
ORVANE_STATIC_ASSERT(sizeof(STOttTransInput) == 56, "STOttTransInput is 56 bytes");
ORVANE_STATIC_ASSERT(offsetof(STOttTransInput, astTrans) == 0, "transactions first, the second at 24");
ORVANE_STATIC_ASSERT(offsetof(STOttTransInput, ucTransNum) == 48, "ucTransNum at 48");
#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
ORVANE_STATIC_ASSERT(sizeof(STOttTransNode) == 16 + OTT_TRANS_NODE_DATA_SIZE, "a transaction fits its pool node");
ORVANE_STATIC_ASSERT(offsetof(STOttTransNode, ullBeginTime) == 16, "transaction data follows the links");
ORVANE_STATIC_ASSERT(offsetof(STOttTransNode, uiPayLoad) == 32, "node uiPayLoad at 32");
ORVANE_STATIC_ASSERT(offsetof(STOttTransNode, ucState) == 37, "node ucState at 37");
ORVANE_STATIC_ASSERT(sizeof(STOttFlow) == OTT_FLOW_SIZE, "STOttFlow is 32 bytes");
ORVANE_STATIC_ASSERT(offsetof(STOttFlow, stTransList) == 8, "stTransList at 8");
ORVANE_STATIC_ASSERT(sizeof(STOttSession) == OTT_SESSION_SIZE, "STOttSession is 56 bytes");
ORVANE_STATIC_ASSERT(offsetof(STOttSession, stUpTransList) == 8, "stUpTransList at 8");
ORVANE_STATIC_ASSERT(offsetof(STOttSession, stDwTransList) == 32, "stDwTransList at 32");
#endif

/* Capture. The pool is fixed at uiTransNodeNum nodes and shared by every flow
 * and session that uses it; the sizes of the two records are reported. */
ORVANE_API CMemPool *API_InitOTTTransSpeed(uint32_t uiTransNodeNum, uint32_t *puiFlowSize,
                                           uint32_t *puiSessionSize);
ORVANE_API void API_InitOTTTransSpeedFlow(STOttFlow *pstFlow);
ORVANE_API void API_InitOTTTransSpeedSession(STOttSession *pstSession);
ORVANE_API uint32_t API_OTTTransProcess(const STOttTransInput *pstInput, CMemPool *pstPool,
                                        STOttFlow *pstFlow);
/* pvRecord is an STOttFlow or an STOttSession, told apart by ucType. */
ORVANE_API uint32_t API_OTTTransRlease(CMemPool *pstPool, void *pvRecord);
ORVANE_API STOttTransNode *AllocateOttTransNodeMem(CMemPool *pstPool);
ORVANE_API STOttTransNode *CreateOTTTransListNode(CMemPool *pstPool);
ORVANE_API void FreeOttTransNode(CMemPool *pstPool, STOttTransNode *pstNode, STTranManage *pstList);

/* Merge and speed. */
ORVANE_API uint32_t API_OTTTransMerge(CMemPool *pstPool, STOttSession *pstSession, STOttFlow *pstFlow);
ORVANE_API uint32_t API_OTTTransSpeed(CMemPool *pstPool, STOttSession *pstSession,
                                      uint64_t *pullUpPayLoad, uint64_t *pullUpDuration,
                                      uint64_t *pullDwPayLoad, uint64_t *pullDwDuration);
ORVANE_API STOttTransNode *FindFirstOverTrans(const STTranManage *pstList);
ORVANE_API void StartMergeTrans(STTranManage *pstList, STOttTransNode *pstNew, CMemPool *pstPool);
ORVANE_API void MergeOneTransaction(STOttTransNode *pstNew, STOttTransNode *pstFirst,
                                    STOttTransNode *pstLast, uint8_t ucBeginKind, uint8_t ucEndKind,
                                    CMemPool *pstPool, STTranManage *pstList);
ORVANE_API void UpdateMergeTransPayLoad(STOttTransNode *pstNew, STOttTransNode *pstFirst,
                                        STOttTransNode *pstLast, uint8_t ucBeginKind,
                                        uint8_t ucEndKind, CMemPool *pstPool, STTranManage *pstList);

/* Diagnostic dumps to the log; they change nothing. */
ORVANE_API void PrintOTTTrans(const STTranManage *pstList);
ORVANE_API void PrintInputTransInfo(const STOttTransInput *pstInput);
ORVANE_API void PrintFlowTrans(const STOttFlow *pstFlow);
ORVANE_API void PrintSessionTrans(const STOttSession *pstSession);
ORVANE_API void PrintMemPool(const STOttSession *pstSession, const CMemPool *pstPool);

ORVANE_END_DECLS

#endif
