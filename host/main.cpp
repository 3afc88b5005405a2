// korla-host: korla-stream and the downmix module on the command line.
#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>

#include "audio_formats.h"
#include "error.h"
#include "plot.h"
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
    MixOptions mix;
    BenchOptions bench;
    std::function<std::string()> command; // does it and gives the report
    FILE* report_to = stdout;
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

void print(const std::string& text, FILE* stream) {
    if (std::fputs(text.c_str(), stream) < 0 || std::fflush(stream) != 0)
        throw Error(Status::output, format_text("cannot write to the standard %s: %s",
                                                stream == stdout ? "output" : "error", std::strerror(errno)));
}

// The options that run and mix share.
void add_conversion(CLI::App& command, ConversionOptions& options) {
    command.add_option("IN", options.input, "Input file: " + readable_formats())->required()->type_name("");
    command.add_option("OUT", options.output, "Output file; its extension names the format: " + writable_formats())
        ->required()
        ->type_name("");
    command.add_option("--format", options.samples, "Sample format of the stream (default: what the file holds)")
        ->check(CLI::IsMember(options.takes_s24 ? std::vector<std::string>{"s16", "s24", "s32", "f32"}
                                                : std::vector<std::string>{"s16", "s32", "f32"}));
    command.add_option("--plot", options.plot, "Draw levels, gain reduction and matrix: .png or .svg")
        ->type_name("FILE");
    command.add_flag("--true-peak", options.true_peak, "Measure true peaks (ITU-R BS.1770)");
    command.add_flag("--accept-truncated", options.accept_truncated, "Process what is there of a damaged file");
    command
        .add_option("--raw", options.raw,
                    "The input has no header: s16, s24, s32 or f32, channels and rate, as s16:6:48000")
        ->type_name("FORMAT");
    command.add_flag("--raw-out", options.writer.raw, "The output gets none, whatever its name");
    command.add_option("--depth", options.writer.depth, "Bits of the output (default: as many as the stream has)")
        ->check(CLI::IsMember({"16", "24", "32", "float"}));
    command.add_flag_callback(
        "--no-dither", [&] { options.writer.dither = false; }, "Round without noise where --depth takes bits away");
    command.add_flag_callback(
        "--no-overwrite", [&] { options.writer.overwrite = false; },
        "Leave an output file alone that is there already");
    command.add_flag("--quiet", options.quiet, "No report and no progress; errors only");
    command.footer("IN and OUT may be -: WAV from the standard input, whose length may be left open, and WAV to the "
                   "standard output;\nthe report then goes to the standard error.");
}

// What a command that makes a file has to say goes where no samples go.
template <class Options, class Command> void set_command(Request& request, Options& options, Command command) {
    request.command = [&request, &options, command] {
        catch_interrupts();
        if (options.output == "-")
            request.report_to = stderr;
        if (options.true_peak && !measures_true_peaks())
            TruePeakMeter(1, 48000); // throws
        if (!options.plot.empty())
            check_plot(options.plot);
        const std::string report = shown(command(options), request.as_json);
        return options.quiet ? std::string() : report;
    };
}

void add_run(CLI::App& app, Request& request) {
    RunOptions& options = request.run;
    CLI::App* run_command = app.add_subcommand("run", "Process an audio file through the module");
    add_conversion(*run_command, options);
    run_command->add_option("--layout", options.layout, "Output layout: auto, stereo, 5.1, 7.1.4, ... or an index")
        ->capture_default_str()
        ->type_name("LAYOUT");
    run_command
        ->add_option("--map", options.map,
                     "Speakers of the input channels in file order: FL,FR,FC,LFE,... (default: what the file says, "
                     "or its format's order)")
        ->type_name("MAP");
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
    run_command->callback([&] {
        set_command(request, options, [&request](RunOptions& run_options) {
            run_options.library = request.library;
            return run(run_options);
        });
    });
}

// "-6", "off"
float parse_level(const std::string& option, const std::string& text) {
    if (text == "off")
        return -INFINITY;
    size_t read = 0;
    float level = NAN;
    try {
        level = std::stof(text, &read);
    } catch (const std::exception&) {
    }
    if (read == 0 || read != text.size())
        throw CLI::ValidationError("--" + option, "'" + text + "' is no level in dB, and not 'off'");
    return level;
}

void add_mix(CLI::App& app, Request& request) {
    MixOptions& options = request.mix;
    CLI::App* mix_command = app.add_subcommand("mix", "Mix an audio file from any speakers to any speakers");
    add_conversion(*mix_command, options);
    mix_command->add_option("--to", options.to, "Output: stereo, 5.1, 7.1.4, ... or a list of speakers")
        ->required()
        ->type_name("LAYOUT");
    mix_command
        ->add_option(
            "--from,--map", options.map,
            "Speakers of the input channels in file order: FL,FR,FC,LFE,..., or a layout's name (default: what "
            "the file says, or its format's order)")
        ->type_name("SPEAKERS");
    for (size_t i = 0; i < level_controls.size(); i++)
        mix_command
            ->add_option_function<std::string>(
                std::string("--") + level_controls[i].name,
                [&options, i](const std::string& text) {
                    options.controls[i] = parse_level(level_controls[i].name, text);
                },
                level_controls[i].help)
            ->type_name("DB");
    mix_command->add_flag_callback(
        "--no-limiter", [&options] { options.limiter = false; }, "Let peaks pass; integers then clip");
    mix_command->add_option("--block", options.block_frames, "Frames a call")
        ->capture_default_str()
        ->check(CLI::Range(1, 1 << 20))
        ->type_name("");
    mix_command->callback(
        [&] { set_command(request, options, [](MixOptions& mix_options) { return mix(mix_options); }); });
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
    CLI::App app("korla-host runs audio files through korla-stream, and through the downmix module, which it loads as "
                 "any host would.");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", format_text("korla-host %s, %s", KORLA_VERSION, sf_version_string()));
    app.add_flag("--json", request.as_json, "Report as JSON");
    app.add_option("--library", request.library, "The library (default: beside this program, then the system's)")
        ->type_name("PATH");
    add_run(app, request);
    add_mix(app, request);
    add_questions(app, request);
    add_bench(app, request);
    app.footer(status_help);
    for (CLI::App* command : app.get_subcommands({}))
        command->footer(command->get_footer() + (command->get_footer().empty() ? "" : "\n\n") + status_help);
    try {
        parse(app, argc, argv, request);
        const std::string report = request.command();
        print(report, request.report_to);
        return static_cast<int>(Status::ok);
    } catch (const Error& error) {
        std::fprintf(stderr, "korla-host: %s\n", error.what());
        return interrupted() ? 128 + interrupted() : static_cast<int>(error.status());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korla-host: %s\n", error.what());
        return static_cast<int>(Status::processing);
    }
}
