// Console output of Google Benchmark followed by a summary: every benchmark
// that counts items, as ns per item and as a multiple of the floor measured
// in the same run (the first benchmark whose name contains "floor").
#ifndef ORVANE_BENCH_FLOOR_REPORTER_HPP
#define ORVANE_BENCH_FLOOR_REPORTER_HPP

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace bench {

class FloorReporter : public benchmark::ConsoleReporter {
public:
    // Colour only on a terminal, so logs and CI output stay plain text.
    FloorReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            // With repetitions, the median aggregate stands for its runs.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.error_occurred || (run.run_type != Run::RT_Iteration && !median)) {
                continue;
            }
            auto it = run.counters.find("items_per_second");
            if (it == run.counters.end() || it->second.value <= 0) {
                continue;
            }
            const std::string name = run.run_name.str();
            if (samples_.count(name) == 0) {
                order_.push_back(name);
            }
            if (median) {
                samples_[name] = {1e9 / it->second.value};
                medians_.insert(name);
            } else if (medians_.count(name) == 0) {
                samples_[name].push_back(1e9 / it->second.value);
            }
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        if (order_.empty()) {
            return;
        }
        std::ostream &out = GetOutputStream();
        char line[256];
        std::snprintf(line, sizeof(line), "\n%-48s %10s %8s  %s\n", "per item (event, node, transaction)", "ns",
                      "x floor", "floor");
        out << line;
        for (const std::string &name : order_) {
            const double ns = Median(samples_[name]);
            const std::string floor = FloorFor(name);
            if (!floor.empty()) {
                std::snprintf(line, sizeof(line), "%-48s %10.1f %8.2f  %s\n", name.c_str(), ns,
                              ns / Median(samples_[floor]), floor.c_str());
            } else {
                std::snprintf(line, sizeof(line), "%-48s %10.1f %8s\n", name.c_str(), ns, "-");
            }
            out << line;
        }
        out.flush();
    }

private:
    // "typical/sample/..." is compared with "floor/sample"; anything without
    // a floor of its own stream with the first floor of the run.
    std::string FloorFor(const std::string &name) const
    {
        const size_t a = name.find('/');
        if (a != std::string::npos) {
            const size_t b = name.find('/', a + 1);
            const std::string own = "floor/" + name.substr(a + 1, b == std::string::npos ? b : b - a - 1);
            if (samples_.count(own) != 0) {
                return own;
            }
        }
        for (const std::string &candidate : order_) {
            if (candidate.find("floor") != std::string::npos) {
                return candidate;
            }
        }
        return {};
    }

    static double Median(std::vector<double> v)
    {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    }

    std::vector<std::string> order_;
    std::map<std::string, std::vector<double>> samples_;
    std::set<std::string> medians_;
};

}  // namespace bench

#endif
