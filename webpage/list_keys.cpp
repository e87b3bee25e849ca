// Key-compare routines of the page lists and the match-string lists.
#include "webpage_internal.h"

extern "C" {

uint32_t PageIDCompare(const void *pNodeData, const void *pKey)
{
    if (pNodeData == nullptr || pKey == nullptr) {
        return 1;
    }
    return static_cast<const STPageNode *>(pNodeData)->uiPageID == *static_cast<const uint64_t *>(pKey) ? 0u : 1u;
}

uint32_t MatchStrCompare(const void *pNodeData, const void *pKey)
{
    if (pNodeData == nullptr || pKey == nullptr) {
        return 1;
    }
    return static_cast<const STMatchStrNode *>(pNodeData)->uiHashKey == *static_cast<const uint32_t *>(pKey) ? 0u
                                                                                                             : 1u;
}

}  // extern "C"
