// A phone's browsing made from several recordings: their pages shifted onto
// one clock, overlapping as tabs and quick navigations do, with other
// recordings' transactions as background traffic. Every page keeps its label,
// every flow stays its own.
#ifndef ORVANE_REPLAY_MIX_HPP
#define ORVANE_REPLAY_MIX_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "trace.hpp"

namespace replay {

struct MixOptions {
    // Share of pages opened 0.5 to 5 s after the previous page's start (a
    // new tab or a navigation while it loads); the others open 0.5 to 5 s
    // after every earlier page has finished.
    double overlap = 0.0;
    uint64_t seed = 1;
    // Transactions of no page at random times, from recordings none of whose
    // pages is loading then.
    double backgroundPerMinute = 6.0;
};

// The labelled pages of the recordings, in an order and at times drawn from
// the seed alone: the same inputs and options give the same trace. Labels
// become "file#page" (file without its directory); unlabelled transactions
// are left out.
Trace Mix(const std::vector<const Trace *> &recordings, const MixOptions &options);

// Share of the mix's pages whose span (first to last message) meets
// another page's span.
double OverlappingShare(const Trace &mix);

}  // namespace replay

#endif
