// Transaction capture: the fixed OTT node pool, the flow and session records,
// recording the daemon's transactions on a flow, and releasing records.
#include <cstdlib>

#include "ott_internal.hpp"

namespace {

using orvane::kOttErrorTid;

// Fixed: a pool shared by every flow and session never grows mid-traffic.
constexpr uint8_t kPoolFixed = 0;

void ClearTrans(STOttTransNode *pstNode)
{
    pstNode->ullBeginTime = 0;
    pstNode->ullEndTime = 0;
    pstNode->uiPayLoad = 0;
    pstNode->ucDirection = 0;
    pstNode->ucState = 0;
}

void CopyTrans(STOttTransNode *pstNode, const STOttTrans &stTrans)
{
    pstNode->ucDirection = stTrans.ucDirection;
    pstNode->ucState = stTrans.ucState;
    pstNode->uiPayLoad = stTrans.uiPayLoad;
    pstNode->ullBeginTime = stTrans.ullBeginTime;
    pstNode->ullEndTime = stTrans.ullEndTime;
}

// Records one transaction at the flow's tail. Stamps, direction and state
// are judged at merge time, not here.
// The pool is present (CreateOTTTransListNode's steps, inline).
uint32_t RecordTrans(const STOttTrans &stTrans, CMemPool *pstPool, STOttFlow *pstFlow)
{
    // Linked at once, or given back: either sets the links the pool clears.
    STOttTransNode *pstNode = orvane::TransOf(orvane::PoolTake<false>(pstPool));
    if (pstNode == nullptr) {
        LOG_ERROR_AS("AllocateOttTransNodeMem", kOttErrorTid, "allocate List Node error.\n");
        return OTT_RET_NOTHING;
    }
    if (orvane::ListInsertTail(&pstNode->stNode, &pstFlow->stTransList) != 0) {
        // A damaged flow list: give the node back rather than strand it.
        ClearTrans(pstNode);
        orvane::PoolGive(&pstNode->stNode, pstPool);
        return OTT_RET_PARAM;
    }
    CopyTrans(pstNode, stTrans);  // every field ClearTrans would have zeroed
    return OTT_RET_OK;
}

}  // namespace

namespace orvane {

void ReleaseTransList(CMemPool *pstPool, STTranManage *pstList)
{
    DrainList(pstList, [&](STTranNode *pstHead) {
        FreeTrans(pstPool, TransOf(pstHead), pstList);
        return false;
    });
}

}  // namespace orvane

extern "C" {

CMemPool *API_InitOTTTransSpeed(uint32_t uiTransNodeNum, uint32_t *puiFlowSize, uint32_t *puiSessionSize)
{
    if (uiTransNodeNum == 0) {
        LOG_ERROR(kOttErrorTid, "OTT Transaction Mempool Init input param error.");
        return nullptr;
    }
    CMemPool *pstPool = static_cast<CMemPool *>(std::malloc(sizeof(CMemPool)));
    if (pstPool == nullptr) {
        LOG_ERROR(kOttErrorTid, "OTT Transaction Mempool Init Failed");
        return nullptr;
    }
    InitMemPool(pstPool);
    if (setInitMemPool(uiTransNodeNum, OTT_TRANS_NODE_DATA_SIZE, kPoolFixed, pstPool) != 0) {
        std::free(pstPool);
        LOG_ERROR(kOttErrorTid, "OTT Transaction Mempool Init Failed");
        return nullptr;
    }
    if (puiFlowSize != nullptr) {
        *puiFlowSize = OTT_FLOW_SIZE;
    }
    if (puiSessionSize != nullptr) {
        *puiSessionSize = OTT_SESSION_SIZE;
    }
    return pstPool;
}

void API_InitOTTTransSpeedFlow(STOttFlow *pstFlow)
{
    if (pstFlow == nullptr) {
        return;
    }
    pstFlow->ucType = OTT_TYPE_FLOW;
    InitSTTranManage(nullptr, &pstFlow->stTransList);
}

void API_InitOTTTransSpeedSession(STOttSession *pstSession)
{
    if (pstSession == nullptr) {
        return;
    }
    pstSession->ucType = OTT_TYPE_SESSION;
    InitSTTranManage(nullptr, &pstSession->stUpTransList);
    InitSTTranManage(nullptr, &pstSession->stDwTransList);
}

STOttTransNode *AllocateOttTransNodeMem(CMemPool *pstPool)
{
    if (pstPool == nullptr) {
        LOG_ERROR(kOttErrorTid, "AllocateOttTransNodeMem input param error.");
        return nullptr;
    }
    STOttTransNode *pstNode = orvane::TransOf(orvane::PoolTake(pstPool));
    if (pstNode == nullptr) {
        LOG_ERROR(kOttErrorTid, "allocate List Node error.\n");
        return nullptr;
    }
    ClearTrans(pstNode);
    return pstNode;
}

STOttTransNode *CreateOTTTransListNode(CMemPool *pstPool)
{
    if (pstPool == nullptr) {
        return nullptr;
    }
    STOttTransNode *pstNode = AllocateOttTransNodeMem(pstPool);
    if (pstNode != nullptr) {
        pstNode->stNode.pstPrev = nullptr;
        pstNode->stNode.pstNext = nullptr;
    }
    return pstNode;
}

uint32_t API_OTTTransProcess(const STOttTransInput *pstInput, CMemPool *pstPool, STOttFlow *pstFlow)
{
    if (pstInput == nullptr || pstPool == nullptr || pstFlow == nullptr ||
        (pstInput->ucTransNum != 1 && pstInput->ucTransNum != 2)) {
        return OTT_RET_PARAM;
    }
    const uint8_t ucTransNum = pstInput->ucTransNum;  // the input is the daemon's, no pool node
    for (uint8_t i = 0; i < ucTransNum; ++i) {
        const uint32_t uiRet = RecordTrans(pstInput->astTrans[i], pstPool, pstFlow);
        if (uiRet != OTT_RET_OK) {
            return uiRet;  // what was recorded before stays recorded
        }
    }
    return OTT_RET_OK;
}

void FreeOttTransNode(CMemPool *pstPool, STOttTransNode *pstNode, STTranManage *pstList)
{
    if (pstPool == nullptr || pstNode == nullptr || pstList == nullptr) {
        LOG_ERROR(kOttErrorTid, "FreeOttTransNode input param error.");
        return;
    }
    // The node goes back even when the list declines to unlink it (it was on
    // no list, say): the pool is fixed, and a node kept out would be lost.
    orvane::ListRemove(&pstNode->stNode, pstList);
    orvane::PoolGive(&pstNode->stNode, pstPool);
}

uint32_t API_OTTTransRlease(CMemPool *pstPool, void *pvRecord)
{
    if (pstPool == nullptr || pvRecord == nullptr) {
        return OTT_RET_PARAM;
    }
    // Both records start with ucType.
    const uint8_t ucType = *static_cast<const uint8_t *>(pvRecord);
    if (ucType == OTT_TYPE_SESSION) {
        STOttSession *pstSession = static_cast<STOttSession *>(pvRecord);
        orvane::ReleaseTransList(pstPool, &pstSession->stUpTransList);
        orvane::ReleaseTransList(pstPool, &pstSession->stDwTransList);
        return OTT_RET_OK;
    }
    if (ucType == OTT_TYPE_FLOW) {
        orvane::ReleaseTransList(pstPool, &static_cast<STOttFlow *>(pvRecord)->stTransList);
        return OTT_RET_OK;
    }
    return OTT_RET_PARAM;
}

}  // extern "C"
