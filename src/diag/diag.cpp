// Log records and the abort hook.
#include "korla/diag.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Where records go: two words that belong together, replaced by any thread while others read them. The version is odd
// while they are being replaced; a reader that saw it odd, or saw it change, reads again.
class Sink {
public:
    struct Target {
        kpf_log_callback callback;
        void* user;
    };
    void set(Target target) {
        uint32_t version = version_.load();
        while ((version & 1) != 0 || !version_.compare_exchange_weak(version, version + 1))
            version = version_.load();
        callback_.store(target.callback);
        user_.store(target.user);
        version_.store(version + 2);
    }
    Target get() const {
        for (;;) {
            const uint32_t version = version_.load();
            const Target target = {callback_.load(), user_.load()};
            if ((version & 1) == 0 && version_.load() == version)
                return target;
        }
    }

private:
    std::atomic<uint32_t> version_{0};
    std::atomic<kpf_log_callback> callback_{nullptr};
    std::atomic<void*> user_{nullptr};
};

std::atomic<uint32_t> threshold{KPF_LOG_TRACE};
Sink sink;
std::atomic<kpf_abort_handler> abort_handler{nullptr};

constexpr const char* level_names[] = {"TRACE", "INFO", "WARN", "ERROR"};
constexpr const char* prefix_format = "%s (%s:%d): ";

// What follows the last separator. The first character never counts as one.
const char* base_name(const char* file) {
    for (size_t i = std::strlen(file); i > 1; i--)
        if (file[i - 1] == '/' || file[i - 1] == '\\')
            return file + i;
    return file;
}

// Formats the record into a buffer of fixed size. False: it does not fit and is dropped.
bool format_record(char* buffer, size_t size, const char* level, const char* file, int32_t line, const char* fmt,
                   va_list arguments) {
    const int prefix = std::snprintf(buffer, size, prefix_format, level, file, line);
    if (prefix < 0 || static_cast<size_t>(prefix) >= size)
        return false;
    const size_t space = size - prefix;
    const int message = std::vsnprintf(buffer + prefix, space, fmt, arguments);
    if (message < 0 || static_cast<size_t>(message) >= space)
        return false;
    std::snprintf(buffer + prefix + message, space - message, "\n");
    return true;
}

} // namespace

void kpf_log(uint32_t level, const char* file, int32_t line, const char* fmt, ...) {
    file = base_name(file ? file : "");
    if (threshold > level)
        return;
    const char* format = fmt ? fmt : "";
    const char* name = level_names[std::min<uint32_t>(level, KPF_LOG_ERROR)];
    va_list arguments;
    va_start(arguments, fmt);
    if (const auto [callback, user] = sink.get(); callback) {
        char buffer[512];
        if (format_record(buffer, sizeof buffer, name, file, line, format, arguments))
            callback(user, buffer);
    } else {
        std::printf(prefix_format, name, file, line);
        std::vprintf(format, arguments);
        std::putchar('\n');
        std::fflush(stdout);
    }
    va_end(arguments);
}

void kpf_log_set_level(uint32_t level) { threshold = level; }

void kpf_log_set_callback(kpf_log_callback callback, void* user) {
    sink.set({callback, user});
}

void kpf_abort(void) {
    if (const auto handler = abort_handler.load())
        handler();
    else
        std::abort();
}

void kpf_abort_handle(kpf_abort_handler handler) { abort_handler = handler; }
