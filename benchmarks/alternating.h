// Side-by-side timing in one process, or counting (see aarch64/counted.h).
//
// Contenders run in alternating rounds, so that a change of clock or load hits all of them; each keeps the minimum over
// its rounds, the figure least disturbed by whatever else the machine does. Inputs are refreshed outside the clock.
#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#ifdef KORLA_BENCH_COUNTED
#include "aarch64/counted.h"
#endif

namespace korla_bench {

#ifdef KORLA_BENCH_COUNTED
constexpr bool counted = true; // deterministic: one size stands for all that take longer only
#else
constexpr bool counted = false;
#endif

// The sizes of a table; where the count of one tells all, only that.
template <size_t n> std::vector<int> sizes(const int (&all)[n], int when_counted) {
    return counted ? std::vector<int>{when_counted} : std::vector<int>(all, all + n);
}

// What figures are in: ns, or what the count says that it gives (instructions, cycles of a model).
inline const char* unit() {
    const char* name = counted ? std::getenv("KORLA_UNIT") : nullptr;
    return name ? name : "ns";
}

// Keeps the compiler from dropping or hoisting work on the memory behind p.
inline void keep(const void* p) { asm volatile("" : : "g"(p) : "memory"); }

struct Contender {
    std::string name;
    std::function<void(int repeats)> run;  // the work, `repeats` times in a loop
    std::function<void()> refresh = [] {}; // restores inputs that the work destroys, not timed
    double ns = 0.0;                       // result: best time of one repeat, or its count
};

#ifdef KORLA_BENCH_COUNTED
inline void measure(std::vector<Contender>& contenders, int = 0, double = 0) {
    for (auto& c : contenders)
        c.ns = cost_of_one(c);
}
#else
inline double now_ns() {
    using namespace std::chrono;
    return static_cast<double>(duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count());
}

// Fills in `ns` of every contender. A batch lasts about batch_us microseconds.
inline void measure(std::vector<Contender>& contenders, int rounds = 41, double batch_us = 50.0) {
    std::vector<int> repeats;
    for (auto& c : contenders) {
        int n = 1;
        for (;; n *= 2) {
            double ns = INFINITY; // of two, so that neither a first call nor an interruption looks like a long run
            for (int attempt = 0; attempt < 2; attempt++) {
                c.refresh();
                const double start = now_ns();
                c.run(n);
                ns = std::fmin(ns, now_ns() - start);
            }
            if (ns > batch_us * 1000.0 / 2 || n > (1 << 24))
                break;
        }
        repeats.push_back(n);
        c.ns = INFINITY;
    }
    for (int round = 0; round < rounds; round++)
        for (size_t i = 0; i < contenders.size(); i++) {
            auto& c = contenders[i];
            c.refresh();
            const double start = now_ns();
            c.run(repeats[i]);
            const double ns = (now_ns() - start) / repeats[i];
            if (ns < c.ns)
                c.ns = ns;
        }
}
#endif

class GeometricMean {
public:
    void add(double ratio) {
        sum_ += std::log(ratio);
        count_++;
    }
    double value() const { return count_ ? std::exp(sum_ / count_) : NAN; }
    int count() const { return count_; }

private:
    double sum_ = 0.0;
    int count_ = 0;
};

} // namespace korla_bench
