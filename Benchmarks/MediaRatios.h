// Runs Google Benchmark cases and sets pairs of them against each other.
#ifndef BENCHMARKS_MEDIA_RATIOS_H
#define BENCHMARKS_MEDIA_RATIOS_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace media_benchmark {

// Prints as usual and remembers the median processor time of every case, in milliseconds: the cases
// run on one thread and wait for nothing, and a busy machine does not disturb that time.
class Times : public benchmark::ConsoleReporter {
public:
    Times() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                m_times[run.run_name.function_name].push_back(run.cpu_accumulated_time * 1000.0 /
                                                              static_cast<double>(run.iterations));
    }
    double Median(const std::string& name) const {
        const auto found = m_times.find(name);
        if (found == m_times.end()) return 0.0;
        std::vector<double> times = found->second;
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }

private:
    std::map<std::string, std::vector<double>> m_times;
};

inline void PrintRatio(const Times& times, const char* what, const std::string& ours,
                       const std::string& other, double aim) {
    const double a = times.Median(ours), b = times.Median(other);
    if (a <= 0.0 || b <= 0.0) return;
    std::printf("%-66s %10.4f ms %10.4f ms  %6.2f  aim %.2f  %s\n", what, a, b, a / b, aim,
                a / b <= aim ? "met" : "NOT MET");
}

}  // namespace media_benchmark

#endif
