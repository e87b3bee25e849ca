// Diagnostic dumps of the OTT records. Operators read these lines, so the
// texts and their levels are fixed; nothing here changes a record.
#include "ott_internal.hpp"

namespace {

using orvane::kOttDumpTid;

// The six lines of one transaction, labels right-aligned on the colon.
// Logged under the caller's name: several dumps share it.
void WriteTransBlock(const char *pcFunc, uint64_t ullBegin, uint64_t ullEnd, uint32_t uiPayLoad,
                     uint8_t ucDirection, uint8_t ucState)
{
    LOG_INFO_AS(pcFunc, kOttDumpTid, "---------------start trans------------------");
    LOG_INFO_AS(pcFunc, kOttDumpTid, "    BeginTime:%llu", (unsigned long long)ullBegin);
    LOG_INFO_AS(pcFunc, kOttDumpTid, "      EndTime:%llu", (unsigned long long)ullEnd);
    LOG_INFO_AS(pcFunc, kOttDumpTid, "      PayLoad:%u", uiPayLoad);
    LOG_INFO_AS(pcFunc, kOttDumpTid, "    Direction:%u", (unsigned)ucDirection);
    LOG_INFO_AS(pcFunc, kOttDumpTid, "        State:%u", (unsigned)ucState);
}

void WriteTransBlock(const char *pcFunc, const STOttTrans &stTrans)
{
    WriteTransBlock(pcFunc, stTrans.ullBeginTime, stTrans.ullEndTime, stTrans.uiPayLoad,
                    stTrans.ucDirection, stTrans.ucState);
}

}  // namespace

extern "C" {

void PrintOTTTrans(const STTranManage *pstList)
{
    if (pstList == nullptr || pstList->uiNodeNum == 0 || pstList->pstHead == nullptr) {
        return;
    }
    orvane::WalkList(pstList, [](STTranNode *pstCur) {
        const STOttTransNode *pstNode = orvane::TransOf(pstCur);
        WriteTransBlock("PrintOTTTrans", pstNode->ullBeginTime, pstNode->ullEndTime,
                        pstNode->uiPayLoad, pstNode->ucDirection, pstNode->ucState);
        return false;
    });
}

void PrintInputTransInfo(const STOttTransInput *pstInput)
{
    if (pstInput == nullptr) {
        return;
    }
    LOG_INFO(kOttDumpTid, "=============begin outputresult================");
    WriteTransBlock(__func__, pstInput->astTrans[0]);
    if (pstInput->ucTransNum == 2) {
        LOG_INFO(kOttDumpTid, "=============begin outputresult================");
        WriteTransBlock(__func__, pstInput->astTrans[1]);
    }
    LOG_INFO(kOttDumpTid, "=============end   outputresult================");
}

void PrintFlowTrans(const STOttFlow *pstFlow)
{
    LOG_INFO(kOttDumpTid, "================begin flow Trans==================");
    if (pstFlow != nullptr) {
        LOG_INFO(kOttDumpTid, "================end   flow Trans==================");
    }
}

void PrintSessionTrans(const STOttSession *pstSession)
{
    LOG_INFO(kOttDumpTid, "================begin session Trans==================\n");
    if (pstSession == nullptr) {
        return;
    }
    LOG_INFO(kOttDumpTid, "+++++++++++++begin up session Trans+++++++++");
    LOG_INFO(kOttDumpTid, "+++++++++++++end up session Trans+++++++++\n");
    LOG_INFO(kOttDumpTid, "+++++++++++++begin dw session Trans+++++++++");
    LOG_INFO(kOttDumpTid, "+++++++++++++end dw session Trans+++++++++");
    LOG_INFO(kOttDumpTid, "================end   session Trans==================\n");
}

void PrintMemPool(const STOttSession *pstSession, const CMemPool *pstPool)
{
    LOG_INFO(kOttDumpTid, "================begin MemPool Info==================");
    if (pstSession == nullptr || pstPool == nullptr) {
        return;
    }
    // Error level on purpose: the fill stays visible when only errors are logged.
    LOG_ERROR(kOttDumpTid, "   session up list lenth  :%u", GetTranNodeNum(&pstSession->stUpTransList));
    LOG_ERROR(kOttDumpTid, "   session dw list lenth  :%u", GetTranNodeNum(&pstSession->stDwTransList));
    LOG_ERROR(kOttDumpTid, "   free Node in MemPool   :%u", GetFreeNodeNum(pstPool));
    LOG_INFO(kOttDumpTid, "================End   MemPool Info==================");
}

}  // extern "C"
