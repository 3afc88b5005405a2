// korla-host: a host for the downmix module, on the command line.
#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>

#include "audio_formats.h"
#include "error.h"
#include "report.h"
#include "text.h"
#include "transfer.h"

using namespace host;

namespace {

// What the command line says.
struct Request {
    bool as_json = false;
    std::string library;
    RunOptions run;
    BenchOptions bench;
    std::function<std::string()> command; // does it and gives the report
};

template <class Report> std::string shown(const Report& report, bool as_json) {
    return as_json ? json(report) : text(report);
}

void catch_interrupts() {
    struct sigaction action {};
    action.sa_handler = interrupt;
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
    std::signal(SIGXFSZ, SIG_IGN); // a file size limit shows as a failed write
}

// A closed standard stream would give its number to the next file that is opened, and reports would go there.
void reserve_standard_streams() {
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) < 0)
            (void)!open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY); // so that using it fails
}

void print(const std::string& text) {
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw Error(Status::output, format_text("cannot write to the standard output: %s", std::strerror(errno)));
}

void add_run(CLI::App& app, Request& request) {
    RunOptions& options = request.run;
    CLI::App* run_command = app.add_subcommand("run", "Process an audio file");
    run_command->add_option("IN", options.input, "Input file: " + readable_formats())->required()->type_name("");
    run_command->add_option("OUT", options.output, "Output file; its extension names the format: " + writable_formats())
        ->required()
        ->type_name("");
    run_command->add_option("--layout", options.layout, "Output layout: auto, stereo, 5.1, 7.1.4, ... or an index")
        ->capture_default_str()
        ->type_name("LAYOUT");
    run_command
        ->add_option("--map", options.map,
                     "Speakers of the input channels in file order: FL,FR,FC,LFE,... (default: what the file says, "
                     "or its format's order)")
        ->type_name("MAP");
    run_command->add_option("--format", options.samples, "Sample format of the stream (default: what the file holds)")
        ->check(CLI::IsMember({"s16", "s32", "f32"}));
    run_command->add_option("--block", options.block_frames, "Frames a call, a multiple of 256")
        ->capture_default_str()
        ->check(CLI::Validator(
            [](std::string& value) {
                const bool good = CLI::Range(256, 1 << 20)(value).empty() && std::stoul(value) % 256 == 0;
                return good ? std::string() : value + " is not a multiple of 256 between 256 and 1048576";
            },
            "FRAMES"))
        ->type_name("");
    run_command->add_flag("--planar", options.planar, "Send one channel after another in chunks of 256 frames");
    run_command->add_flag("--accept-truncated", options.accept_truncated, "Process what is there of a damaged file");
    run_command->callback([&] {
        request.command = [&] {
            catch_interrupts();
            request.run.library = request.library;
            return shown(run(request.run), request.as_json);
        };
    });
}

void add_questions(CLI::App& app, Request& request) {
    CLI::App* info_command = app.add_subcommand("info", "Show what the library says about itself");
    info_command->add_option("LIB", request.library, "The library")->type_name("");
    info_command->callback(
        [&] { request.command = [&] { return shown(info(Module(request.library)), request.as_json); }; });

    CLI::App* layouts_command = app.add_subcommand("layouts", "List output layouts and the inputs that 'auto' knows");
    layouts_command->callback(
        [&] { request.command = [&] { return shown(layouts(Module(request.library)), request.as_json); }; });
}

void add_bench(CLI::App& app, Request& request) {
    BenchOptions& options = request.bench;
    CLI::App* bench_command = app.add_subcommand("bench", "Time the module over block sizes and sample formats");
    bench_command->add_option("--layout", options.layout, "Output layout")->capture_default_str();
    bench_command->add_option("--map", options.map, "Input speakers")->capture_default_str();
    bench_command->add_option("--rate", options.sample_rate, "Sample rate in Hz")->capture_default_str();
    bench_command->callback([&] {
        request.command = [&] {
            request.bench.library = request.library;
            return shown(bench(request.bench), request.as_json);
        };
    });
}

std::string known_commands(const CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands({}))
        names += (names.empty() ? "" : ", ") + command->get_name();
    return "the commands are " + names;
}

// Why the command line was refused, as one sentence.
std::string refusal(const CLI::App& app, const CLI::ParseError& error) {
    if (!app.get_subcommands().empty())
        return error.what();
    const std::vector<std::string> rest = app.remaining();
    if (rest.empty())
        return "no command; " + known_commands(app);
    return (rest[0][0] == '-' ? "unknown option '" : "unknown command '") + rest[0] + "'; " + known_commands(app);
}

// Throws Error.
void parse(CLI::App& app, int argc, char** argv, Request& request) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success))
            throw Error(Status::usage, refusal(app, error) + "; see korla-host --help");
        std::ostringstream text; // --help, --version
        app.exit(error, text, text);
        request.command = [shown = text.str()] { return shown; };
    }
}

} // namespace

int main(int argc, char** argv) {
    reserve_standard_streams();
    Request request;
    CLI::App app("korla-host runs audio files through the downmix module, which it loads as any host would.");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", format_text("korla-host %s, %s", KORLA_VERSION, sf_version_string()));
    app.add_flag("--json", request.as_json, "Report as JSON on standard output");
    app.add_option("--library", request.library, "The library (default: beside this program, then the system's)")
        ->type_name("PATH");
    add_run(app, request);
    add_questions(app, request);
    add_bench(app, request);
    app.footer(status_help);
    for (CLI::App* command : app.get_subcommands({}))
        command->footer(status_help);
    try {
        parse(app, argc, argv, request);
        print(request.command());
        return static_cast<int>(Status::ok);
    } catch (const Error& error) {
        std::fprintf(stderr, "korla-host: %s\n", error.what());
        return interrupted() ? 128 + interrupted() : static_cast<int>(error.status());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korla-host: %s\n", error.what());
        return static_cast<int>(Status::processing);
    }
}
