// After the first process call of a configuration: no allocation, no system call, and little stack.
#include <dlfcn.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstdio>

#if defined(__linux__) && __has_include(<linux/seccomp.h>)
#    include <linux/filter.h>
#    include <linux/seccomp.h>
#    include <sys/prctl.h>
#    include <sys/syscall.h>
#endif

#include "module_host.h"
#include "signals.h"

// ---- the allocator of this process, counted
// ---------------------------------------------------------------------------
namespace {
std::atomic<int> allocations{0}, releases{0}, callocs_until_failure{-1};
}

#ifdef KORLA_SANITIZED // the sanitizer's allocator counts for us, and does not fail
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));
[[maybe_unused]] const int hooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t) { allocations++; }, [](const volatile void* p) { releases += p != nullptr; });
#else // between the library and libc
namespace {
template <class F>
F* next(const char* name, std::atomic<F*>& cache) {
    F* f = cache.load();
    if (!f)
        cache = f = reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
    return f;
}
} // namespace

extern "C" {
void* malloc(size_t n) {
    static std::atomic<void* (*)(size_t)> real;
    allocations++;
    return next<void*(size_t)>("malloc", real)(n);
}
void* calloc(size_t n, size_t size) {
    static std::atomic<void* (*)(size_t, size_t)> real;
    allocations++;
    if (callocs_until_failure >= 0 && callocs_until_failure-- == 0)
        return nullptr;
    return next<void*(size_t, size_t)>("calloc", real)(n, size);
}
void* realloc(void* p, size_t n) {
    static std::atomic<void* (*)(void*, size_t)> real;
    allocations++;
    return next<void*(void*, size_t)>("realloc", real)(p, n);
}
void free(void* p) {
    static std::atomic<void (*)(void*)> real;
    releases += p != nullptr;
    next<void(void*)>("free", real)(p);
}
}
#endif

using namespace korla_test;

namespace {

// Every road through the module: format, interleaving, matrix or copy.
struct Road {
    const char* inputs;
    int layout;
    uint32_t sample_format;
    bool interleaved;
};
std::vector<Road> roads() {
    std::vector<Road> all;
    for (uint32_t format : {ACLI_SAMPLE_INT16, ACLI_SAMPLE_INT32, ACLI_SAMPLE_FLOAT32})
        for (bool interleaved : {true, false})
            for (auto [inputs, layout] : {std::pair{seven_one, 0},
                                          {"L R C LFE Lc Rc", automatic},
                                          {"C", 15},
                                          {seven_one_four, automatic},
                                          {seven_one_four, 0}})
                all.push_back({inputs, layout, format, interleaved});
    return all;
}

// A call of `frames` frames with everything allocated beforehand; noise at full scale, so that the limiter works.
struct Call {
    Stream stream;
    std::vector<uint8_t> in, out;
    acli_buffer source = {}, target = {};
    Call(const Road& road, uint32_t frames)
        : stream(media_format(host_codes(road.inputs), road.layout, road.sample_format, road.interleaved)) {
        const uint32_t width = host_sample_bytes(road.sample_format), channels = stream.applied.input_channel_count;
        in.resize(size_t{frames} * channels * width);
        out.resize(size_t{frames} * stream.applied.output_channel_count * width);
        Random random(1);
        for (size_t i = 0; i + 3 < in.size(); i += 4) {
            const float x = random.uniform(-2, 2);
            const uint32_t bits =
                road.sample_format == ACLI_SAMPLE_FLOAT32 ? std::bit_cast<uint32_t>(x) : random.bits();
            std::memcpy(in.data() + i, &bits, 4);
        }
        source.bytes = static_cast<uint32_t>(in.size()), source.data = in.data(), source.channels = channels;
        source.bits_per_sample = 8 * width;
        target.data = out.data();
    }
    int32_t operator()() {
        target.bytes = static_cast<uint32_t>(out.size());
        return stream.process(source, target);
    }
};

TEST(RealTime, NothingIsAllocatedOrFreedAfterTheFirstCall) {
    for (const Road& road : roads()) {
        Call call(road, 1000);
        const bool passes_through = road.inputs == seven_one_four;
        int before = allocations;
        ASSERT_EQ(call(), 0);
        EXPECT_EQ(allocations - before, passes_through ? 0 : 1) << "the engine's memory, once";
        before = allocations;
        const int freed = releases;
        for (int i = 0; i < 10; i++)
            ASSERT_EQ(call(), 0);
        EXPECT_EQ(allocations, before);
        EXPECT_EQ(releases, freed);
    }
}

TEST(RealTime, EveryAllocationIsReleased) {
    int before = allocations - releases;
    for (int i = 0; i < 3; i++) {
        void* handle = nullptr;
        ASSERT_EQ(ACLI.create(0, 0, &handle), 0);
        for (int layout : {0, 15, automatic}) {
            acli_media_format format = media_format({1, 2, 3}, layout);
            acli_param_value value = {ACLI_MODE_APPLY, 0, &format};
            ACLI.set_param(handle, 4, 0, 0, &value);
            float in[3] = {}, out[6];
            acli_buffer source = {}, target = {};
            source.bytes = 12, source.data = in, source.channels = 3, source.bits_per_sample = 32;
            target.bytes = sizeof out, target.data = out;
            EXPECT_EQ(ACLI.process(handle, &source, &target), 0);
        }
        EXPECT_EQ(ACLI.destroy(handle), 0);
        EXPECT_EQ(allocations - releases, before);
    }
}

TEST(RealTime, WithoutMemoryACallFailsAndTheNextOneTriesAgain) {
#ifdef KORLA_SANITIZED
    GTEST_SKIP() << "the sanitizer's allocator does not fail";
#endif
    void* handle = session_identity;
    callocs_until_failure = 0;
    EXPECT_EQ(ACLI.create(0, 0, &handle), -1);
    EXPECT_EQ(handle, session_identity) << "nothing is stored";
    Call call(roads()[0], 256);
    call.target.bytes = 0;
    callocs_until_failure = 0;
    EXPECT_EQ(call(), -1);
    callocs_until_failure = 0;
    EXPECT_EQ(call(), -1);
    callocs_until_failure = -1;
    EXPECT_EQ(call(), 0);
}

#if defined(SYS_seccomp) && (defined(__x86_64__) || defined(__aarch64__))
// From here on any system call but exit_group kills the process.
bool forbid_system_calls() {
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
    const sock_fprog program = {std::size(filter), filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

enum Ending { passed = 0, failed = 1, no_filter = 2 };

// The ending of a child process that may make no system call: body's, or a signal (negative).
template <class Body>
int without_system_calls(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        if (!forbid_system_calls())
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
    for (const Road& road : roads()) {
        Call call(road, 1000);
        ASSERT_EQ(call(), 0);
        EXPECT_EQ(without_system_calls([&] {
                      for (int i = 0; i < 10; i++)
                          if (call() != 0)
                              return false;
                      return true;
                  }),
                  passed);
    }
}
#endif

// ---- stack
// ------------------------------------------------------------------------------------------------------------
Call* call_on_painted_stack = nullptr;
int32_t result_on_painted_stack = 0;
void process_on_painted_stack() { result_on_painted_stack = (*call_on_painted_stack)(); }

// The bytes of a fresh stack that one call touched, switching to it included.
size_t stack_of(Call& call) {
    constexpr uint8_t paint = 0xA5;
    static std::vector<uint8_t> stack(256 * 1024);
    std::fill(stack.begin(), stack.end(), paint);
    static ucontext_t here, there;
    getcontext(&there);
    there.uc_stack.ss_sp = stack.data();
    there.uc_stack.ss_size = stack.size();
    there.uc_link = &here;
    call_on_painted_stack = &call;
    makecontext(&there, process_on_painted_stack, 0);
    swapcontext(&here, &there);
    EXPECT_EQ(result_on_painted_stack, 0);
    return static_cast<size_t>(stack.end() -
                               std::find_if(stack.begin(), stack.end(), [](uint8_t b) { return b != paint; }));
}

TEST(RealTime, ProcessNeedsLessThan8KiBOfStack) {
#ifdef KORLA_SANITIZED
    GTEST_SKIP() << "sanitizers enlarge every frame";
#endif
    size_t deepest = 0;
    for (const Road& road : roads()) {
        Call call(road, 1000);
        ASSERT_EQ(call(), 0); // brings the engine up, and allocates
        deepest = std::max(deepest, stack_of(call));
    }
    RecordProperty("bytes", static_cast<int>(deepest));
    std::printf("stack of process: %zu bytes\n", deepest);
    EXPECT_GT(deepest, 256u);
    EXPECT_LT(deepest, 8u * 1024u);
}

} // namespace
