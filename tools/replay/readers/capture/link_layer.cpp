#include "link_layer.hpp"

#include <pcap/dlt.h>

namespace replay::capture {

namespace {

constexpr uint16_t kEtherIpv4 = 0x0800;
constexpr uint16_t kEtherIpv6 = 0x86DD;
constexpr uint16_t kEtherVlan = 0x8100;
constexpr uint16_t kEtherQinQ = 0x88A8;
constexpr uint16_t kEtherQinQOld = 0x9100;
// Stacked tags beyond this are not a real network's.
constexpr int kMaxVlanTags = 4;

// libpcap maps the file's LINKTYPE_ numbers to these DLT_ values; some are
// not defined by every libpcap.
constexpr int kDltRawIpv4 = 228;
constexpr int kDltRawIpv6 = 229;
constexpr int kDltLinuxSll2 = 276;

uint16_t Be16(const uint8_t *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

bool Slice(const uint8_t *data, size_t size, IpSlice *ip)
{
    if (size == 0) {
        return false;
    }
    const unsigned version = data[0] >> 4;
    if (version != 4 && version != 6) {
        return false;
    }
    *ip = {data, size, version == 6};
    return true;
}

// An Ethernet type field (possibly after VLAN tags) at type, payload after it.
bool ByEtherType(const uint8_t *type, const uint8_t *end, IpSlice *ip)
{
    for (int tags = 0; type + 2 <= end; ++tags) {
        const uint16_t proto = Be16(type);
        if ((proto == kEtherVlan || proto == kEtherQinQ || proto == kEtherQinQOld) && tags < kMaxVlanTags) {
            type += 4;  // tag control, then the next type
            continue;
        }
        if (proto != kEtherIpv4 && proto != kEtherIpv6) {
            return false;
        }
        return Slice(type + 2, static_cast<size_t>(end - (type + 2)), ip);
    }
    return false;
}

}  // namespace

bool KnownLinkType(int linkType)
{
    switch (linkType) {
    case DLT_EN10MB:
    case DLT_LINUX_SLL:
    case kDltLinuxSll2:
    case DLT_RAW:
    case kDltRawIpv4:
    case kDltRawIpv6:
    case DLT_NULL:
    case DLT_LOOP:
#if DLT_RAW != 14
    case 14:  // DLT_RAW on OpenBSD, read by libpcap as is
#endif
        return true;
    default:
        return false;
    }
}

bool FindIp(int linkType, const uint8_t *frame, size_t size, IpSlice *ip)
{
    const uint8_t *end = frame + size;
    switch (linkType) {
    case DLT_EN10MB:
        return size >= 14 && ByEtherType(frame + 12, end, ip);
    case DLT_LINUX_SLL:  // 16 bytes, protocol last
        return size >= 16 && ByEtherType(frame + 14, end, ip);
    case kDltLinuxSll2:  // 20 bytes, protocol first
        return size >= 20 && (Be16(frame) == kEtherIpv4 || Be16(frame) == kEtherIpv6) &&
               Slice(frame + 20, size - 20, ip);
    case DLT_NULL:  // 4-byte address family; the IP version says the rest
    case DLT_LOOP:
        return size >= 4 && Slice(frame + 4, size - 4, ip);
    default:
        return KnownLinkType(linkType) && Slice(frame, size, ip);  // raw IP
    }
}

}  // namespace replay::capture
