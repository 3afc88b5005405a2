// The clock of the benchmarks built for aarch64 (KORLA_BENCH_COUNTED): no time, but what runs between two marks, as
// benchmarks/aarch64/count.py has the emulator record it.
//
// A figure is read from the file that the environment names in KORLA_FIGURES, one double a region, in order; without it,
// it is the number of instructions, from the file that KORLA_COUNTS names, which the emulator's plug-in writes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace korla_bench {

// The k-th number of a file that another program may be writing to.
template <class T> T number_of(const char* variable, long k) {
    const char* name = std::getenv(variable);
    std::FILE* file = name ? std::fopen(name, "rb") : nullptr;
    T value;
    if (!file || std::fseek(file, k * static_cast<long>(sizeof value), SEEK_SET) != 0 ||
        std::fread(&value, sizeof value, 1, file) != 1) {
        std::fprintf(stderr, "no figure %ld in the file of %s: benchmarks/aarch64/count.py runs this\n", k, variable);
        std::exit(1);
    }
    std::fclose(file);
    return value;
}

struct Region {
    double figure;
    uint64_t instructions;
};

// The name goes to the file of KORLA_REGIONS, if there is one, on the line of the region's number.
template <class Work> Region region(const char* name, Work&& work) {
    static long regions = 0;
    if (const char* list = std::getenv("KORLA_REGIONS"))
        if (std::FILE* file = std::fopen(list, regions == 0 ? "w" : "a"))
            std::fprintf(file, "%s\n", name), std::fclose(file);
    asm volatile("hint #96" : : : "memory");
    work();
    asm volatile("hint #97" : : : "memory");
    const auto instructions = number_of<uint64_t>("KORLA_COUNTS", regions);
    const double figure =
        std::getenv("KORLA_FIGURES") ? number_of<double>("KORLA_FIGURES", regions) : static_cast<double>(instructions);
    regions++;
    return {figure, instructions};
}

// What one call costs among others: of a short one the difference between nine and one, so that neither the loop's
// beginning nor a cold pipeline counts.
template <class Contender> double cost_of_one(Contender& c) {
    const auto runs = [&c](int repeats) {
        c.refresh();
        return region(c.name.c_str(), [&] { c.run(repeats); });
    };
    c.refresh();
    c.run(1); // binds its functions and fills its tables
    const Region one = runs(1);
    if (one.instructions > 2000)
        return one.figure;
    return (runs(9).figure - one.figure) / 8;
}

} // namespace korla_bench
