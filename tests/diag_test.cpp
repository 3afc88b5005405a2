// Log records, their callback and the abort hook.
#include <korla/diag.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// What the callback gets of one record.
std::string logged(uint32_t level, const char* file, const char* message) {
    std::string text = "nothing";
    kpf_log_set_callback([](void* user, const char* line) { *static_cast<std::string*>(user) = line; }, &text);
    const char* format = message ? "%s" : nullptr;
    kpf_log(level, file, 7, format, message);
    kpf_log_set_callback(nullptr, nullptr);
    return text;
}

TEST(Diagnostics, StandardOutputTakesRecordsOfAnyLength) {
    const std::string message(2000, 'x');
    ::testing::internal::CaptureStdout();
    kpf_log(KPF_LOG_TRACE, "a/b/c.x", 7, "hi %d", 5);
    kpf_log(KPF_LOG_ERROR, "c.x", -1, "%s", message.c_str());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "TRACE (c.x:7): hi 5\nERROR (c.x:-1): " + message + "\n");
}

TEST(Diagnostics, RecordsShowLevelBaseNameAndMessage) {
    const char* files[][2] = {{"a/b/c.x", "c.x"}, {"dir\\name", "name"},
                              {"a\\b/c", "c"},    {"name/", ""},
                              {"/name", "/name"}, {"\\name", "\\name"},
                              {"/", "/"},         {"//", ""},
                              {"x", "x"},         {"", ""},
                              {nullptr, ""}};
    for (const auto& [file, base] : files)
        EXPECT_EQ(logged(KPF_LOG_INFO, file, "m"), std::string("INFO (") + base + ":7): m\n");
    EXPECT_EQ(logged(KPF_LOG_WARN, "f", nullptr), "WARN (f:7): \n");
    using Level = std::pair<uint32_t, std::string>;
    for (uint32_t threshold = 0; threshold <= 4; threshold++) {
        kpf_log_set_level(threshold);
        for (auto& [level, name] : {Level{0, "TRACE"}, {1, "INFO"}, {2, "WARN"}, {3, "ERROR"}, {0xFFFFFFFF, "ERROR"}})
            EXPECT_EQ(logged(level, "f", "m"), level < threshold ? "nothing" : name + " (f:7): m\n");
    }
    kpf_log_set_level(KPF_LOG_TRACE);
}

TEST(Diagnostics, ARecordThatDoesNotFitTheCallbackIsDropped) {
    const std::string prefix = "INFO (f:7): ";
    for (size_t length = 500; length <= 530; length++) { // without newline, in a buffer of 511 characters and the NUL
        const std::string message(length - prefix.size(), 'm');
        EXPECT_EQ(logged(KPF_LOG_INFO, "f", message.c_str()),
                  length > 511 ? "nothing" : prefix + message + (length < 511 ? "\n" : ""));
    }
    EXPECT_EQ(logged(KPF_LOG_INFO, std::string(600, 'f').c_str(), "m"), "nothing");
}

TEST(Diagnostics, AbortCallsTheHandlerOrEndsTheProcess) {
    static int handled = 0;
    kpf_abort_handle([] { handled++; });
    kpf_abort();
    EXPECT_EQ(handled, 1);
    kpf_abort_handle(nullptr);
    EXPECT_EXIT(kpf_abort(), ::testing::KilledBySignal(SIGABRT), "");
}

} // namespace
