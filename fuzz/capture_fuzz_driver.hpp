// The packet-capture fuzzers' interpreters, shared with the regression test
// in tests/replay. Each returns an empty string, or the rule the reader broke.
//
// TCP input: byte 0 picks the form. With its top bit set the rest is a
// capture file as is. Otherwise bits 0-1 pick the link type (Ethernet, raw
// IP, Linux cooked), bit 6 IPv6, and records follow, one segment of a single
// connection each: [control][offset:2][length][ms since the last][payload],
// control bit 0 = from the client, bits 1-5 = SYN, ACK, PSH, FIN, RST; the
// offset counts from the direction's first data byte.
//
// HTTP input: byte 0 bit 0 = the capture joined the connection mid-way, bit
// 1 = it closes at the end; then records [control][length:2][payload],
// control bit 0 = from the client, bit 1 = bytes were lost before these.
#ifndef ORVANE_FUZZ_CAPTURE_FUZZ_DRIVER_HPP
#define ORVANE_FUZZ_CAPTURE_FUZZ_DRIVER_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "capture/http_conversation.hpp"
#include "trace.hpp"

namespace orvane_fuzz {

namespace capture_detail {

inline void PutLe32(std::string *s, uint32_t v)
{
    for (int i = 0; i < 4; ++i) {
        s->push_back(static_cast<char>(v >> (8 * i)));
    }
}

inline void PutBe(std::string *s, uint32_t v, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i) {
        s->push_back(static_cast<char>(v >> (8 * i)));
    }
}

// One segment as an IP packet; checksums are left 0 (no reader checks them).
inline std::string Segment(bool v6, bool fromClient, uint8_t flags, uint32_t seq, uint32_t ack,
                           const uint8_t *payload, size_t size)
{
    const uint16_t clientPort = 40000, serverPort = 80;
    std::string tcp;
    PutBe(&tcp, fromClient ? clientPort : serverPort, 2);
    PutBe(&tcp, fromClient ? serverPort : clientPort, 2);
    PutBe(&tcp, seq, 4);
    PutBe(&tcp, ack, 4);
    PutBe(&tcp, 5u << 12 | flags, 2);
    PutBe(&tcp, 65535, 2);
    PutBe(&tcp, 0, 4);
    tcp.append(reinterpret_cast<const char *>(payload), size);
    std::string ip;
    const uint8_t client[16] = {10, 0, 0, 2}, server[16] = {93, 184, 216, 34};
    const uint8_t *src = fromClient ? client : server;
    const uint8_t *dst = fromClient ? server : client;
    if (v6) {
        PutBe(&ip, 6u << 28, 4);
        PutBe(&ip, static_cast<uint32_t>(tcp.size()), 2);
        PutBe(&ip, 6 << 8 | 64, 2);
        ip.append(reinterpret_cast<const char *>(src), 16);
        ip.append(reinterpret_cast<const char *>(dst), 16);
    } else {
        PutBe(&ip, 0x45u << 24 | static_cast<uint32_t>(20 + tcp.size()), 4);
        PutBe(&ip, 0, 4);
        PutBe(&ip, 64u << 24 | 6u << 16, 4);
        ip.append(reinterpret_cast<const char *>(src), 4);
        ip.append(reinterpret_cast<const char *>(dst), 4);
    }
    return ip + tcp;
}

inline std::string TraceFault(const replay::Trace &t)
{
    for (size_t i = 0; i < t.events.size(); ++i) {
        const replay::TraceEvent &ev = t.events[i];
        if (ev.begin > ev.end) {
            return "event " + std::to_string(i) + " ends before it begins";
        }
        if (i > 0 && t.events[i - 1].begin > ev.begin) {
            return "events out of time order at " + std::to_string(i);
        }
        if (ev.transaction < 0 || static_cast<size_t>(ev.transaction) >= t.transactions.size()) {
            return "event " + std::to_string(i) + " has no transaction";
        }
        const replay::Transaction &tx = t.transactions[static_cast<size_t>(ev.transaction)];
        if ((ev.kind == replay::EventKind::kRequest ? tx.request : tx.response) != static_cast<int>(i)) {
            return "transaction " + std::to_string(ev.transaction) + " does not point back at event " +
                   std::to_string(i);
        }
    }
    for (const replay::Transaction &tx : t.transactions) {
        for (const replay::Phase &p : tx.phases) {
            if (p.end <= p.begin) {
                return "empty phase " + p.name;
            }
        }
    }
    return {};
}

}  // namespace capture_detail

inline std::string RunCaptureTcpProgram(const uint8_t *data, size_t size)
{
    using namespace capture_detail;
    if (size == 0) {
        return {};
    }
    std::string file;
    if ((data[0] & 0x80) != 0) {
        file.assign(reinterpret_cast<const char *>(data + 1), size - 1);
    } else {
        static const uint32_t kLinks[] = {1, 101, 113, 101};
        const uint32_t link = kLinks[data[0] & 3];
        const bool v6 = (data[0] & 0x40) != 0;
        for (uint32_t v : {0xA1B2C3D4u, 2u | 4u << 16, 0u, 0u, 65535u, link}) {
            PutLe32(&file, v);
        }
        uint64_t us = 1000000;
        uint32_t next[2] = {0, 0};  // highest offset sent, for the other side's ack
        for (size_t at = 1; at + 5 <= size;) {
            const uint8_t control = data[at];
            const uint32_t offset = static_cast<uint32_t>(data[at + 1] << 8 | data[at + 2]);
            const size_t length = std::min<size_t>(data[at + 3], size - at - 5);
            us += static_cast<uint64_t>(data[at + 4]) * 1000;
            const uint8_t *payload = data + at + 5;
            at += 5 + length;
            const bool fromClient = (control & 1) != 0;
            static const uint8_t kFlags[] = {0x02, 0x10, 0x08, 0x01, 0x04};  // SYN ACK PSH FIN RST
            uint8_t flags = 0;
            for (int b = 0; b < 5; ++b) {
                flags |= (control >> (b + 1) & 1) != 0 ? kFlags[b] : 0;
            }
            const uint32_t isn = fromClient ? 1000 : 5000;
            const uint32_t seq = (flags & 0x02) != 0 ? isn : isn + 1 + offset;
            const uint32_t ack = (fromClient ? 5001 : 1001) + next[fromClient ? 0 : 1];
            next[fromClient ? 1 : 0] = std::max<uint32_t>(next[fromClient ? 1 : 0], offset + static_cast<uint32_t>(length));
            std::string ip = Segment(v6, fromClient, flags, seq, ack, payload, length);
            std::string frame;
            if (link == 1) {
                frame.assign(12, '\x02');
                PutBe(&frame, v6 ? 0x86DD : 0x0800, 2);
            } else if (link == 113) {
                frame.assign(14, '\0');
                PutBe(&frame, v6 ? 0x86DD : 0x0800, 2);
            }
            frame += ip;
            PutLe32(&file, static_cast<uint32_t>(us / 1000000));
            PutLe32(&file, static_cast<uint32_t>(us % 1000000));
            PutLe32(&file, static_cast<uint32_t>(frame.size()));
            PutLe32(&file, static_cast<uint32_t>(frame.size()));
            file += frame;
        }
    }
    const replay::Trace t = replay::ReadCapture("fuzz", file, {});
    return TraceFault(t);
}

inline std::string RunCaptureHttpProgram(const uint8_t *data, size_t size)
{
    using namespace replay::capture;
    if (size == 0) {
        return {};
    }
    auto conn = std::make_shared<Connection>();
    conn->id = 1;
    conn->partial = (data[0] & 1) != 0;
    HttpConversation http(conn);
    uint64_t ns = 1000000000;
    size_t packet = 0;
    for (size_t at = 1; at + 3 <= size;) {
        const uint8_t control = data[at];
        const size_t length = std::min<size_t>(static_cast<size_t>(data[at + 1] | data[at + 2] << 8), size - at - 3);
        const bool fromClient = (control & 1) != 0;
        if ((control & 2) != 0) {
            http.Gap(fromClient, ns);
        }
        ns += 1000000;
        http.Data(fromClient, data + at + 3, length, ns, ++packet);
        at += 3 + length;
    }
    if ((data[0] & 2) != 0) {
        conn->closed = ns;
    }
    http.Close(ns);
    for (const auto *list : {&http.Requests(), &http.Responses()}) {
        for (const HttpMessage &m : *list) {
            if (m.begin > m.end) {
                return "a message ends before it begins";
            }
            if (m.complete && !m.headersDone) {
                return "a message complete without its header";
            }
            if (m.complete && m.cut) {
                return "a message both complete and cut";
            }
        }
    }
    return {};
}

}  // namespace orvane_fuzz

#endif
