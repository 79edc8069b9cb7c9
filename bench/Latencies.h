#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <vector>

namespace tessel {

// Each round trip's time, reported as percentiles beside the mean.
class Latencies {
public:
    template <typename Body> void time(Body body)
    {
        auto start = std::chrono::steady_clock::now();
        body();
        _samples.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    void add(double microseconds) { _samples.push_back(microseconds); }
    void report(benchmark::State& state)
    {
        if (_samples.empty())
            return;
        std::sort(_samples.begin(), _samples.end());
        auto at = [&](double q) {
            return _samples[static_cast<size_t>(q * static_cast<double>(_samples.size() - 1))];
        };
        state.counters["p50_us"] = at(0.5);
        state.counters["p99_us"] = at(0.99);
    }

private:
    std::vector<double> _samples;
};

} // namespace tessel
