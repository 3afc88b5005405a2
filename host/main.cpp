// korla-host: a host for the downmix module, on the command line.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>

#include "error.h"
#include "report.h"
#include "transfer.h"

using namespace host;

namespace {

void catch_interrupts() {
    struct sigaction action {};
    action.sa_handler = interrupt;
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
    std::signal(SIGXFSZ, SIG_IGN); // a file size limit shows as a failed write
}

template <class Report> void print(const Report& report, bool as_json) {
    std::fputs((as_json ? json(report) : text(report)).c_str(), stdout);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("korla-host plays audio files through the downmix module, which it loads as any host would.");
    app.footer(status_help);
    app.require_subcommand(1);
    app.fallthrough();
    bool as_json = false;
    std::string library;
    app.add_flag("--json", as_json, "Report as JSON on standard output");
    app.add_option("--library", library, "The library (default: beside this program, then the system's)")
        ->type_name("PATH");

    RunOptions run_options;
    CLI::App* run_command = app.add_subcommand("run", "Process a WAV, W64, RF64, CAF or FLAC file");
    run_command->add_option("IN", run_options.input, "Input file")->required()->type_name("");
    run_command->add_option("OUT", run_options.output, "Output file; its extension names the format")
        ->required()
        ->type_name("");
    run_command->add_option("--layout", run_options.layout, "Output layout: auto, stereo, 5.1, 7.1.4, ... or an index")
        ->capture_default_str()
        ->type_name("LAYOUT");
    run_command->add_option("--map", run_options.map, "Speakers of the input channels in file order: FL,FR,FC,LFE,...")
        ->type_name("MAP");
    run_command
        ->add_option("--format", run_options.samples, "Sample format of the stream (default: what the file holds)")
        ->check(CLI::IsMember({"s16", "s32", "f32"}));
    run_command->add_option("--block", run_options.block_frames, "Frames a call, a multiple of 256")
        ->capture_default_str()
        ->check(CLI::Validator(
            [](std::string& value) {
                const bool good = CLI::Range(256, 1 << 20)(value).empty() && std::stoul(value) % 256 == 0;
                return good ? std::string() : value + " is not a multiple of 256 between 256 and 1048576";
            },
            "FRAMES"))
        ->type_name("");
    run_command->add_flag("--planar", run_options.planar, "Send one channel after another in chunks of 256 frames");
    run_command->add_flag("--accept-truncated", run_options.accept_truncated,
                          "Process what is there of a damaged file");

    CLI::App* info_command = app.add_subcommand("info", "Show what the library says about itself");
    info_command->add_option("LIB", library, "The library")->type_name("");
    CLI::App* layouts_command = app.add_subcommand("layouts", "List output layouts and the inputs that 'auto' knows");

    BenchOptions bench_options;
    CLI::App* bench_command = app.add_subcommand("bench", "Time the module over block sizes and sample formats");
    bench_command->add_option("--layout", bench_options.layout, "Output layout")->capture_default_str();
    bench_command->add_option("--map", bench_options.map, "Input speakers")->capture_default_str();
    bench_command->add_option("--rate", bench_options.sample_rate, "Sample rate in Hz")->capture_default_str();

    for (CLI::App* command : {run_command, info_command, layouts_command, bench_command})
        command->footer(status_help);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
            return app.exit(error); // --help
        std::fprintf(stderr, "korla-host: %s; see korla-host --help\n", error.what());
        return static_cast<int>(Status::usage);
    }

    try {
        run_options.library = bench_options.library = library;
        if (*run_command) {
            catch_interrupts();
            print(run(run_options), as_json);
        } else if (*info_command) {
            print(info(Module(library)), as_json);
        } else if (*layouts_command) {
            print(layouts(Module(library)), as_json);
        } else {
            print(bench(bench_options), as_json);
        }
        return 0;
    } catch (const Error& error) {
        std::fprintf(stderr, "korla-host: %s\n", error.what());
        return interrupted() ? 128 + interrupted() : static_cast<int>(error.status());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korla-host: %s\n", error.what());
        return static_cast<int>(Status::processing);
    }
}
