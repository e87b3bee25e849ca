// Structural checks of one thread context that hold after every call: pool
// counts add up, every used node is on exactly the list that owns it, texts
// stay inside their arrays. Used by the fuzzer, the soak and the thread test.
#ifndef ORVANE_TESTS_WEBPAGE_CHECK_HPP
#define ORVANE_TESTS_WEBPAGE_CHECK_HPP

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include "list_walk.hpp"
#include "webpage_internal.h"

namespace orvane_check {

inline std::string Fail(const char *what, uint64_t a = 0, uint64_t b = 0)
{
    return std::string(what) + " (" + std::to_string(a) + ", " + std::to_string(b) + ")";
}

// Counts the nodes of a list by its links, checking that every node's
// neighbours point back at it. Returns UINT32_MAX for a broken list.
inline uint32_t CountLinked(const STTranManage &list)
{
    if ((list.uiNodeNum == 0) != (list.pstHead == nullptr)) {
        return UINT32_MAX;
    }
    uint32_t n = 0;
    bool broken = false;
    STTranNode *last = orvane::WalkList(&list, list.uiNodeNum + 1, [&](STTranNode *node) {
        ++n;
        broken = node->pstNext == nullptr || node->pstPrev == nullptr || node->pstNext->pstPrev != node ||
                 node->pstPrev->pstNext != node;
        return broken;
    });
    return (broken || last != nullptr || n != list.uiNodeNum) ? UINT32_MAX : n;
}

inline std::string CheckPool(const CMemPool &pool, uint32_t size, const char *name)
{
    if (pool.m_uiFreeNodeNum + pool.m_uiUsedNodeNum != size) {
        return Fail(name, pool.m_uiFreeNodeNum, pool.m_uiUsedNodeNum).insert(0, "pool free+used != size: ");
    }
    if (GetListFreeNodeNum(&pool) != pool.m_uiFreeNodeNum) {
        return Fail(name, GetListFreeNodeNum(&pool), pool.m_uiFreeNodeNum).insert(0, "free list != free count: ");
    }
    return {};
}

inline bool Terminated(const char *text, uint32_t len, uint32_t cap) { return len <= cap && text[len] == '\0'; }

// Checks thread tid's context and collects the IDs of its open pages.
inline std::string CheckContext(uint8_t tid, std::set<uint64_t> *openIDs)
{
    const STWebPage *ctx = g_pstWebPage[tid];
    if (ctx == nullptr) {
        return {};
    }
    std::string err = CheckPool(ctx->stPageNodePool, PAGE_NODE_NUM, "pages");
    if (err.empty()) {
        err = CheckPool(ctx->stMatchStrMemPool, MATCH_STR_NODE_NUM, "strings");
    }
    if (!err.empty()) {
        return err;
    }
    uint32_t pages = 0;
    uint32_t strings = 0;
    const uint64_t counter = g_aulPageID[tid] & PAGE_ID_MASK;
    for (const STTranManage *list : {&ctx->stPageNodeList, &ctx->stUcidPageNodeList}) {
        const uint8_t ucid = list == &ctx->stUcidPageNodeList ? 1 : 0;
        const uint32_t n = CountLinked(*list);
        if (n == UINT32_MAX) {
            return Fail("page list broken", ucid);
        }
        pages += n;
        orvane::WalkList(list, [&](STTranNode *node) {
            const STPageNode *page = orvane::NodeData<STPageNode>(node);
            const uint64_t id = page->uiPageID;
            if ((id >> PAGE_ID_THREAD_SHIFT) != tid || (id & PAGE_ID_MASK) == 0 || (id & PAGE_ID_MASK) > counter) {
                err = Fail("page ID without its thread or beyond the counter", id, tid);
            } else if (openIDs != nullptr && !openIDs->insert(id).second) {
                err = Fail("page ID open twice", id);
            } else if (page->ucIsUcidPage != ucid) {
                err = Fail("page on the wrong list", id, page->ucIsUcidPage);
            } else if (page->uiPageType != PAGE_TYPE_SINGLE && page->uiPageType != PAGE_TYPE_ASSOCIATE) {
                err = Fail("page type", id, page->uiPageType);
            } else if (!Terminated(page->acHost, page->usHostLen, HOST_MAX_LEN) ||
                       !Terminated(page->acURL, page->usURLLen, URL_MAX_LEN) ||
                       !Terminated(page->acLocation, page->usLocationLen, LOCATION_MAX_LEN)) {
                err = Fail("page text not terminated inside its array", id);
            }
            for (const STTranManage *strs :
                 {&page->stHostList, &page->stURLList, &page->stRefererList, &page->stLocationList}) {
                const uint32_t k = CountLinked(*strs);
                if (k == UINT32_MAX) {
                    err = Fail("string list broken", id);
                    break;
                }
                strings += k;
                orvane::WalkList(strs, [&](STTranNode *snode) {
                    const STMatchStrNode *s = orvane::NodeData<STMatchStrNode>(snode);
                    if (!Terminated(s->acStr, s->usStrLen, MATCH_STR_MAX_LEN) || s->uiMatchLevel < 1 ||
                        s->uiMatchLevel > MATCH_LEVEL_SAVE_MAX + 1) {
                        err = Fail("saved string malformed", id, s->uiMatchLevel);
                    }
                    return !err.empty();
                });
            }
            return !err.empty();
        });
        if (!err.empty()) {
            return err;
        }
    }
    if (pages != ctx->stPageNodePool.m_uiUsedNodeNum) {
        return Fail("page nodes lost: used vs on lists", ctx->stPageNodePool.m_uiUsedNodeNum, pages);
    }
    if (strings != ctx->stMatchStrMemPool.m_uiUsedNodeNum) {
        return Fail("string nodes lost: used vs on open pages", ctx->stMatchStrMemPool.m_uiUsedNodeNum, strings);
    }
    return {};
}

// Puts every global of the page association back to its state at load time;
// open pages are released without a report.
inline void ResetLibraryGlobals()
{
    g_PageEndFunc = nullptr;
    for (uint32_t t = 0; t < WEBPAGE_THREAD_NUM; ++t) {
        if (g_pstWebPage[t] != nullptr) {
            API_ReleaseWebPage(t);
        }
    }
    g_funcDaemonSDKLog = nullptr;
    g_enSDKLogLevel = LOG_LEVEL_TRACE;
    g_DNSQueryFunc = nullptr;
    std::memset(&g_stWebPageTimer, 0, sizeof(g_stWebPageTimer));
    std::memset(&g_stWebPageConfig, 0, sizeof(g_stWebPageConfig));
    std::memset(&g_stPageConfig, 0, sizeof(g_stPageConfig));
    std::memset(g_auiTimeThreshold, 0, sizeof(g_auiTimeThreshold));
    std::memset(g_ausCauseCode407, 0, sizeof(g_ausCauseCode407));
    std::memset(g_aulPageID, 0, sizeof(g_aulPageID));
    g_stTestConfig = 0;
}

}  // namespace orvane_check

#endif
