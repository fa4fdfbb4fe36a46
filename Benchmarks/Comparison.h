#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>
#include <vector>

namespace meetingcore::benchmarks {

inline double secondsOf(const std::function<void()>& call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

/// Our median seconds and the baseline's, and the median of the ratios of runs that lay side by side.
struct Comparison {
    double ours = 0;
    double baseline = 0;
    double ratio = 0;
};

/// Runs both in turn, so that a machine that slows down slows both. Each returns its seconds.
inline Comparison interleaved(int rounds, const std::function<double()>& ours,
                              const std::function<double()>& baseline) {
    std::vector<double> oursSeconds;
    std::vector<double> baselineSeconds;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        oursSeconds.push_back(ours());
        baselineSeconds.push_back(baseline());
        ratios.push_back(oursSeconds.back() / baselineSeconds.back());
    }
    return {median(std::move(oursSeconds)), median(std::move(baselineSeconds)), median(std::move(ratios))};
}

}  // namespace meetingcore::benchmarks
