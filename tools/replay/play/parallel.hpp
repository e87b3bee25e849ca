// Work spread over the library's thread contexts, results kept in order.
#ifndef ORVANE_REPLAY_PARALLEL_HPP
#define ORVANE_REPLAY_PARALLEL_HPP

#include <cstddef>
#include <cstdint>
#include <functional>

namespace replay {

// Runs work(i, thread) for i in 0..count-1 on min(jobs, count) system
// threads, the k-th of them on library context k; done(i), when given, runs
// in index order, one at a time, as soon as item i and all before it are
// finished. The first exception thrown by work is rethrown once all threads
// have stopped.
void ParallelFor(size_t count, unsigned jobs, const std::function<void(size_t, uint32_t)> &work,
                 const std::function<void(size_t)> &done = nullptr);

}  // namespace replay

#endif
