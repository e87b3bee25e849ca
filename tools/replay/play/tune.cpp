#include "tune.hpp"

#include <set>

#include "parallel.hpp"

namespace replay {

const std::vector<uint32_t> kTuneCandidatesMs = {250, 500, 1000, 1500, 2000, 2500, 3000, 4000, 6000, 10000, 15000, 30000};

namespace {

DaemonConfig WithTable(const DaemonConfig &base, const ThresholdTable &table)
{
    DaemonConfig config = base;
    config.thresholdsMs = table;
    return config;
}

std::vector<size_t> ColumnsOf(const std::vector<const Trace *> &recordings)
{
    std::set<size_t> columns;
    for (const Trace *trace : recordings) {
        for (const TraceEvent &ev : trace->events) {
            columns.insert(ev.network >= 1 && ev.network <= 3 ? ev.network : 0);
        }
    }
    return {columns.begin(), columns.end()};
}

// Coordinate search from start: each row in turn takes the candidate that
// scores best on the set (the current value wins ties).
ThresholdTable Search(const std::vector<const Trace *> &set, const ThresholdTable &start,
                      const std::vector<size_t> &columns, const TuneOptions &options, size_t *evaluations)
{
    ThresholdTable table = start;
    double best = ScoreSet(set, WithTable(options.replay.config, table), options).value;
    ++*evaluations;
    for (size_t pass = 0; pass < options.passes; ++pass) {
        bool changed = false;
        for (size_t row = 0; row < kThresholdRows; ++row) {
            for (uint32_t value : kTuneCandidatesMs) {
                ThresholdTable trial = table;
                for (size_t column : columns) {
                    trial[row * kThresholdColumns + column] = value;
                }
                if (trial == table) {
                    continue;
                }
                const double score = ScoreSet(set, WithTable(options.replay.config, trial), options).value;
                ++*evaluations;
                if (score > best + 1e-12) {
                    best = score;
                    table = trial;
                    changed = true;
                }
            }
        }
        if (!changed) {
            break;
        }
    }
    return table;
}

}  // namespace

SetScore ScoreSet(const std::vector<const Trace *> &set, const DaemonConfig &config, const TuneOptions &options)
{
    ReplayOptions replay = options.replay;
    replay.config = config;
    const size_t items = options.mixed ? options.seeds : set.size();
    std::vector<EvalResult> results(items);
    ParallelFor(items, options.jobs, [&](size_t i, uint32_t thread) {
        ReplayOptions own = replay;
        own.thread = thread;
        if (options.mixed) {
            MixOptions mix = options.mix;
            mix.seed = options.mix.seed + i;
            const Trace trace = Mix(set, mix);
            results[i] = Evaluate(trace, Replay(trace, own));
        } else {
            results[i] = Evaluate(*set[i], Replay(*set[i], own));
        }
    });
    SetScore score;
    for (const EvalResult &e : results) {
        score.eval.Add(e);
    }
    score.value = (score.eval.FileF1Mean() + score.eval.PageF1Mean()) / 2.0;
    return score;
}

TuneResult Tune(const std::vector<const Trace *> &recordings, const TuneOptions &options)
{
    TuneResult r;
    EnsureLibraryDefaults();
    r.columns = ColumnsOf(recordings);
    r.start = options.replay.config.thresholdsMs ? *options.replay.config.thresholdsMs : DefaultThresholds();
    const size_t folds = std::min(options.folds, recordings.size());
    double beforeSum = 0.0, afterSum = 0.0;
    for (size_t f = 0; f < folds && folds > 1; ++f) {
        std::vector<const Trace *> train, test;
        FoldResult fold;
        for (size_t i = 0; i < recordings.size(); ++i) {
            if (i % folds == f) {
                test.push_back(recordings[i]);
                fold.heldOut.push_back(recordings[i]->file);
            } else {
                train.push_back(recordings[i]);
            }
        }
        fold.table = Search(train, r.start, r.columns, options, &r.evaluations);
        fold.before = ScoreSet(test, WithTable(options.replay.config, r.start), options);
        fold.after = ScoreSet(test, WithTable(options.replay.config, fold.table), options);
        r.heldOutBefore.Add(fold.before.eval);
        r.heldOutAfter.Add(fold.after.eval);
        beforeSum += fold.before.value;
        afterSum += fold.after.value;
        r.folds.push_back(std::move(fold));
    }
    if (!r.folds.empty()) {
        r.heldOutBeforeMean = beforeSum / static_cast<double>(r.folds.size());
        r.heldOutAfterMean = afterSum / static_cast<double>(r.folds.size());
    }
    r.table = Search(recordings, r.start, r.columns, options, &r.evaluations);
    r.allBefore = ScoreSet(recordings, WithTable(options.replay.config, r.start), options);
    r.allAfter = ScoreSet(recordings, WithTable(options.replay.config, r.table), options);
    return r;
}

}  // namespace replay
