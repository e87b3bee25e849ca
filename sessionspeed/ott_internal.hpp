// Shared by the OTT sources only; nothing here is exported.
#ifndef ORVANE_OTT_INTERNAL_HPP
#define ORVANE_OTT_INTERNAL_HPP

#include "list_walk.hpp"
#include "log_macros.h"
#include "orvane_ott.h"

namespace orvane {

// The facility has no thread context: its failures log under a number
// outside the page threads, its dumps under thread 0.
constexpr uint32_t kOttErrorTid = 16;
constexpr uint32_t kOttDumpTid = 0;

inline STOttTransNode *TransOf(STTranNode *pstNode)
{
    return reinterpret_cast<STOttTransNode *>(pstNode);
}

// Returns every node of the list to the pool from the front; a missing head
// is logged and counted like a node.
void ReleaseTransList(CMemPool *pstPool, STTranManage *pstList);

}  // namespace orvane

#endif
