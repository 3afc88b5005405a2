// Which of its implementations VOLK takes for a kernel when no volk_config has been written.
#pragma once

#include <volk/volk.h>

#include <string>

namespace korla_bench {

// VOLK ranks by the mask of the instruction sets an implementation needs, and takes the aligned one for aligned buffers.
inline std::string volk_choice(const char* kernel, volk_func_desc_t implementations) {
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
    ::korla_bench::volk_choice(#kernel, kernel##_get_func_desc()), [](::korla_bench::Buffers& x, uint32_t n) { kernel(__VA_ARGS__); }

} // namespace korla_bench
