// Text for messages and reports.
#pragma once

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace host {

// printf into a string.
[[gnu::format(printf, 1, 2)]] inline std::string format_text(const char* pattern, ...) {
    va_list list, again;
    va_start(list, pattern);
    va_copy(again, list);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, pattern, list)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    va_end(again);
    va_end(list);
    return text;
}

inline double decibels(double linear) { return 20.0 * std::log10(linear); }

} // namespace host
