// The network layer of one captured frame, whatever link header the capture
// put before it.
#ifndef ORVANE_REPLAY_CAPTURE_LINK_LAYER_HPP
#define ORVANE_REPLAY_CAPTURE_LINK_LAYER_HPP

#include <cstddef>
#include <cstdint>

namespace replay::capture {

struct IpSlice {
    const uint8_t *data = nullptr;
    size_t size = 0;
    bool v6 = false;
};

// linkType: the capture's DLT_ value. False for link types not read here
// and for frames that carry no IPv4 or IPv6 (ARP, LLDP and the like).
bool FindIp(int linkType, const uint8_t *frame, size_t size, IpSlice *ip);

// Whether FindIp reads this link type at all.
bool KnownLinkType(int linkType);

}  // namespace replay::capture

#endif
