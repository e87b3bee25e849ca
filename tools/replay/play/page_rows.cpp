#include "page_rows.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace replay {

namespace {

// Page IDs are a per-session counter from 1; far beyond any real session an
// ID would leave a sparse file with absurd offsets, so such rows stay in
// memory instead.
constexpr uint64_t kMaxFiledId = 1ull << 32;
constexpr size_t kSlotsPerRead = 1024;

struct RowHeader {
    uint64_t id;
    uint64_t openedAt;
    uint64_t closedAt;
    STPageKQI kqi;
    int32_t firstEvent;
    int32_t requests;
    int32_t responses;
    uint32_t hostLen;
    uint32_t uriLen;
    uint8_t kind;
    uint8_t reported;
    uint8_t released;
};

struct Slot {
    uint64_t offset;
    uint64_t size;  // 0: no row for this ID
};

bool Filable(uint64_t id) { return id != 0 && id <= kMaxFiledId; }

std::string Encode(const PageResult &row)
{
    RowHeader h;
    std::memset(&h, 0, sizeof(h));  // no stray padding bytes on disk
    h.id = row.id;
    h.openedAt = row.openedAt;
    h.closedAt = row.closedAt;
    h.kqi = row.kqi;
    h.firstEvent = row.firstEvent;
    h.requests = row.requests;
    h.responses = row.responses;
    h.hostLen = static_cast<uint32_t>(row.host.size());
    h.uriLen = static_cast<uint32_t>(row.uri.size());
    h.kind = static_cast<uint8_t>(row.kind);
    h.reported = row.reported ? 1 : 0;
    h.released = row.released ? 1 : 0;
    std::string out(reinterpret_cast<const char *>(&h), sizeof(h));
    return out + row.host + row.uri;
}

PageResult Decode(const std::string &record)
{
    RowHeader h;
    if (record.size() < sizeof(h)) {
        throw std::runtime_error("page rows: short record in the temporary file");
    }
    std::memcpy(&h, record.data(), sizeof(h));
    if (record.size() != sizeof(h) + static_cast<size_t>(h.hostLen) + h.uriLen) {
        throw std::runtime_error("page rows: damaged record in the temporary file");
    }
    PageResult row;
    row.id = h.id;
    row.openedAt = h.openedAt;
    row.closedAt = h.closedAt;
    row.kqi = h.kqi;
    row.firstEvent = h.firstEvent;
    row.requests = h.requests;
    row.responses = h.responses;
    row.host = record.substr(sizeof(h), h.hostLen);
    row.uri = record.substr(sizeof(h) + h.hostLen, h.uriLen);
    row.kind = static_cast<PageKind>(h.kind);
    row.reported = h.reported != 0;
    row.released = h.released != 0;
    return row;
}

int MakeTempFile()
{
    const char *dir = std::getenv("TMPDIR");
    std::string path = std::string(dir != nullptr && dir[0] != '\0' ? dir : "/tmp") + "/orvane-replay-XXXXXX";
    const int fd = ::mkstemp(&path[0]);
    if (fd >= 0) {
        ::unlink(path.c_str());  // gone with the descriptor, even on a crash
    }
    return fd;
}

}  // namespace

// Bytes at offsets: memory while they are few (every HAR session, so a long
// list of files takes no descriptors), a temporary file beyond that.
class PageRows::Store {
public:
    Store() = default;
    ~Store()
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    uint64_t size() const { return size_; }

    void Write(uint64_t offset, const void *data, size_t n)
    {
        if (fd_ < 0 && !tried_ && offset + n > kInMemoryBytes) {
            tried_ = true;  // once: without a file the bytes stay in memory
            fd_ = MakeTempFile();
            if (fd_ >= 0) {
                WriteFile(0, memory_.data(), memory_.size());
                std::string().swap(memory_);
            }
        }
        if (fd_ >= 0) {
            WriteFile(offset, data, n);
        } else {
            if (memory_.size() < offset + n) {
                memory_.resize(offset + n);
            }
            std::memcpy(&memory_[offset], data, n);
        }
        size_ = std::max<uint64_t>(size_, offset + n);
    }

    bool Read(uint64_t offset, void *data, size_t n) const
    {
        if (offset > size_ || n > size_ - offset) {
            return false;
        }
        if (fd_ < 0) {
            std::memcpy(data, memory_.data() + offset, n);
            return true;
        }
        char *p = static_cast<char *>(data);
        for (size_t done = 0; done < n;) {
            const ssize_t r = ::pread(fd_, p + done, n - done, static_cast<off_t>(offset + done));
            if (r < 0 && errno == EINTR) {
                continue;
            }
            if (r <= 0) {
                return false;
            }
            done += static_cast<size_t>(r);
        }
        return true;
    }

private:
    static constexpr uint64_t kInMemoryBytes = 256 * 1024;

    void WriteFile(uint64_t offset, const void *data, size_t n)
    {
        const char *p = static_cast<const char *>(data);
        for (size_t done = 0; done < n;) {
            const ssize_t w = ::pwrite(fd_, p + done, n - done, static_cast<off_t>(offset + done));
            if (w < 0 && errno == EINTR) {
                continue;
            }
            if (w <= 0) {
                throw std::runtime_error(std::string("page rows: cannot write the temporary file: ") +
                                         std::strerror(errno));
            }
            done += static_cast<size_t>(w);
        }
    }

    int fd_ = -1;
    bool tried_ = false;
    std::string memory_;
    uint64_t size_ = 0;
};

const char *KindName(PageKind kind)
{
    switch (kind) {
    case PageKind::kSingle:
        return "single";
    case PageKind::kAssociate:
        return "assoc";
    case PageKind::kUcid:
        return "ucid";
    case PageKind::kUnknown:
        break;
    }
    return "?";
}

PageRows::PageRows() : rows_(std::make_unique<Store>()), index_(std::make_unique<Store>()) {}
PageRows::~PageRows() = default;
PageRows::PageRows(PageRows &&other) noexcept = default;
PageRows &PageRows::operator=(PageRows &&other) noexcept = default;

bool PageRows::Final(uint64_t id) const
{
    if (!Filable(id) || id > lastFiled_) {
        return false;
    }
    Slot slot{0, 0};
    return index_->Read((id - 1) * sizeof(Slot), &slot, sizeof(slot)) && slot.size != 0;
}

PageResult *PageRows::Open(uint64_t id, bool *made)
{
    if (made != nullptr) {
        *made = false;
    }
    auto it = open_.find(id);
    if (it != open_.end()) {
        return &it->second;
    }
    if (Final(id)) {
        return nullptr;
    }
    PageResult &row = open_[id];
    row.id = id;
    ++count_;
    if (made != nullptr) {
        *made = true;
    }
    return &row;
}

void PageRows::Close(uint64_t id)
{
    auto it = open_.find(id);
    if (it == open_.end() || !Filable(id)) {
        return;
    }
    const std::string record = Encode(it->second);
    const Slot slot{rows_->size(), record.size()};
    rows_->Write(slot.offset, record.data(), record.size());
    index_->Write((id - 1) * sizeof(Slot), &slot, sizeof(slot));
    lastFiled_ = std::max(lastFiled_, id);
    open_.erase(it);
}

void PageRows::CloseAll()
{
    for (auto it = open_.begin(); it != open_.end();) {
        const uint64_t id = it->first;
        ++it;  // Close erases only id's row
        Close(id);
    }
}

void PageRows::ForEach(const std::function<void(const PageResult &)> &visit) const
{
    auto memory = open_.begin();
    const uint64_t slots = index_->size() / sizeof(Slot);
    std::vector<Slot> chunk(kSlotsPerRead);
    std::string record;
    for (uint64_t first = 0; first < slots; first += kSlotsPerRead) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(kSlotsPerRead, slots - first));
        if (!index_->Read(first * sizeof(Slot), chunk.data(), n * sizeof(Slot))) {
            throw std::runtime_error("page rows: cannot read the temporary file");
        }
        for (size_t i = 0; i < n; ++i) {
            if (chunk[i].size == 0) {
                continue;
            }
            const uint64_t id = first + i + 1;
            for (; memory != open_.end() && memory->first < id; ++memory) {
                visit(memory->second);
            }
            record.resize(static_cast<size_t>(chunk[i].size));
            if (!rows_->Read(chunk[i].offset, &record[0], record.size())) {
                throw std::runtime_error("page rows: cannot read the temporary file");
            }
            visit(Decode(record));
        }
    }
    for (; memory != open_.end(); ++memory) {
        visit(memory->second);
    }
}

std::vector<PageResult> PageRows::All() const
{
    std::vector<PageResult> rows;
    rows.reserve(count_);
    ForEach([&rows](const PageResult &row) { rows.push_back(row); });
    return rows;
}

}  // namespace replay
