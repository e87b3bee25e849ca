#include "mix_curve.hpp"

#include "parallel.hpp"

namespace replay {

std::vector<CurvePoint> MixCurve(const std::vector<const Trace *> &recordings, const std::vector<double> &overlaps,
                                 size_t seeds, const MixOptions &options, const ReplayOptions &replay, unsigned jobs)
{
    std::vector<CurvePoint> points(overlaps.size() + 1);
    points[0].overlap = -1.0;
    std::vector<EvalResult> apart(recordings.size());
    ParallelFor(recordings.size(), jobs, [&](size_t i, uint32_t thread) {
        ReplayOptions own = replay;
        own.thread = thread;
        apart[i] = Evaluate(*recordings[i], Replay(*recordings[i], own));
    });
    for (const EvalResult &e : apart) {
        points[0].eval.Add(e);
    }
    points[0].mixes = recordings.size();

    struct Task {
        size_t point = 0;
        MixOptions mix;
        double overlapping = 0.0;
        EvalResult eval;
    };
    std::vector<Task> tasks;
    for (size_t o = 0; o < overlaps.size(); ++o) {
        for (size_t s = 0; s < seeds; ++s) {
            Task task;
            task.point = o + 1;
            task.mix = options;
            task.mix.overlap = overlaps[o];
            task.mix.seed = options.seed + s;
            tasks.push_back(task);
        }
    }
    ParallelFor(tasks.size(), jobs, [&](size_t i, uint32_t thread) {
        Task &task = tasks[i];
        const Trace mix = Mix(recordings, task.mix);
        ReplayOptions own = replay;
        own.thread = thread;
        task.eval = Evaluate(mix, Replay(mix, own));
        task.overlapping = OverlappingShare(mix);
    });
    for (const Task &task : tasks) {
        CurvePoint &point = points[task.point];
        point.overlap = task.mix.overlap;
        point.overlapping += task.overlapping / static_cast<double>(seeds);
        point.eval.Add(task.eval);
        ++point.mixes;
    }
    return points;
}

}  // namespace replay
