#include "http_conversation.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "text_util.hpp"

namespace replay::capture {

namespace {

using Side = HttpConversation::Side;

// Hostile input must not grow a message without bound; what the daemon
// reads from a header is short.
constexpr size_t kMaxTarget = 16384;
constexpr size_t kMaxHeader = 8192;
// Bytes kept while looking for the next message start after a loss.
constexpr size_t kMaxCarry = 8192;
// The client's first bytes kept to read a TLS server name.
constexpr size_t kMaxHello = 16384;

Side &SideOf(http_parser *p) { return *static_cast<Side *>(p->data); }

HttpMessage *Current(Side &side)
{
    return side.current < 0 ? nullptr : &side.messages[static_cast<size_t>(side.current)];
}

void Append(std::string *to, const char *at, size_t length, size_t limit)
{
    to->append(at, std::min(length, limit - std::min(limit, to->size())));
}

void EndHeader(Side &side)
{
    HttpMessage *m = Current(side);
    if (m != nullptr && side.inValue) {
        const std::string name = ToLower(side.field);
        std::string *slot = nullptr;
        if (side.client && name == "host") {
            slot = &m->host;
        } else if (side.client && name == "referer") {
            slot = &m->referer;
        } else if (!side.client && name == "location") {
            slot = &m->location;
        } else if (!side.client && name == "content-type") {
            slot = &m->contentType;
        }
        if (slot != nullptr && slot->empty()) {
            *slot = side.value;
        }
    }
    side.field.clear();
    side.value.clear();
    side.inValue = false;
}

int OnMessageBegin(http_parser *p)
{
    Side &side = SideOf(p);
    side.messages.emplace_back();
    side.current = static_cast<int>(side.messages.size() - 1);
    HttpMessage &m = side.messages.back();
    m.begin = m.end = side.now;
    m.packet = side.packet;
    return 0;
}

int OnUrl(http_parser *p, const char *at, size_t length)
{
    if (HttpMessage *m = Current(SideOf(p))) {
        Append(&m->target, at, length, kMaxTarget);
    }
    return 0;
}

int OnHeaderField(http_parser *p, const char *at, size_t length)
{
    Side &side = SideOf(p);
    if (side.inValue) {
        EndHeader(side);
    }
    Append(&side.field, at, length, kMaxHeader);
    return 0;
}

int OnHeaderValue(http_parser *p, const char *at, size_t length)
{
    Side &side = SideOf(p);
    Append(&side.value, at, length, kMaxHeader);
    side.inValue = true;
    return 0;
}

// A final answer takes the oldest request not yet answered, if that began
// before it: an answer seen first had its request before the capture.
int RequestFor(Side &responses, const HttpMessage &answer, const std::vector<HttpMessage> &requests)
{
    const size_t n = responses.answered;
    if (n < requests.size() && requests[n].begin <= answer.begin) {
        ++responses.answered;
        return static_cast<int>(n);
    }
    return -1;
}

}  // namespace

// The callbacks below need the conversation's other side.
struct ParserHooks {
    static int OnHeadersComplete(http_parser *p)
    {
        Side &side = SideOf(p);
        EndHeader(side);
        HttpMessage *m = Current(side);
        if (m == nullptr) {
            return 0;
        }
        m->headersDone = true;
        side.headed = true;
        m->end = std::max(m->end, side.now);
        if (side.client) {
            m->method = http_method_str(static_cast<http_method>(p->method));
            return 0;
        }
        m->status = p->status_code;
        const bool interim = m->status >= 100 && m->status < 200 && m->status != 101;
        const auto &requests = side.owner->Requests();
        m->request = interim ? -1 : RequestFor(side, *m, requests);
        // No body follows, whatever Content-Length says: interim answers,
        // 204, 304, and any answer to HEAD.
        const bool head = m->request >= 0 && requests[static_cast<size_t>(m->request)].method == "HEAD";
        return interim || m->status == 204 || m->status == 304 || head ? 1 : 0;
    }

    static int OnBody(http_parser *p, const char *, size_t length)
    {
        Side &side = SideOf(p);
        if (HttpMessage *m = Current(side)) {
            m->bodySize += static_cast<int64_t>(length);
            m->end = std::max(m->end, side.now);
        }
        return 0;
    }

    static int OnMessageComplete(http_parser *p)
    {
        Side &side = SideOf(p);
        HttpMessage *m = Current(side);
        side.current = -1;
        if (m == nullptr) {
            return 0;
        }
        m->end = std::max(m->end, side.now);
        m->complete = true;
        m->byClose = side.atClose;
        // An interim answer (100 Continue, 103 Early Hints) is not the
        // request's answer; 101 ends HTTP on the connection.
        if (!side.client && m->status >= 100 && m->status < 200 && m->status != 101) {
            side.messages.pop_back();
        }
        return 0;
    }
};

namespace {

const http_parser_settings &Settings()
{
    static const http_parser_settings settings = [] {
        http_parser_settings s;
        http_parser_settings_init(&s);
        s.on_message_begin = OnMessageBegin;
        s.on_url = OnUrl;
        s.on_header_field = OnHeaderField;
        s.on_header_value = OnHeaderValue;
        s.on_headers_complete = ParserHooks::OnHeadersComplete;
        s.on_body = ParserHooks::OnBody;
        s.on_message_complete = ParserHooks::OnMessageComplete;
        return s;
    }();
    return settings;
}

// Where the next message starts: a status line for responses, "METHOD
// target HTTP/1.x" for requests. at may lie past the end.
bool MessageStartsAt(std::string_view text, size_t at, bool request)
{
    if (at >= text.size()) {
        return false;
    }
    text.remove_prefix(at);
    if (!request) {
        return text.substr(0, 7) == "HTTP/1.";
    }
    size_t i = 0;
    while (i < text.size() && i < 16 && text[i] >= 'A' && text[i] <= 'Z') {
        ++i;
    }
    const size_t eol = text.find('\n');
    return i >= 3 && i < text.size() && text[i] == ' ' && eol != std::string_view::npos &&
           text.substr(i, eol - i).find(" HTTP/1.") != std::string_view::npos;
}

// The first line start where a message starts.
size_t FindMessageStart(std::string_view text, bool request)
{
    for (size_t at = 0; at < text.size();) {
        if (MessageStartsAt(text, at, request)) {
            return at;
        }
        const size_t eol = text.find('\n', at);
        if (eol == std::string_view::npos) {
            break;
        }
        at = eol + 1;
    }
    return std::string_view::npos;
}

uint16_t Be16(const uint8_t *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

bool IsTlsRecord(const uint8_t *data, size_t size)
{
    // a TLS 1.x record: ChangeCipherSpec, alert, handshake or application data
    return size >= 3 && data[0] >= 0x14 && data[0] <= 0x17 && data[1] == 0x03;
}

}  // namespace

std::string ClientHelloSni(const uint8_t *data, size_t size)
{
    // record header, handshake header, version, random
    if (size < 5 + 4 + 2 + 32 || data[0] != 0x16 || data[5] != 0x01) {
        return {};
    }
    const size_t end = std::min(size, static_cast<size_t>(5 + Be16(data + 3)));
    size_t at = 5 + 4 + 2 + 32;
    auto skip = [&](size_t lengthBytes) {
        if (at + lengthBytes > end) {
            at = end + 1;
            return;
        }
        const size_t n = lengthBytes == 1 ? data[at] : Be16(data + at);
        at += lengthBytes + n;
    };
    skip(1);  // session id
    skip(2);  // cipher suites
    skip(1);  // compression methods
    if (at + 2 > end) {
        return {};
    }
    const size_t extEnd = std::min(end, at + 2 + Be16(data + at));
    at += 2;
    while (at + 4 <= extEnd) {
        const uint16_t type = Be16(data + at);
        const size_t length = Be16(data + at + 2);
        at += 4;
        if (type == 0 && at + 5 <= extEnd && data[at + 2] == 0) {  // server_name, host_name
            const size_t nameLength = Be16(data + at + 3);
            if (at + 5 + nameLength <= extEnd) {
                return std::string(reinterpret_cast<const char *>(data + at + 5), nameLength);
            }
            return {};
        }
        at += length;
    }
    return {};
}

HttpConversation::HttpConversation(std::shared_ptr<Connection> conn) : conn_(std::move(conn))
{
    for (int i = 0; i < 2; ++i) {
        side_[i].owner = this;
        side_[i].client = i == 1;
        side_[i].parser = std::make_unique<http_parser>();
        Restart(side_[i]);
    }
    // Joined mid-way: each side waits for a message start.
    side_[0].resync = side_[1].resync = conn_->partial;
}

HttpConversation::~HttpConversation() = default;

void HttpConversation::Restart(Side &side)
{
    http_parser_init(side.parser.get(), side.client ? HTTP_REQUEST : HTTP_RESPONSE);
    side.parser->data = &side;
    side.field.clear();
    side.value.clear();
    side.inValue = false;
    side.current = -1;
}

void HttpConversation::CutCurrent(Side &side)
{
    if (HttpMessage *m = Current(side)) {
        m->cut = true;
    }
    side.current = -1;
}

void HttpConversation::Sniff(const uint8_t *data, size_t size, uint64_t ns, size_t packet)
{
    if (size != 0) {
        const size_t take = std::min(size, kMaxHello - std::min(kMaxHello, head_.size()));
        head_.append(reinterpret_cast<const char *>(data), take);
        headChunks_.push_back({take, ns, packet});
    }
    const auto *bytes = reinterpret_cast<const uint8_t *>(head_.data());
    if (IsTlsRecord(bytes, head_.size())) {
        kind_ = FlowKind::kTls;
        const size_t record = head_.size() >= 5 ? 5 + Be16(bytes + 3) : kMaxHello;
        if (head_.size() >= std::min(record, kMaxHello)) {
            sni_ = ClientHelloSni(bytes, head_.size());
            head_.clear();
            headChunks_.clear();
        }
        return;
    }
    // Too few bytes yet to tell a TLS record or the HTTP/2 preface.
    static const std::string kPreface = "PRI * HTTP/2.0";
    const size_t n = std::min(head_.size(), kPreface.size());
    const bool maybeTls = head_.size() < 3 && bytes[0] >= 0x14 && bytes[0] <= 0x17 && (n < 2 || bytes[1] == 0x03);
    const bool maybePreface = head_.compare(0, n, kPreface, 0, n) == 0;
    if (size != 0 && (maybeTls || (maybePreface && n < kPreface.size()))) {
        return;
    }
    if (maybePreface && n == kPreface.size()) {
        kind_ = FlowKind::kHttp2;
        return;
    }
    kind_ = FlowKind::kHttp;  // until the parser says otherwise
    std::string first;
    first.swap(head_);
    std::vector<HeadChunk> chunks;
    chunks.swap(headChunks_);
    size_t at = 0;
    // Each piece read at its own time: a message begins when its first byte came.
    for (const HeadChunk &chunk : chunks) {
        if (kind_ != FlowKind::kHttp) {
            break;
        }
        side_[1].now = chunk.ns;
        side_[1].packet = chunk.packet;
        Feed(side_[1], reinterpret_cast<const uint8_t *>(first.data() + at), chunk.size);
        at += chunk.size;
    }
}

// Joined mid-way, the first sender seen may be the server: the first
// request line or status line tells which side is which.
void HttpConversation::Orient(bool fromClient, const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), std::min(size, kMaxCarry));
    const bool request = FindMessageStart(bytes, true) != std::string_view::npos;
    const bool response = FindMessageStart(bytes, false) != std::string_view::npos;
    if (request == response) {
        return;  // neither yet
    }
    oriented_ = true;
    if (fromClient == response) {
        swapped_ = true;
        std::swap(conn_->client, conn_->server);
        side_[0].carry.clear();
        side_[1].carry.clear();
    }
}

void HttpConversation::Data(bool fromClient, const uint8_t *data, size_t size, uint64_t ns, size_t packet)
{
    bytes_ += size;
    if (conn_->partial && !oriented_) {
        Orient(fromClient, data, size);
    }
    fromClient = fromClient != swapped_;
    Side &side = side_[fromClient ? 1 : 0];
    side.now = ns;
    side.packet = packet;
    if (kind_ == FlowKind::kTls && !head_.empty() && fromClient) {
        Sniff(data, size, ns, packet);
        return;
    }
    if (kind_ == FlowKind::kUnknown) {
        if (fromClient) {
            Sniff(data, size, ns, packet);
            return;
        }
        if (IsTlsRecord(data, size)) {
            kind_ = FlowKind::kTls;  // the capture missed the client's hello
            return;
        }
        // The server speaks first, or the client's bytes were not captured.
        kind_ = FlowKind::kHttp;
    }
    if (kind_ == FlowKind::kHttp && !side.stopped) {
        Feed(side, data, size);
    }
}

void HttpConversation::Feed(Side &side, const uint8_t *data, size_t size)
{
    std::string joined;  // the bytes kept from before a loss, then these
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    size_t segment = 0;  // where these bytes begin in rest
    if (side.resync && !side.carry.empty()) {
        segment = side.carry.size();
        joined = std::move(side.carry);
        side.carry.clear();
        joined.append(rest);
        rest = joined;
    }
    for (;;) {
        if (side.resync) {
            // After a loss a message most often starts right at a segment's
            // first byte, else at a line start.
            const size_t start = MessageStartsAt(rest, segment, side.client) ? segment
                                                                             : FindMessageStart(rest, side.client);
            if (start == std::string_view::npos) {
                side.carry.assign(rest.substr(rest.size() - std::min(rest.size(), kMaxCarry)));
                return;
            }
            side.resync = false;
            Restart(side);
            rest.remove_prefix(start);
        }
        const size_t parsed = http_parser_execute(side.parser.get(), &Settings(), rest.data(), rest.size());
        if (side.parser->upgrade) {
            side.stopped = true;  // an upgrade or CONNECT: what follows is not HTTP/1.x
            return;
        }
        if (parsed == rest.size() && HTTP_PARSER_ERRNO(side.parser.get()) == HPE_OK) {
            return;
        }
        CutCurrent(side);
        if (!side_[0].headed && !side_[1].headed) {
            kind_ = FlowKind::kOther;  // the very first bytes are not HTTP/1.x
            side_[0].messages.clear();
            side_[1].messages.clear();
            return;
        }
        // Not HTTP where HTTP was due: look for the next message start
        // after the byte the parser stopped at.
        side.resync = true;
        rest.remove_prefix(std::min(parsed + 1, rest.size()));
        segment = std::string_view::npos;
    }
}

void HttpConversation::Gap(bool fromClient, uint64_t)
{
    fromClient = fromClient != swapped_;
    Side &side = side_[fromClient ? 1 : 0];
    if (kind_ == FlowKind::kTls && fromClient && !head_.empty()) {
        sni_ = ClientHelloSni(reinterpret_cast<const uint8_t *>(head_.data()), head_.size());
        head_.clear();
    }
    CutCurrent(side);
    side.resync = true;
    side.carry.clear();
}

void HttpConversation::Close(uint64_t)
{
    if (kind_ == FlowKind::kUnknown && !head_.empty()) {
        Sniff(nullptr, 0, 0, 0);  // decide on the few bytes there are
    }
    if (kind_ == FlowKind::kTls && !head_.empty()) {
        sni_ = ClientHelloSni(reinterpret_cast<const uint8_t *>(head_.data()), head_.size());
        head_.clear();
    }
    for (Side &side : side_) {
        if (kind_ == FlowKind::kHttp && !side.stopped && !side.resync && conn_->closed != 0) {
            // The connection's end completes a body that runs to the close.
            side.atClose = true;
            http_parser_execute(side.parser.get(), &Settings(), nullptr, 0);
        }
        CutCurrent(side);
    }
}

}  // namespace replay::capture
