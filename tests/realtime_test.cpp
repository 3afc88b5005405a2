// After the first process call of a configuration: no allocation, no system call, and little stack. Sanitizers, which
// bring an allocator and larger frames of their own, leave this test out.
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <csignal>
#include <cstdio>
#include <functional>

#if defined(__linux__) && __has_include(<linux/seccomp.h>)
#    include <linux/filter.h>
#    include <linux/seccomp.h>
#    include <sys/prctl.h>
#    include <sys/syscall.h>
#endif

#include "module_host.h"
#include "signals.h"
#include "stream_host.h"

// The allocator of this process, between the library and libc, counted.
static std::atomic<int> allocations{0}, releases{0}, callocs_until_failure{-1};
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
void* malloc(size_t n) { return allocations++, __libc_malloc(n); }
void* calloc(size_t n, size_t size) {
    allocations++;
    const bool fails = callocs_until_failure >= 0 && callocs_until_failure-- == 0;
    return fails ? nullptr : __libc_calloc(n, size);
}
void* realloc(void* p, size_t n) { return allocations++, __libc_realloc(p, n); }
void free(void* p) { releases += p != nullptr, __libc_free(p); }
}

using namespace korla_test;

namespace {

// A call of 1000 frames with everything allocated beforehand; noise at full scale, so that the limiter works.
struct Call {
    Stream stream;
    bool passes_through;
    std::vector<uint32_t> in, out;
    acli_buffer source, target;
    Call(const std::string& inputs, int layout, uint32_t format, bool interleaved)
        : stream(media_format(inputs, layout, format, interleaved)), passes_through(inputs == seven_one_four) {
        const uint32_t width = format == ACLI_SAMPLE_INT16 ? 2 : 4, channels = stream.applied.input_channel_count;
        in.resize(1000 * channels * width / 4), out.resize(1000 * stream.applied.output_channel_count * width / 4);
        Random random(1);
        for (uint32_t& bits : in)
            bits = format == ACLI_SAMPLE_FLOAT32 ? std::bit_cast<uint32_t>(random.uniform(-2, 2)) : random.bits();
        source = buffer_of(in.data(), in.size() * 4, channels, 8 * width);
    }
    bool operator()(int times = 1) {
        bool succeeded = true;
        for (int i = 0; i < times; i++) {
            target = buffer_of(out.data(), out.size() * 4);
            succeeded &= stream.process(source, target) == ACLI_OK;
        }
        return succeeded;
    }
};

// 1000 frames through a stream of korlastream, in three calls, while controls are set and meters read.
struct StreamCall {
    KorlaStream stream;
    Samples in, out;
    explicit StreamCall(const korla_stream_config& config)
        : stream(config), in(stream.input(1024)),
          out(config.out.count, config.out_format, config.out_planar != 0, 1024 + 63) {
        Random random(1);
        in.fill([&](size_t, size_t) { return random.uniform(); });
        from = in.planes(0), to = out.planes(0);
    }
    std::vector<void*> from, to;
    bool operator()(int times = 1) {
        korla_meters meters = {};
        meters.size = sizeof meters;
        float gains[12 * 12], db = 0;
        bool succeeded = true;
        for (int i = 0; i < times; i++) {
            for (size_t n : {64, 352, 608})
                succeeded &= korla_stream_process(stream, from.data(), n, to.data(), 1024 + 63, nullptr) == KORLA_OK;
            korla_stream_set(stream, KORLA_DIALOGUE_DB, db += 1);
            succeeded &= korla_stream_meters(stream, &meters) == KORLA_OK &&
                         korla_stream_matrix(stream, gains, nullptr) == KORLA_OK;
        }
        succeeded &= korla_stream_drain(stream, to.data(), 1024 + 63, nullptr) == KORLA_OK;
        return succeeded && korla_stream_reset(stream) == KORLA_OK;
    }
};
template <class F> void for_each_stream(F f) {
    for (uint32_t mode : {KORLA_PUSH, KORLA_SAME_LENGTH, KORLA_SAME_LENGTH_32})
        for (const char* to : {"stereo", "5.1", "7.1.4"}) {
            korla_stream_config config = stream_config("7.1.4", to);
            config.mode = mode;
            config.in_format = mode == KORLA_PUSH ? KORLA_S24 : KORLA_F32;
            config.out_planar = mode == KORLA_SAME_LENGTH;
            StreamCall call(config);
            f(call);
        }
}

// f(call) on every road through the module: format, interleaving, matrix or copy.
template <class F> void for_each_road(F f) {
    const std::pair<std::string, int> layouts[] = {{seven_one, 0},
                                                   {five_one + " FLC FRC", automatic},
                                                   {"FC", 15},
                                                   {seven_one_four, automatic},
                                                   {seven_one_four, 0}};
    for (uint32_t format : {ACLI_SAMPLE_INT16, ACLI_SAMPLE_INT32, ACLI_SAMPLE_FLOAT32})
        for (bool interleaved : {true, false})
            for (auto& [inputs, layout] : layouts) {
                Call call(inputs, layout, format, interleaved);
                f(call);
            }
}

TEST(RealTime, NothingIsAllocatedOrFreedAfterTheFirstCallAndAllIsReleased) {
    for_each_road([](Call& call) {
        const int allocated = allocations, released = releases;
        ASSERT_TRUE(call(11));
        EXPECT_EQ(allocations - allocated, call.passes_through ? 0 : 1) << "the engine's memory, once";
        EXPECT_EQ(releases, released);
    });
    const int before = allocations - releases;
    for_each_stream([](StreamCall& call) {
        const int allocated = allocations, released = releases;
        ASSERT_TRUE(call(3));
        EXPECT_EQ(allocations, allocated);
        EXPECT_EQ(releases, released);
    });
    {
        Call call("FL FR FC LFE FLC FRC", automatic, ACLI_SAMPLE_FLOAT32, true);
        for (int layout : {automatic, 15, 0}) {
            call.stream.apply(media_format("FL FR FC LFE FLC FRC", layout));
            EXPECT_TRUE(call());
        }
    }
    EXPECT_EQ(allocations - releases, before);
}

TEST(RealTime, WithoutMemoryACallFailsAndTheNextOneTriesAgain) {
    void* handle = session_identity;
    callocs_until_failure = 0;
    EXPECT_EQ(ACLI.create(0, 0, &handle), -1);
    EXPECT_EQ(handle, session_identity) << "nothing is stored";
    Call call(seven_one, 0, ACLI_SAMPLE_INT16, true);
    for (int i = 0; i < 2; i++) {
        callocs_until_failure = 0;
        EXPECT_FALSE(call());
    }
    EXPECT_TRUE(call());
}

#if defined(SYS_seccomp) && (defined(__x86_64__) || defined(__aarch64__))
enum Ending { passed = 0, failed = 1, no_filter = 2 };

// The ending of a child process which any system call but exit_group kills: body's, or a signal (negative).
template <class Body> int without_system_calls(Body body) {
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
    const sock_fprog program = {std::size(filter), filter};
    const pid_t child = fork();
    if (child == 0) {
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
            syscall(SYS_exit_group, no_filter);
        syscall(SYS_exit_group, body() ? passed : failed);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(RealTime, NoSystemCallAfterTheFirstCall) {
    const int control = without_system_calls([] { return getppid() >= 0; });
    if (control == no_filter)
        GTEST_SKIP() << "no system-call filter here (emulated?)";
    ASSERT_EQ(control, -SIGSYS) << "the filter does not filter";
    for_each_road([](Call& call) {
        ASSERT_TRUE(call());
        EXPECT_EQ(without_system_calls([&] { return call(10); }), passed);
    });
    for_each_stream([](StreamCall& call) { EXPECT_EQ(without_system_calls([&] { return call(10); }), passed); });
}
#endif

// The bytes of a fresh stack that one call touched, switching to it included.
size_t stack_of(const std::function<void()>& call) {
    static std::vector<uint8_t> stack;
    static ucontext_t here, there;
    static const std::function<void()>* callee;
    stack.assign(256 * 1024, 0xA5);
    getcontext(&there);
    there.uc_stack.ss_sp = stack.data();
    there.uc_stack.ss_size = stack.size();
    there.uc_link = &here;
    callee = &call;
    makecontext(
        &there, [] { (*callee)(); }, 0);
    swapcontext(&here, &there);
    return static_cast<size_t>(stack.end() - std::ranges::find_if(stack, [](uint8_t b) { return b != 0xA5; }));
}

TEST(RealTime, ProcessNeedsLessThan8KiBOfStack) {
    size_t deepest = 0;
    for_each_road([&](Call& call) {
        ASSERT_TRUE(call()); // brings the engine up, and allocates
        deepest = std::max(deepest, stack_of([&] { call(); }));
    });
    size_t deepest_of_streams = 0;
    for_each_stream(
        [&](StreamCall& call) { deepest_of_streams = std::max(deepest_of_streams, stack_of([&] { call(); })); });
    std::printf("stack of process: %zu bytes, of a stream %zu\n", deepest, deepest_of_streams);
    for (size_t bytes : {deepest, deepest_of_streams}) {
        EXPECT_GT(bytes, 256u);
        EXPECT_LT(bytes, 8u * 1024u);
    }
}

} // namespace
