// A threshold table fitted to labelled recordings: coordinate search over
// the six rule windows, cross-validated over files, so that the gain is
// measured on recordings the search never saw.
#ifndef ORVANE_REPLAY_TUNE_HPP
#define ORVANE_REPLAY_TUNE_HPP

#include <array>
#include <string>
#include <vector>

#include "daemon_config.hpp"
#include "evaluate.hpp"
#include "mix.hpp"
#include "replayer.hpp"

namespace replay {

using ThresholdTable = std::array<uint32_t, kThresholdRows * kThresholdColumns>;

struct TuneOptions {
    ReplayOptions replay;  // its config is the starting point
    unsigned jobs = 1;
    size_t folds = 5;
    size_t passes = 2;     // over the six rows; stops early when a pass changes nothing
    bool mixed = false;    // score mixes of each file set (at mix.overlap) instead of each file alone
    MixOptions mix;
    size_t seeds = 3;      // mixes per file set
};

// A set's score: the mean of two macro averages, pairwise F1 per file (per
// mix) and F1 per true page, so that no large recording dominates.
struct SetScore {
    double value = 0.0;
    EvalResult eval;
};

struct FoldResult {
    std::vector<std::string> heldOut;
    ThresholdTable table{};
    SetScore before, after;  // on the held-out files: start and tuned table
};

struct TuneResult {
    std::vector<size_t> columns;  // network-type columns the corpus uses, the ones searched
    std::vector<FoldResult> folds;
    EvalResult heldOutBefore, heldOutAfter;  // pooled over the folds
    double heldOutBeforeMean = 0.0, heldOutAfterMean = 0.0;
    ThresholdTable start{}, table{};  // the final table: searched on every file
    SetScore allBefore, allAfter;
    size_t evaluations = 0;
};

SetScore ScoreSet(const std::vector<const Trace *> &set, const DaemonConfig &config, const TuneOptions &options);
TuneResult Tune(const std::vector<const Trace *> &recordings, const TuneOptions &options);

// The values tried for each row, in ms.
extern const std::vector<uint32_t> kTuneCandidatesMs;

}  // namespace replay

#endif
