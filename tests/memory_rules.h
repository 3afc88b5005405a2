// A scenario for every exported function, in memory of exactly the size that its description asks for.
#pragma once

#include "guarded_call.h"

namespace korla_test {

struct MemoryRules {
    std::vector<std::string> names; // of the functions that it calls
    std::function<void(Call&)> run;
};
const std::vector<MemoryRules>& memory_rules();

} // namespace korla_test
