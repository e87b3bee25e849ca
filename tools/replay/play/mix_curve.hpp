// How the grouping holds up as pages overlap: mixes of the same recordings
// at growing overlap, each replayed and scored.
#ifndef ORVANE_REPLAY_MIX_CURVE_HPP
#define ORVANE_REPLAY_MIX_CURVE_HPP

#include <vector>

#include "evaluate.hpp"
#include "mix.hpp"
#include "replayer.hpp"

namespace replay {

struct CurvePoint {
    double overlap = 0.0;      // as asked (MixOptions::overlap); < 0 for the recordings replayed apart
    double overlapping = 0.0;  // pages whose span met another's, mean over the mixes
    size_t mixes = 0;
    EvalResult eval;           // pairs summed and true pages pooled over the mixes
};

// One mix per overlap and seed (seeds options.seed, +1, ...), replayed on up
// to jobs thread contexts; the first point is the recordings replayed apart.
std::vector<CurvePoint> MixCurve(const std::vector<const Trace *> &recordings, const std::vector<double> &overlaps,
                                 size_t seeds, const MixOptions &options, const ReplayOptions &replay,
                                 unsigned jobs);

}  // namespace replay

#endif
