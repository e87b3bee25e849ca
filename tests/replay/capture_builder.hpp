// Small captures written in the tests: TCP conversations and DNS look-ups
// as IP packets (libtins builds them), framed for a chosen link type in a
// pcap or pcapng file.
#ifndef ORVANE_TESTS_REPLAY_CAPTURE_BUILDER_HPP
#define ORVANE_TESTS_REPLAY_CAPTURE_BUILDER_HPP

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <tins/dns.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <tins/udp.h>

namespace replay::testing {

constexpr uint64_t kCaptureStartNs = 1700000000ull * 1000000000ull;

// LINKTYPE_ values as a pcap file header names them.
enum LinkType : uint32_t {
    kNull = 0,
    kEthernet = 1,
    kRaw = 101,
    kLoop = 108,
    kSll = 113,
    kSll2 = 276,
    kEthernetVlan = 0x10001,  // Ethernet with an 802.1Q tag: a test-only name
};

using Bytes = std::vector<uint8_t>;

struct CapturedPacket { uint64_t ns; Bytes ip; };

inline void Put16(Bytes *b, uint16_t v)
{
    b->push_back(static_cast<uint8_t>(v >> 8));
    b->push_back(static_cast<uint8_t>(v));
}

inline void PutLe32(std::string *s, uint32_t v)
{
    for (int i = 0; i < 4; ++i) {
        s->push_back(static_cast<char>(v >> (8 * i)));
    }
}

// One IP packet between a and b, IPv6 when the addresses are.
inline Bytes IpPacket(const std::string &src, const std::string &dst, Tins::PDU &&transport)
{
    if (src.find(':') != std::string::npos) {
        Tins::IPv6 ip(dst, src);
        ip /= transport;
        return ip.serialize();
    }
    Tins::IP ip(dst, src);
    ip /= transport;
    return ip.serialize();
}

// A TCP connection's packets; times are ms after kCaptureStartNs.
class TcpScript {
public:
    TcpScript(std::string client, uint16_t clientPort, std::string server, uint16_t serverPort)
        : client_(std::move(client)), server_(std::move(server)), clientPort_(clientPort), serverPort_(serverPort)
    {
    }

    void Handshake(double ms)
    {
        Segment(ms, true, Tins::TCP::SYN, 0, {}, kClientIsn);
        Segment(ms + 1, false, Tins::TCP::SYN | Tins::TCP::ACK, 0, {}, kServerIsn);
        Segment(ms + 2, true, Tins::TCP::ACK, 0, {});
    }
    // The next bytes of one direction.
    void Send(double ms, bool fromClient, const std::string &data)
    {
        uint32_t &next = fromClient ? clientNext_ : serverNext_;
        Segment(ms, fromClient, Tins::TCP::PSH | Tins::TCP::ACK, next, data);
        next += static_cast<uint32_t>(data.size());
    }
    // Bytes at a data offset, for segments out of order, repeated or lost.
    void SendAt(double ms, bool fromClient, uint32_t offset, const std::string &data)
    {
        Segment(ms, fromClient, Tins::TCP::PSH | Tins::TCP::ACK, offset, data);
        uint32_t &next = fromClient ? clientNext_ : serverNext_;
        next = std::max(next, offset + static_cast<uint32_t>(data.size()));
    }
    void Close(double ms)
    {
        Segment(ms, true, Tins::TCP::FIN | Tins::TCP::ACK, clientNext_, {});
        Segment(ms + 1, false, Tins::TCP::FIN | Tins::TCP::ACK, serverNext_, {});
        Segment(ms + 2, true, Tins::TCP::ACK, clientNext_ + 1, {});
    }
    const std::vector<CapturedPacket> &Packets() const { return packets_; }

private:
    static constexpr uint32_t kClientIsn = 1000, kServerIsn = 5000;

    void Segment(double ms, bool fromClient, uint8_t flags, uint32_t offset, const std::string &data,
                 uint32_t seq = 0)
    {
        Tins::TCP tcp(fromClient ? serverPort_ : clientPort_, fromClient ? clientPort_ : serverPort_);
        tcp.flags(flags);
        tcp.seq(seq != 0 ? seq : (fromClient ? kClientIsn : kServerIsn) + 1 + offset);
        tcp.ack_seq(fromClient ? kServerIsn + 1 + serverNext_ : kClientIsn + 1 + clientNext_);
        if (!data.empty()) {
            tcp /= Tins::RawPDU(data);
        }
        packets_.push_back({kCaptureStartNs + static_cast<uint64_t>(ms * 1e6),
                            IpPacket(fromClient ? client_ : server_, fromClient ? server_ : client_, std::move(tcp))});
    }

    std::string client_, server_;
    uint16_t clientPort_, serverPort_;
    uint32_t clientNext_ = 0, serverNext_ = 0;
    std::vector<CapturedPacket> packets_;
};

inline CapturedPacket DnsPacket(double ms, bool answer, uint16_t id, const std::string &name)
{
    Tins::DNS dns;
    dns.id(id);
    dns.type(answer ? Tins::DNS::RESPONSE : Tins::DNS::QUERY);
    dns.add_query({name, Tins::DNS::A, Tins::DNS::INTERNET});
    if (answer) {
        dns.add_answer({name, "93.184.216.34", Tins::DNS::A, Tins::DNS::INTERNET, 60});
    }
    Tins::UDP udp(answer ? 33000 : 53, answer ? 53 : 33000);
    udp /= dns;
    return {kCaptureStartNs + static_cast<uint64_t>(ms * 1e6),
            IpPacket(answer ? "10.0.0.1" : "10.0.0.2", answer ? "10.0.0.2" : "10.0.0.1", std::move(udp))};
}

// The link header a capture of this type puts before the IP packet.
inline Bytes Frame(uint32_t link, const Bytes &ip)
{
    const bool v6 = !ip.empty() && ip[0] >> 4 == 6;
    const uint16_t etherType = v6 ? 0x86DD : 0x0800;
    Bytes f;
    switch (link) {
    case kEthernet:
    case kEthernetVlan:
        f.assign(12, 0x02);
        if (link == kEthernetVlan) {
            Put16(&f, 0x8100);
            Put16(&f, 42);
        }
        Put16(&f, etherType);
        break;
    case kSll:
        f = {0, 0, 0, 1, 0, 6, 2, 2, 2, 2, 2, 2, 0, 0};
        Put16(&f, etherType);
        break;
    case kSll2:
        Put16(&f, etherType);
        f.insert(f.end(), {0, 0, 0, 0, 0, 3, 0, 1, 0, 6, 2, 2, 2, 2, 2, 2, 0, 0});
        break;
    case kNull:  // host order family: little-endian here
        f = {static_cast<uint8_t>(v6 ? 10 : 2), 0, 0, 0};
        break;
    case kLoop:
        f = {0, 0, 0, static_cast<uint8_t>(v6 ? 10 : 2)};
        break;
    default:
        break;
    }
    f.insert(f.end(), ip.begin(), ip.end());
    return f;
}

inline std::string PcapFile(uint32_t link, const std::vector<CapturedPacket> &packets)
{
    std::string s;
    for (uint32_t v : {0xA1B2C3D4u, 2 | 4u << 16, 0u, 0u, 65535u, link == kEthernetVlan ? kEthernet : link}) {
        PutLe32(&s, v);
    }
    for (const CapturedPacket &p : packets) {
        const Bytes f = Frame(link, p.ip);
        const uint32_t size = static_cast<uint32_t>(f.size()), sec = static_cast<uint32_t>(p.ns / 1000000000ull);
        for (uint32_t v : {sec, static_cast<uint32_t>(p.ns % 1000000000ull / 1000), size, size}) {
            PutLe32(&s, v);
        }
        s.append(f.begin(), f.end());
    }
    return s;
}

// pcapng: section header, one Ethernet interface, enhanced packet blocks
// with microsecond times.
inline std::string PcapngFile(const std::vector<CapturedPacket> &packets)
{
    std::string s;
    for (uint32_t v : {0x0A0D0D0Au, 28u, 0x1A2B3C4Du, 1u, 0xFFFFFFFFu, 0xFFFFFFFFu, 28u,  // section header
                       1u, 20u, static_cast<uint32_t>(kEthernet), 65535u, 20u}) {              // interface
        PutLe32(&s, v);
    }
    for (const CapturedPacket &p : packets) {
        Bytes f = Frame(kEthernet, p.ip);
        const uint32_t captured = static_cast<uint32_t>(f.size());
        f.resize((f.size() + 3) / 4 * 4, 0);
        const uint32_t length = 32 + static_cast<uint32_t>(f.size());
        const uint64_t us = p.ns / 1000;
        for (uint32_t v : {6u, length, 0u, static_cast<uint32_t>(us >> 32), static_cast<uint32_t>(us), captured,
                           captured}) {
            PutLe32(&s, v);
        }
        s.append(f.begin(), f.end());
        PutLe32(&s, length);
    }
    return s;
}

}  // namespace replay::testing

#endif
