// The HTTP/1.x messages of one TCP connection, read both ways with
// http-parser as the bytes arrive; TLS and other protocols are only named.
#ifndef ORVANE_REPLAY_CAPTURE_HTTP_CONVERSATION_HPP
#define ORVANE_REPLAY_CAPTURE_HTTP_CONVERSATION_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <http_parser.h>

#include "tcp_streams.hpp"

namespace replay::capture {

struct HttpMessage {
    uint64_t begin = 0, end = 0;  // first and last byte seen, ns
    size_t packet = 0;            // frame of the first byte
    std::string method, target, host, referer;  // requests
    uint32_t status = 0;                         // responses
    std::string location, contentType;           // responses
    int64_t bodySize = 0;  // body bytes as sent (chunked framing removed)
    bool headersDone = false;
    bool complete = false;  // ended by its own framing, or by the close when that is its framing
    bool byClose = false;   // a body that runs to the connection's close
    int request = -1;       // responses: the request answered, an index into Requests()
    bool cut = false;       // lost bytes or the connection ended inside it
};

enum class FlowKind { kUnknown, kHttp, kTls, kHttp2, kOther };

class HttpConversation : public StreamSink {
public:
    explicit HttpConversation(std::shared_ptr<Connection> conn);
    ~HttpConversation() override;

    void Data(bool fromClient, const uint8_t *data, size_t size, uint64_t ns, size_t packet) override;
    void Gap(bool fromClient, uint64_t ns) override;
    void Close(uint64_t ns) override;

    const Connection &Conn() const { return *conn_; }
    FlowKind Kind() const { return kind_; }
    const std::string &Sni() const { return sni_; }
    uint64_t Bytes() const { return bytes_; }
    const std::vector<HttpMessage> &Requests() const { return side_[1].messages; }
    // Final responses only (1xx left out), each naming its request.
    const std::vector<HttpMessage> &Responses() const { return side_[0].messages; }

    // One direction's parser and the messages it has read.
    struct Side {
        HttpConversation *owner = nullptr;
        bool client = false;
        std::unique_ptr<http_parser> parser;
        bool resync = false;  // after a loss: looking for the next message start
        std::string carry;    // unsearched tail while resyncing
        std::string field, value;
        bool inValue = false;
        int current = -1;  // index of the message being read
        uint64_t now = 0;
        size_t packet = 0;
        bool atClose = false;
        bool stopped = false;  // upgraded: the rest is not HTTP/1.x
        bool headed = false;   // some message's header was read whole
        size_t answered = 0;   // responses: requests answered so far
        std::vector<HttpMessage> messages;
    };

private:
    void Orient(bool fromClient, const uint8_t *data, size_t size);
    void Sniff(const uint8_t *data, size_t size, uint64_t ns, size_t packet);
    void Feed(Side &side, const uint8_t *data, size_t size);
    void Restart(Side &side);
    void CutCurrent(Side &side);

    std::shared_ptr<Connection> conn_;
    FlowKind kind_ = FlowKind::kUnknown;
    // The client's first bytes, until the protocol is known, and when each
    // piece came.
    struct HeadChunk {
        size_t size;
        uint64_t ns;
        size_t packet;
    };
    std::string head_;
    std::vector<HeadChunk> headChunks_;
    std::string sni_;
    uint64_t bytes_ = 0;
    bool oriented_ = false;  // joined mid-way: which side is the client is settled
    bool swapped_ = false;   // the follower took the server for the client
    Side side_[2];          // [0] server to client, [1] client to server
};

// The server name a TLS ClientHello asks for; empty when there is none or
// the bytes are not a ClientHello.
std::string ClientHelloSni(const uint8_t *data, size_t size);

}  // namespace replay::capture

#endif
