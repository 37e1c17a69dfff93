#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

namespace mirrowisp::bench {

// Median wall time of `work` over `runs` runs, in milliseconds.
inline double medianMs(int runs, const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace mirrowisp::bench
