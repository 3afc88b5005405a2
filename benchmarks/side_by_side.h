// A table of operations, each timed beside its peers at several lengths.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "alternating.h"

namespace korla_bench {

// Buffers on 64 bytes, offset against each other so that they do not share cache sets.
struct Buffers {
    static constexpr size_t room = 4096 * 2 * 8; // floats: the longest stack of complex vectors
    std::vector<float> memory[4];
    float *d, *e, *a, *b;
    Buffers() {
        float** all[] = {&d, &e, &a, &b};
        uint32_t state = 1;
        for (size_t k = 0; k < 4; k++) {
            memory[k].resize(room + 1024);
            auto p = (reinterpret_cast<uintptr_t>(memory[k].data()) + 4095) / 4096 * 4096 + k * 1088;
            *all[k] = reinterpret_cast<float*>(p / 64 * 64);
            for (size_t i = 0; i < room - 512; i++) {
                state = state * 1664525u + 1013904223u;
                (*all[k])[i] = 0.5f + static_cast<float>(state >> 8) * 0x1p-25f; // 0.5 .. 1: no denormals, no zeros
            }
        }
    }
};

using Call = void (*)(Buffers&, uint32_t n);

struct Row {
    std::string family, name;
    Call flex, strict, plain;
    std::string volk_kernel = {};
    Call volk = nullptr;
};

// The best of VOLK and the plain loop over our time, at 64 .. 4096 elements; the flex entry counts.
inline int print_side_by_side(const std::vector<Row>& rows) {
    Buffers buffers;
    std::map<std::string, GeometricMean> flex_means, strict_means;
    std::map<std::string, double> lowest;
    auto contender = [&](const std::string& name, Call call, uint32_t n) {
        return Contender{name, [call, n, &buffers](int repeats) {
                             for (int r = 0; r < repeats; r++) {
                                 call(buffers, n);
                                 keep(buffers.d);
                             }
                         }};
    };
    std::printf("in %s\n%-28s %5s | %9s %9s | %9s %9s %9s | %6s %6s  %s\n", unit(), "operation", "n", "flex", "strict",
                "plain", "VOLK", "floor", "flex x", "strict", "VOLK kernel");
    for (const auto& row : rows)
        for (uint32_t n = counted ? 1024 : 64; n <= (counted ? 1024 : 4096); n *= 2) {
            std::vector<Contender> all = {contender(row.name + " flex", row.flex, n),
                                          contender(row.name + " strict", row.strict, n),
                                          contender(row.name + " plain", row.plain, n),
                                          contender("floor", [](Buffers& x, uint32_t m) { std::memcpy(x.d, x.a, m * 4ul); }, n)};
            if (row.volk)
                all.push_back(contender(row.volk_kernel, row.volk, n));
            measure(all, 31, 20.0);
            const double volk = row.volk ? all[4].ns : INFINITY, best = std::min(all[2].ns, volk);
            const double flex = best / all[0].ns, strict = best / all[1].ns;
            std::printf("%-28s %5u | %9.1f %9.1f | %9.1f %9.1f %9.1f | %6.2f %6.2f  %s\n", row.name.c_str(), n,
                        all[0].ns, all[1].ns, all[2].ns, volk, all[3].ns, flex, strict, row.volk_kernel.c_str());
            flex_means[row.family].add(flex);
            strict_means[row.family].add(strict);
            auto [low, first] = lowest.try_emplace(row.family, flex);
            low->second = std::min(low->second, flex);
        }
    std::printf("\n");
    for (auto& [family, mean] : flex_means)
        std::printf("%-20s geometric mean %.2f (strict %.2f), lowest row %.2f, %d rows\n", family.c_str(), mean.value(),
                    strict_means[family].value(), lowest[family], mean.count());
    return 0;
}

} // namespace korla_bench
