#include "parallel.hpp"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "replayer.hpp"

namespace replay {

void ParallelFor(size_t count, unsigned jobs, const std::function<void(size_t, uint32_t)> &work,
                 const std::function<void(size_t)> &done)
{
    const size_t workers = std::min<size_t>(std::max(1u, std::min(jobs, kMaxThreads)), std::max<size_t>(count, 1));
    if (workers == 1) {
        for (size_t i = 0; i < count; ++i) {
            work(i, 0);
            if (done) {
                done(i);
            }
        }
        return;
    }
    std::mutex lock;
    size_t next = 0, reported = 0;
    std::vector<char> finished(count, 0);
    std::exception_ptr failure;
    auto run = [&](uint32_t thread) {
        for (;;) {
            size_t i = 0;
            {
                std::lock_guard<std::mutex> hold(lock);
                if (next >= count || failure) {
                    return;
                }
                i = next++;
            }
            try {
                work(i, thread);
            } catch (...) {
                std::lock_guard<std::mutex> hold(lock);
                if (!failure) {
                    failure = std::current_exception();
                }
                return;
            }
            std::lock_guard<std::mutex> hold(lock);
            finished[i] = 1;
            // Whoever finishes the oldest pending item reports the run of
            // items that are now complete, in order.
            while (reported < count && finished[reported] != 0 && !failure) {
                try {
                    if (done) {
                        done(reported);
                    }
                } catch (...) {
                    failure = std::current_exception();
                }
                ++reported;
            }
        }
    };
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < workers; ++t) {
        threads.emplace_back(run, t);
    }
    for (std::thread &t : threads) {
        t.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

}  // namespace replay
