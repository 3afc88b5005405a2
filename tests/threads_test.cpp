// What several threads share: the module's tables and the log, a transform's state. Built by ThreadSanitizer, too.
#include <korla/diag.h>
#include <korla/dsp/fft.h>

#include <atomic>
#include <thread>

#include "module_host.h"
#include "signals.h"

using namespace korla_test;

namespace {

// Runs f(k) on four threads at once.
template <class F> void on_four_threads(F f) {
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; k++)
        threads.emplace_back(f, k);
    for (auto& thread : threads)
        thread.join();
}

TEST(Threads, InstancesOfTheModuleShareNothing) {
    const auto format = media_format("FL FR FC LFE SL SR", 0);
    std::vector<float> in(6 * 256);
    Random random(1);
    for (float& x : in)
        x = static_cast<float>(random.uniform());
    const auto expected = Stream(format).run(in);
    on_four_threads([&](int) {
        for (int repeat = 0; repeat < 20; repeat++)
            EXPECT_EQ(Stream(format).run(in), expected);
    });
}

TEST(Threads, ShareTheStateOfATransform) {
    constexpr uint32_t n = 480;
    std::vector<char> memory(KRL_fft_state_query_mem(n, KRL_FFT_CPLX_FWD_UNSCALED));
    const krl_fft_state* state = KRL_fft_init(memory.data(), n, KRL_FFT_CPLX_FWD_UNSCALED);
    on_four_threads([&](int k) {
        alignas(32) float in[2 * n], out[2 * n];
        for (int repeat = 0; repeat < 50; repeat++) {
            std::fill(in, in + 2 * n, 0.0f);
            in[0] = static_cast<float>(k);
            KRL_fft_CLfwd_unscaledCL(state, out, in);
            EXPECT_EQ(out[2 * (n - 1)], static_cast<float>(k));
        }
    });
}

struct Taker {
    int own;
    std::atomic<int> records{0}, strays{0};
};
template <int own> void take(void* user, const char*) {
    auto* taker = static_cast<Taker*>(user);
    (taker->own == own ? taker->records : taker->strays)++;
}

// A callback is only ever called with the pointer that came with it.
TEST(Threads, ReplaceTheCallbackOfTheLogWhileOthersLog) {
    Taker takers[2] = {{0}, {1}};
    const kpf_log_callback callbacks[2] = {take<0>, take<1>};
    kpf_log_set_callback(callbacks[0], &takers[0]);
    on_four_threads([&](int k) {
        for (int i = 0; i < 50000; i++)
            if (k < 2)
                kpf_log_set_callback(callbacks[i & 1], &takers[i & 1]), kpf_log_set_level(i % 3);
            else
                kpf_log(KPF_LOG_ERROR, "here", i, "record");
    });
    kpf_log_set_callback(nullptr, nullptr);
    kpf_log_set_level(KPF_LOG_TRACE);
    EXPECT_EQ(takers[0].records + takers[1].records, 100000);
    EXPECT_EQ(takers[0].strays + takers[1].strays, 0);
}

} // namespace
