// What can go wrong for a user of the host, by class. The class is the exit status, so that scripts can tell them
// apart.
#pragma once

#include <stdexcept>
#include <string>

namespace host {

enum class Status {
    ok = 0,
    usage = 2,      // the command line
    library = 3,    // the library cannot be loaded or is not the module
    input = 4,      // the input file is missing, no audio, damaged or cut short
    layout = 5,     // speakers or a layout that cannot be served
    output = 6,     // the output file, or the report, cannot be written
    processing = 7, // the module or the stream failed on accepted settings
};

inline constexpr const char* status_help =
    "Exit status: 0 success, 2 wrong command line, 3 library not usable, 4 input file not usable (missing, not audio,\n"
    "damaged, cut short), 5 unsupported channel map or layout, 6 output file or report not writable, 7 the module\n"
    "failed, 128 + number for an interrupting signal. A failed run leaves no output file and does not touch an older\n"
    "one; when nothing but the report fails, the file is complete.";

class Error : public std::runtime_error {
public:
    // message: one line that says what is wrong and what to do about it.
    Error(Status status, const std::string& message) : std::runtime_error(message), status_(status) {}
    Status status() const { return status_; }

private:
    Status status_;
};

} // namespace host
