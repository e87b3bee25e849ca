#include "tcp_streams.hpp"

#include <algorithm>
#include <chrono>
#include <vector>

#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/packet.h>
#include <tins/tcp.h>
#include <tins/timestamp.h>

#include "text_util.hpp"

namespace replay::capture {

namespace {

using Tins::TCPIP::Flow;
using Tins::TCPIP::Stream;
using Tins::TCPIP::StreamFollower;

// Sequence numbers wrap: a is after b when the forward distance is short.
bool SeqAfter(uint32_t a, uint32_t b) { return static_cast<int32_t>(a - b) > 0; }

Endpoint MakeEndpoint(const std::string &address, uint16_t port, bool v6)
{
    Endpoint e;
    e.address = address;
    e.port = port;
    e.v6 = v6;
    if (!v6) {
        ParseIpv4(address, &e.ipv4);
    }
    return e;
}

}  // namespace

struct TcpStreams::Live {
    std::shared_ptr<Connection> conn;
    std::shared_ptr<StreamSink> sink;
    Stream *stream = nullptr;
    bool gap[2] = {false, false};         // [fromClient]: a Gap is due before the next bytes
    uint64_t holeSince[2] = {0, 0};       // when the oldest unfilled hole was noticed
    bool ended = false;
};

TcpStreams::TcpStreams(SinkFactory factory) : factory_(std::move(factory))
{
    follower_.follow_partial_streams(true);
    follower_.new_stream_callback([this](Stream &stream) { Follow(stream); });
    follower_.stream_termination_callback(
        [this](Stream &stream, StreamFollower::TerminationReason) { End(stream); });
}

TcpStreams::~TcpStreams() = default;

std::shared_ptr<Connection> TcpStreams::Track(const Tins::PDU &ip, const Tins::TCP &tcp)
{
    std::string src, dst;
    bool v6 = false;
    if (const auto *v4 = ip.find_pdu<Tins::IP>()) {
        src = v4->src_addr().to_string();
        dst = v4->dst_addr().to_string();
    } else if (const auto *six = ip.find_pdu<Tins::IPv6>()) {
        src = six->src_addr().to_string();
        dst = six->dst_addr().to_string();
        v6 = true;
    } else {
        return nullptr;
    }
    const Endpoint from = MakeEndpoint(src, tcp.sport(), v6);
    const Endpoint to = MakeEndpoint(dst, tcp.dport(), v6);
    const std::string forward = from.Text() + ">" + to.Text();
    const bool syn = (tcp.flags() & Tins::TCP::SYN) != 0;
    const bool ack = (tcp.flags() & Tins::TCP::ACK) != 0;

    auto it = byTuple_.find(forward);
    bool fromClient = it != byTuple_.end();
    if (!fromClient) {
        it = byTuple_.find(to.Text() + ">" + from.Text());
    }
    std::shared_ptr<Connection> conn = it == byTuple_.end() ? nullptr : it->second;
    // A SYN opens a connection unless it repeats the one still unanswered.
    const bool retried = conn && fromClient && conn->synAck == 0 && conn->closed == 0;
    if (syn && !ack && !retried) {
        conn = std::make_shared<Connection>();
        conn->id = nextId_++;
        conn->client = from;
        conn->server = to;
        conn->syn = conn->firstPacket = now_;
        byTuple_[forward] = conn;
        return conn;
    }
    if (!conn) {
        // The capture began inside this connection: the first sender is
        // taken as the client, as the stream follower does.
        conn = std::make_shared<Connection>();
        conn->id = nextId_++;
        conn->client = from;
        conn->server = to;
        conn->firstPacket = now_;
        conn->partial = true;
        byTuple_[forward] = conn;
        fromClient = true;
    }
    if (syn && ack && !fromClient && conn->synAck == 0) {
        conn->synAck = now_;
    } else if (!syn && ack && fromClient && conn->synAck != 0 && conn->established == 0) {
        conn->established = now_;
    }
    if ((tcp.flags() & Tins::TCP::FIN) != 0 || (tcp.flags() & Tins::TCP::RST) != 0) {
        conn->closed = conn->closed != 0 ? conn->closed : now_;
    }
    return conn;
}

void TcpStreams::Packet(Tins::PDU &ip, uint64_t ns, size_t number)
{
    // The follower has dropped these streams by now; a new one may take
    // the same address.
    for (const Stream *stream : ended_) {
        live_.erase(stream);
    }
    ended_.clear();
    now_ = ns;
    packet_ = number;
    const auto *tcp = ip.find_pdu<Tins::TCP>();
    if (tcp == nullptr || !Track(ip, *tcp)) {
        return;
    }
    const std::chrono::microseconds us(ns / 1000);
    Tins::Packet packet(ip, Tins::Timestamp(us));
    follower_.process_packet(packet);
}

void TcpStreams::Follow(Stream &stream)
{
    const bool v6 = stream.is_v6();
    const Endpoint client = MakeEndpoint(
        v6 ? stream.client_addr_v6().to_string() : stream.client_addr_v4().to_string(), stream.client_port(), v6);
    const Endpoint server = MakeEndpoint(
        v6 ? stream.server_addr_v6().to_string() : stream.server_addr_v4().to_string(), stream.server_port(), v6);
    auto it = byTuple_.find(client.Text() + ">" + server.Text());
    std::shared_ptr<Connection> conn;
    if (it != byTuple_.end()) {
        conn = it->second;
    } else {
        conn = std::make_shared<Connection>();
        conn->id = nextId_++;
        conn->client = client;
        conn->server = server;
        conn->firstPacket = now_;
        conn->partial = true;
        byTuple_[client.Text() + ">" + server.Text()] = conn;
    }
    auto live = std::make_unique<Live>();
    Live *l = live.get();
    l->conn = conn;
    l->stream = &stream;
    l->sink = factory_(conn);
    live_[&stream] = std::move(live);

    stream.client_data_callback([this, l](Stream &s) { Deliver(*l, true, s.client_payload()); });
    stream.server_data_callback([this, l](Stream &s) { Deliver(*l, false, s.server_payload()); });
    stream.client_out_of_order_callback([this, l](Stream &s, uint32_t seq, const Stream::payload_type &p) {
        OutOfOrder(*l, true, s.client_flow(), seq, p.size());
    });
    stream.server_out_of_order_callback([this, l](Stream &s, uint32_t seq, const Stream::payload_type &p) {
        OutOfOrder(*l, false, s.server_flow(), seq, p.size());
    });
    stream.stream_closed_callback([this](Stream &s) { End(s); });
}

void TcpStreams::Deliver(Live &live, bool fromClient, const std::vector<uint8_t> &bytes)
{
    if (live.ended || bytes.empty()) {
        return;
    }
    const int dir = fromClient ? 1 : 0;
    if (live.gap[dir]) {
        live.gap[dir] = false;
        live.sink->Gap(fromClient, now_);
    }
    const Flow &flow = fromClient ? live.stream->client_flow() : live.stream->server_flow();
    if (flow.buffered_payload().empty()) {
        live.holeSince[dir] = 0;
    }
    live.sink->Data(fromClient, bytes.data(), bytes.size(), now_, packet_);
}

void TcpStreams::OutOfOrder(Live &live, bool fromClient, Flow &flow, uint32_t seq, size_t size)
{
    if (live.ended || !SeqAfter(seq, flow.sequence_number())) {
        return;  // a retransmission of bytes already delivered
    }
    const int dir = fromClient ? 1 : 0;
    if (live.holeSince[dir] == 0) {
        live.holeSince[dir] = now_;
    }
    // A capture's clock may step back; that is no waiting.
    const uint64_t waited = now_ > live.holeSince[dir] ? now_ - live.holeSince[dir] : 0;
    if (waited < kHoleWaitNs && flow.total_buffered_bytes() + size <= kHoleMaxBytes) {
        return;  // retransmission may still fill it
    }
    FlushHeld(live, fromClient);
    live.holeSince[dir] = 0;
    if (SeqAfter(seq, flow.sequence_number())) {
        live.gap[dir] = true;
        flow.advance_sequence(seq);  // this packet is then delivered in order
    }
}

// Delivers the bytes held behind holes, each hole reported as a Gap.
void TcpStreams::FlushHeld(Live &live, bool fromClient)
{
    Flow &flow = fromClient ? live.stream->client_flow() : live.stream->server_flow();
    auto &held = flow.buffered_payload();
    if (held.empty()) {
        return;
    }
    const uint32_t base = flow.sequence_number();
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> chunks(held.begin(), held.end());
    held.clear();
    std::sort(chunks.begin(), chunks.end(),
              [base](const auto &a, const auto &b) { return a.first - base < b.first - base; });
    const int dir = fromClient ? 1 : 0;
    uint32_t pos = base;
    for (auto &[seq, bytes] : chunks) {
        const uint32_t end = seq + static_cast<uint32_t>(bytes.size());
        if (!SeqAfter(end, pos)) {
            continue;  // wholly before what was delivered
        }
        size_t skip = 0;
        if (SeqAfter(seq, pos)) {
            live.gap[dir] = true;
        } else {
            skip = pos - seq;
        }
        std::vector<uint8_t> rest(bytes.begin() + static_cast<std::ptrdiff_t>(skip), bytes.end());
        Deliver(live, fromClient, rest);
        pos = end;
    }
    flow.advance_sequence(pos);
}

void TcpStreams::End(Stream &stream)
{
    auto it = live_.find(&stream);
    if (it == live_.end() || it->second->ended) {
        return;
    }
    Live &live = *it->second;
    FlushHeld(live, true);
    FlushHeld(live, false);
    live.ended = true;
    ended_.push_back(&stream);
    live.sink->Close(now_);
}

void TcpStreams::Finish()
{
    for (auto &entry : live_) {
        if (!entry.second->ended) {
            End(*entry.second->stream);
        }
    }
    live_.clear();
}

}  // namespace replay::capture
