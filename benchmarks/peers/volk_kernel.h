// Which of its implementations VOLK takes for a kernel.
//
// To compare at the instruction set of the library, run a benchmark with
// VOLK_CONFIGPATH=benchmarks/peers/volk_without_avx512 in the environment.
#pragma once

#include <cmath>
using std::isinf; // VOLK's header takes it for a name of C where another <math.h> comes first

#include <volk/volk.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace korla_bench {

// A line of volk_config decides: kernel, aligned, unaligned. Otherwise VOLK ranks by the mask of the instruction sets
// an implementation needs, and takes the aligned one for aligned buffers.
inline std::string volk_choice(const char* kernel, volk_func_desc_t implementations) {
    if (const char* path = std::getenv("VOLK_CONFIGPATH")) {
        std::ifstream config(std::string(path) + "/volk/volk_config");
        for (std::string line; std::getline(config, line);)
            if (line.rfind(std::string(kernel) + " ", 0) == 0)
                return line.substr(0, line.rfind(' '));
    }
    long best[2] = {-1, -1};
    std::string name[2];
    for (size_t i = 0; i < implementations.n_impls; i++) {
        const int aligned = implementations.impl_alignment[i];
        if (implementations.impl_deps[i] > best[aligned]) {
            best[aligned] = implementations.impl_deps[i];
            name[aligned] = implementations.impl_names[i];
        }
    }
    return std::string(kernel) + " " + (name[1].empty() ? name[0] : name[1]);
}
#define KORLA_VOLK(kernel, ...)                                                                                        \
    ::korla_bench::volk_choice(#kernel, kernel##_get_func_desc()),                                                     \
        [](::korla_bench::Buffers& x, uint32_t n) { kernel(__VA_ARGS__); }

} // namespace korla_bench
