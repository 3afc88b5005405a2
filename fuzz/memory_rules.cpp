// Every exported function between pages that nobody may touch: its scenario, with arguments out of the fuzzer's bytes.
#include "memory_rules.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    korla_test::Bytes bytes(data, size);
    const auto& all = korla_test::memory_rules();
    const auto& rules = all[bytes.u16() % all.size()];
    const std::string broken = korla_test::broken_memory_rule(rules.run, {bytes.rest(), bytes.rest_size()});
    if (!broken.empty()) {
        std::fprintf(stderr, "%s: %s\n", rules.names[0].c_str(), broken.c_str());
        std::abort();
    }
    return 0;
}
