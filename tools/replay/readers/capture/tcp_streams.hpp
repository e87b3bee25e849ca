// TCP connections of a capture reassembled both ways (libtins' stream
// follower), with the handshake and close times the daemon's events carry.
#ifndef ORVANE_REPLAY_CAPTURE_TCP_STREAMS_HPP
#define ORVANE_REPLAY_CAPTURE_TCP_STREAMS_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <tins/tcp_ip/stream_follower.h>

namespace replay::capture {

struct Endpoint {
    std::string address;  // dotted quad, or IPv6 text
    uint16_t port = 0;
    uint32_t ipv4 = 0;  // 0 for IPv6
    bool v6 = false;

    std::string Text() const { return (v6 ? "[" + address + "]" : address) + ":" + std::to_string(port); }
};

// One connection as the packets showed it. Times in ns, 0 when not seen.
struct Connection {
    size_t id = 0;  // 1, 2, ... in the order connections were first seen
    Endpoint client, server;
    uint64_t syn = 0, synAck = 0, established = 0;
    uint64_t closed = 0;  // first FIN or RST either way
    uint64_t firstPacket = 0;
    bool partial = false;  // the capture begins inside it
};

// What a connection's bytes go to, in order per direction.
class StreamSink {
public:
    virtual ~StreamSink() = default;
    // packet: 1-based number of the frame that completed these bytes.
    virtual void Data(bool fromClient, const uint8_t *data, size_t size, uint64_t ns, size_t packet) = 0;
    // Bytes were lost before the next Data in that direction.
    virtual void Gap(bool fromClient, uint64_t ns) = 0;
    // No more bytes either way.
    virtual void Close(uint64_t ns) = 0;
};

// A hole in a direction is given up (the bytes after it are delivered, the
// loss reported as a Gap) once retransmission has not filled it for this long
// on the capture's clock, or once this much has piled up behind it.
constexpr uint64_t kHoleWaitNs = 3000000000ull;
constexpr uint32_t kHoleMaxBytes = 256 * 1024;

class TcpStreams {
public:
    using SinkFactory = std::function<std::shared_ptr<StreamSink>(const std::shared_ptr<Connection> &)>;

    explicit TcpStreams(SinkFactory factory);
    ~TcpStreams();
    TcpStreams(const TcpStreams &) = delete;
    TcpStreams &operator=(const TcpStreams &) = delete;

    // ip: a parsed IP or IPv6 packet with its TCP layer.
    void Packet(Tins::PDU &ip, uint64_t ns, size_t number);
    // Delivers what is still held behind holes and closes every connection.
    void Finish();

private:
    struct Live;
    void Follow(Tins::TCPIP::Stream &stream);
    void End(Tins::TCPIP::Stream &stream);
    void OutOfOrder(Live &live, bool fromClient, Tins::TCPIP::Flow &flow, uint32_t seq, size_t size);
    void Deliver(Live &live, bool fromClient, const std::vector<uint8_t> &bytes);
    void FlushHeld(Live &live, bool fromClient);
    std::shared_ptr<Connection> Track(const Tins::PDU &ip, const Tins::TCP &tcp);

    SinkFactory factory_;
    Tins::TCPIP::StreamFollower follower_;
    // Handshake and close times by "client>server" endpoints, kept from the
    // SYN until the follower hands the stream over.
    std::unordered_map<std::string, std::shared_ptr<Connection>> byTuple_;
    std::map<const Tins::TCPIP::Stream *, std::unique_ptr<Live>> live_;
    std::vector<const Tins::TCPIP::Stream *> ended_;  // closed, dropped before the next packet
    size_t nextId_ = 1;
    uint64_t now_ = 0;
    size_t packet_ = 0;
};

}  // namespace replay::capture

#endif
