// ksi-polarization stream: a live camera's frames transformed as they
// arrive, until a frame count, a duration, or Ctrl-C.
#include <arv.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <thread>

#include "camera.hpp"
#include "stream_engine.hpp"
#include "stream_outputs.hpp"
#include "subcommands.h"
#include "transform_options.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

struct Stream_options {
    Transform_options transform;
    std::string camera;
    bool simulated = false;
    std::optional<std::string> pixel_format;
    std::optional<Region> region;
    std::optional<double> frame_rate;
    std::uint64_t frames = 0;
    double seconds = 0;
    std::optional<std::filesystem::path> record;
    std::uint64_t every = 1;
    std::optional<std::filesystem::path> preview;
    unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    unsigned buffers = 0;
    double timeout = 5;
};

std::atomic<bool> stop_requested{false};

extern "C" void request_stop(int) { stop_requested.store(true); }

// SIGINT and SIGTERM end the stream cleanly while it runs; the previous
// handlers come back afterwards.
class Stop_signals {
public:
    Stop_signals()
    {
        static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");
        stop_requested.store(false);
        struct sigaction action {};
        action.sa_handler = request_stop;
        // Aravis's own threads may take the signal in a system call.
        action.sa_flags = SA_RESTART;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &previous_interrupt_);
        sigaction(SIGTERM, &action, &previous_terminate_);
    }
    ~Stop_signals()
    {
        sigaction(SIGINT, &previous_interrupt_, nullptr);
        sigaction(SIGTERM, &previous_terminate_, nullptr);
    }
    Stop_signals(const Stop_signals&) = delete;
    Stop_signals& operator=(const Stop_signals&) = delete;

private:
    struct sigaction previous_interrupt_ {};
    struct sigaction previous_terminate_ {};
};

int stream_from(Camera& camera, const Stream_options& options)
{
    if (options.region)
        camera.set_region(*options.region);
    if (options.frame_rate)
        camera.set_frame_rate(*options.frame_rate);
    const Pixel_format format = camera.select_pixel_format(options.pixel_format);

    std::optional<Recording> recording;
    if (options.record) {
        std::error_code error;
        std::filesystem::create_directories(*options.record, error);
        if (error)
            throw Camera_error("cannot create the recording directory " + options.record->string() + ": " +
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
    settings.status_line = isatty(STDERR_FILENO) != 0;

    kp::Module module;
    kp::Processor processor;
    if (options.transform.calibration)
        processor.set_calibration(*options.transform.calibration);

    Stream_summary summary;
    {
        const Stop_signals signals;
        summary = run_stream(camera, format, settings, processor, std::ref(outputs), stop_requested);
    }
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
    if (options.simulated)
        include_simulated_cameras();
    int status = exit_failure;
    try {
        Camera camera(options.camera);
        status = stream_from(camera, options);
    } catch (const Camera_error& error) {
        std::fprintf(stderr, "ksi-polarization: %s\n", error.what());
    }
    // Aravis's own threads and caches go before the process ends.
    arv_shutdown();
    return status;
}

Region parse_region(const std::string& text)
{
    int x = 0, y = 0, width = 0, height = 0;
    char end = 0;
    if (std::sscanf(text.c_str(), "%d,%d,%d,%d%c", &x, &y, &width, &height, &end) != 4 || x < 0 || y < 0 ||
        width < 2 || height < 2)
        throw CLI::ValidationError("--region", "'" + text +
                                                   "' is not X,Y,WIDTH,HEIGHT (offsets 0 or more, sizes 2 or more)");
    return {x, y, width, height};
}

}  // namespace

void add_stream_subcommand(CLI::App& application, Subcommand_action& action)
{
    auto options = std::make_shared<Stream_options>();
    CLI::App* command = application.add_subcommand(
        "stream", "Transform a live camera's frames as they arrive (GenICam cameras through Aravis)");
    command->add_option("--camera", options->camera, "Camera id, as `ksi-polarization cameras` lists it, or an "
                                                     "address of a GigE Vision camera")
        ->required();
    add_transform_options(*command, options->transform);
    // Recordings go to --record DIR; the origin defaults to the camera's
    // region offsets rather than 0,0.
    command->remove_option(command->get_option("--output-directory"));
    command->get_option("--origin")
        ->description("Sensor column and row of the frame's first pixel (default: the camera's OffsetX,OffsetY)");
    command->get_option("--bit-depth")
        ->description("Significant bits of a pixel (default: the pixel format's: 8, 10, 12 or 16)");
    command->add_flag("--simulated", options->simulated, "Also look for Aravis's simulated camera Fake_1");
    command->add_option_function<std::string>(
        "--pixel-format", [options](const std::string& name) { options->pixel_format = name; },
        "Ask the camera for this format: Mono8, Mono10, Mono12, Mono16, Mono12Packed or Mono12p (default: the "
        "one it delivers, if monochrome)");
    command->add_option_function<std::string>(
        "--region", [options](const std::string& text) { options->region = parse_region(text); },
        "Set the camera's region of interest")->type_name("X,Y,WIDTH,HEIGHT");
    command->add_option_function<double>(
        "--frame-rate", [options](double rate) { options->frame_rate = rate; },
        "Set the camera's acquisition frame rate")->check(CLI::PositiveNumber);
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
    command->callback([options, &action] {
        settle_transform_options(options->transform);
        action = [options] { return run_stream_command(*options); };
    });
}

}  // namespace ksi_cli
