#include <korla/diag.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> lines;
void collect(void* user, const char* line) {
    EXPECT_EQ(user, &lines);
    lines.emplace_back(line);
}

class Diagnostics : public ::testing::Test {
protected:
    void SetUp() override { lines.clear(); }
    void TearDown() override {
        kpf_log_set_callback(nullptr, nullptr);
        kpf_log_set_level(KPF_LOG_TRACE);
        kpf_abort_handle(nullptr);
    }
    static std::string logged(uint32_t level, const char* file, const char* message) {
        lines.clear();
        kpf_log_set_callback(collect, &lines);
        kpf_log(level, file, 7, "%s", message);
        return lines.empty() ? "nothing" : lines.back();
    }
};

TEST_F(Diagnostics, StandardOutputTakesRecordsOfAnyLength) {
    const std::string message(2000, 'x');
    ::testing::internal::CaptureStdout();
    kpf_log(KPF_LOG_TRACE, "a/b/c.x", 7, "hi %d", 5);
    kpf_log(KPF_LOG_ERROR, "c.x", -1, "%s", message.c_str());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "TRACE (c.x:7): hi 5\nERROR (c.x:-1): " + message + "\n");
}

TEST_F(Diagnostics, LevelsAreNamedAndThoseBelowTheThresholdDropped) {
    const char* names[] = {"TRACE", "INFO", "WARN", "ERROR", "ERROR", "ERROR"};
    const uint32_t levels[] = {0, 1, 2, 3, 4, 0xFFFFFFFF};
    for (uint32_t threshold = 0; threshold <= 4; threshold++) {
        kpf_log_set_level(threshold);
        for (int i = 0; i < 6; i++)
            EXPECT_EQ(logged(levels[i], "f", "m"),
                      levels[i] < threshold ? "nothing" : std::string(names[i]) + " (f:7): m\n");
    }
}

TEST_F(Diagnostics, OnlyTheBaseNameOfTheFileIsShown) {
    const char* cases[][2] = {
        {"a/b/c.x", "c.x"},   {"dir\\name", "name"}, {"a\\b/c", "c"}, {"name/", ""}, {"/name", "/name"},
        {"\\name", "\\name"}, {"/a/b", "b"},         {"", ""},        {"/", "/"},    {"x", "x"},
        {"//", ""},           {nullptr, ""}};
    for (const auto& [file, base] : cases)
        EXPECT_EQ(logged(KPF_LOG_INFO, file, "m"), std::string("INFO (") + base + ":7): m\n");
}

TEST_F(Diagnostics, ARecordThatDoesNotFitTheCallbackIsDropped) {
    const size_t prefix = std::string("INFO (f:7): ").size();
    for (size_t size = 500 - prefix; size <= 530 - prefix; size++) {
        const std::string message(size, 'm');
        const size_t length = prefix + size; // of the record without newline, in a buffer of 511 characters and the NUL
        EXPECT_EQ(logged(KPF_LOG_INFO, "f", message.c_str()),
                  length > 511 ? "nothing" : "INFO (f:7): " + message + (length < 511 ? "\n" : ""));
    }
    EXPECT_EQ(logged(KPF_LOG_INFO, std::string(600, 'f').c_str(), "m"), "nothing");
    kpf_log(KPF_LOG_INFO, "f", 7, "%600d", 1);
    EXPECT_TRUE(lines.empty());
}

TEST_F(Diagnostics, AMissingFormatIsAnEmptyMessage) {
    kpf_log_set_callback(collect, &lines);
    const char* missing = nullptr;
    kpf_log(KPF_LOG_WARN, "f", 7, missing);
    EXPECT_EQ(lines, std::vector<std::string>{"WARN (f:7): \n"});
}

int handled = 0;
TEST_F(Diagnostics, AbortCallsTheHandlerOrEndsTheProcess) {
    kpf_abort_handle([] { handled++; });
    kpf_abort();
    kpf_abort();
    EXPECT_EQ(handled, 2);
    kpf_abort_handle(nullptr);
    EXPECT_EXIT(kpf_abort(), ::testing::KilledBySignal(SIGABRT), "");
}

} // namespace
