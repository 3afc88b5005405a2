// The sentence that goes with a status.
#pragma once

#include <cstdarg>
#include <cstdio>

#include "korla/speakers.h"

namespace korla::stream {

// Where a call's reason goes: the caller's buffer, which may be null.
class Reason {
public:
    Reason(char* text, size_t bytes) : text_(bytes > 0 ? text : nullptr), bytes_(bytes) {}

    // Writes the reason, cut to the buffer, and hands the status on: return reason.give(KORLA_BAD_RATE, "...").
    __attribute__((format(printf, 3, 4))) korla_status give(korla_status status, const char* format, ...) const {
        if (text_) {
            va_list arguments;
            va_start(arguments, format);
            std::vsnprintf(text_, bytes_, format, arguments);
            va_end(arguments);
        }
        return status;
    }

private:
    char* text_;
    size_t bytes_;
};

} // namespace korla::stream
