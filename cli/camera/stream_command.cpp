// ksi-polarization stream: a live camera's frames (or files replayed at a
// camera's pace) transformed as they arrive, until a frame count, a
// duration, or Ctrl-C.
#include <arv.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <thread>

#include "source_options.hpp"
#include "stop_signals.h"
#include "stream_engine.hpp"
#include "stream_outputs.hpp"
#include "subcommands.h"
#include "transform_options.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

struct Stream_options {
    Transform_options transform;
    Source_options source;
    std::uint64_t frames = 0;
    double seconds = 0;
    std::optional<std::filesystem::path> record;
    std::uint64_t every = 1;
    std::optional<std::filesystem::path> preview;
    unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    unsigned buffers = 0;
    double timeout = 5;
};

int stream_from(Frame_source& source, const Stream_options& options)
{
    std::optional<Recording> recording;
    if (options.record) {
        std::error_code error;
        std::filesystem::create_directories(*options.record, error);
        if (error)
            throw Source_error("cannot create the recording directory " + options.record->string() + ": " +
                               error.message());
        recording = Recording{*options.record, options.every, options.transform.settings.outputs};
    }
    Stream_outputs outputs(recording, options.preview, options.transform.settings.output_maximum);

    Stream_settings settings;
    settings.frame = outputs.frame_settings(options.transform.settings);
    if (options.transform.origin_given)
        settings.origin = std::pair{options.transform.settings.origin_x, options.transform.settings.origin_y};
    settings.frame_limit = options.frames;
    settings.seconds_limit = options.seconds;
    settings.threads = options.threads;
    settings.frame_slots = options.buffers;
    settings.no_frame_timeout_seconds = options.timeout;
    // On a terminal the counts are rewritten in place once a second.
    const bool status_line = isatty(STDERR_FILENO) != 0;
    if (status_line)
        settings.status = [](const Stream_summary& now) {
            std::fprintf(stderr, "\r%s\033[K", counts_line(now).c_str());
            std::fflush(stderr);
        };

    kp::Module module;
    kp::Processor processor;
    if (options.transform.calibration)
        processor.set_calibration(*options.transform.calibration);

    Stream_summary summary;
    {
        const Stop_signals signals;
        summary = run_stream(source, settings, processor, std::ref(outputs), Stop_signals::stop_requested());
    }
    if (status_line)
        std::fputs("\n", stderr);
    std::fputs(summary_text(summary).c_str(), stdout);
    std::fflush(stdout);
    if (summary.failure) {
        std::fprintf(stderr, "ksi-polarization: %s\n", summary.failure->c_str());
        return exit_failure;
    }
    return exit_success;
}

int run_stream_command(const Stream_options& options)
{
    int status = exit_failure;
    try {
        Opened_source opened = open_source(options.source);
        status = stream_from(*opened.source, options);
    } catch (const Source_error& error) {
        std::fprintf(stderr, "ksi-polarization: %s\n", error.what());
    }
    // Aravis's own threads and caches go before the process ends.
    arv_shutdown();
    return status;
}

}  // namespace

void add_stream_subcommand(CLI::App& application, Subcommand_action& action)
{
    auto options = std::make_shared<Stream_options>();
    CLI::App* command = application.add_subcommand(
        "stream", "Transform a live camera's frames as they arrive (GenICam cameras through Aravis), or replay "
                  "files at a camera's pace");
    add_source_options(*command, options->source);
    add_transform_options(*command, options->transform);
    // Recordings go to --record DIR; the origin defaults to the camera's
    // region offsets rather than 0,0.
    command->remove_option(command->get_option("--output-directory"));
    command->get_option("--origin")
        ->description("Sensor column and row of the frame's first pixel (default: the camera's OffsetX,OffsetY; "
                      "0,0 for a replay)");
    command->get_option("--bit-depth")
        ->description("Significant bits of a pixel (default: the pixel format's: 8, 10, 12 or 16; for a replay, "
                      "the files')");
    command->add_option("--frames", options->frames, "Stop after this many transformed frames")
        ->check(CLI::PositiveNumber);
    command->add_option("--seconds", options->seconds, "Stop after this many seconds")->check(CLI::PositiveNumber);
    CLI::Option* record = command->add_option_function<std::string>(
        "--record", [options](const std::string& directory) { options->record = directory; },
        "Write the outputs of recorded frames into DIR as frame_<number>_<output>.<ext>")->type_name("DIR");
    command->add_option("--every", options->every, "Record every K-th frame (default 1: all)")
        ->check(CLI::PositiveNumber)
        ->needs(record)
        ->type_name("K");
    command->add_option_function<std::string>(
        "--preview", [options](const std::string& file) { options->preview = file; },
        "Rewrite this PNG with an aolp_color picture about once a second")->type_name("FILE.png");
    command->add_option("-j,--threads", options->threads, "Transforming threads (default: all cores)")
        ->check(CLI::Range(1, 1024));
    command->add_option("--buffers", options->buffers, "Frame buffers (default: threads + 2)")
        ->check(CLI::Range(1, 4096));
    command->add_option("--timeout", options->timeout, "Fail when no complete frame arrives for this many seconds "
                                                       "(default 5)")->check(CLI::PositiveNumber);
    command->callback([options, command, &action] {
        settle_transform_options(options->transform);
        finish_source_options(*command, options->source);
        action = [options] { return run_stream_command(*options); };
    });
}

}  // namespace ksi_cli
