// The pages a session reported, one row each, kept out of memory once final.
#ifndef ORVANE_REPLAY_PAGE_ROWS_HPP
#define ORVANE_REPLAY_PAGE_ROWS_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "orvane_webpage.h"

namespace replay {

enum class PageKind { kUnknown, kSingle, kAssociate, kUcid };
const char *KindName(PageKind kind);

struct PageResult {
    uint64_t id = 0;
    PageKind kind = PageKind::kUnknown;
    std::string host, uri;  // of the first request that joined it
    int firstEvent = -1;    // index into Trace::events, when events are kept
    int requests = 0, responses = 0;
    bool reported = false;
    bool released = false;  // reported by the final release rather than the timer
    STPageKQI kqi{};
    uint64_t openedAt = 0;  // trace clock at the page's first event
    uint64_t closedAt = 0;  // trace clock at the report
};

// Rows in page-ID order. A row stays in memory while its page is open (the
// library holds at most a pool's worth); once the page is reported the row
// is final and, past a few thousand, goes to an unnamed temporary file
// (memory when none can be made), so a session of any length keeps a
// bounded number of rows in memory.
class PageRows {
public:
    PageRows();
    ~PageRows();
    PageRows(PageRows &&other) noexcept;
    PageRows &operator=(PageRows &&other) noexcept;
    PageRows(const PageRows &) = delete;
    PageRows &operator=(const PageRows &) = delete;

    // The row of page id, made on first sight (*made); null once it is final.
    PageResult *Open(uint64_t id, bool *made = nullptr);
    // The page was reported: its row is final.
    void Close(uint64_t id);
    void CloseAll();

    size_t size() const { return count_; }
    // Every row, in page-ID order.
    void ForEach(const std::function<void(const PageResult &)> &visit) const;
    std::vector<PageResult> All() const;

private:
    class Store;
    bool Final(uint64_t id) const;

    std::map<uint64_t, PageResult> open_;  // also rows whose ID cannot be filed
    std::unique_ptr<Store> rows_, index_;  // row records; (offset, size) per page ID
    uint64_t lastFiled_ = 0;               // highest ID filed so far
    size_t count_ = 0;
};

}  // namespace replay

#endif
