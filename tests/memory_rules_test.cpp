// The memory rules of every exported function, with arguments out of fixed bytes: what the fuzzer starts from, on every
// compiler and CPU, with and without sanitizers.
#include "memory_rules.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include "export_list.h"
#include "signals.h"

using namespace korla_test;

namespace {

TEST(MemoryRules, CoverEveryExportedFunction) {
    std::set<std::string> named, exported;
    for (const MemoryRules& rules : memory_rules())
        named.insert(rules.names.begin(), rules.names.end());
    for (const auto& file : std::filesystem::directory_iterator(KORLA_EXPORTS_DIR))
        for (const auto& [name, kind] : exported_kinds(file.path().stem()))
            if (kind == 'F')
                exported.insert(name);
    EXPECT_EQ(named, exported);
}

// Says whose access it was when one ends the program.
const char* running = "";
[[maybe_unused]] void name_the_function(int signal) {
    for (const char* text : {"\nmemory access outside the buffers of ", running, "\n"})
        (void)!write(STDERR_FILENO, text, std::char_traits<char>::length(text));
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

TEST(MemoryRules, AreKeptWithManyArguments) {
#if !defined(__SANITIZE_ADDRESS__)
    std::signal(SIGSEGV, name_the_function);
    std::signal(SIGBUS, name_the_function);
#endif
    uint64_t seed = 0;
    for (const MemoryRules& rules : memory_rules()) {
        running = rules.names[0].c_str();
        for (int i = 0; i < (rules.names.size() > 2 ? 1000 : 60); i++) {
            Random random(seed++);
            std::vector<uint8_t> bytes(200);
            for (uint8_t& byte : bytes)
                byte = static_cast<uint8_t>(random.bits() >> 24);
            ASSERT_EQ(broken_memory_rule(rules.run, {bytes.data(), bytes.size()}), "") << running << ", seed " << seed - 1;
        }
    }
    std::signal(SIGSEGV, SIG_DFL);
    std::signal(SIGBUS, SIG_DFL);
}

} // namespace
