// ksi-polarization process: files and directories of raw mosaics in, the
// requested polarization images out, one frame per thread at a time.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <time.h>

#include "image_reading.h"
#include "input_files.h"
#include "progress_display.h"
#include "subcommands.h"
#include "transform_options.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

struct Process_options {
    Transform_options transform;
    Input_options input;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
};

void report(Progress_display& progress, const std::string& what, const std::string& reason)
{
    progress.report_error("ksi-polarization: " + what + ": " + reason);
}

std::string refusal_reason(const kp::Status_error& error)
{
    const bool too_small = error.status() == status_invalid_width || error.status() == status_invalid_height;
    return std::string(too_small ? "too small for the library (" : "refused by the library (") + error.what() + ")";
}

struct Batch_totals {
    std::atomic<std::size_t> succeeded{0};
    std::atomic<std::size_t> failed{0};
    std::atomic<std::uint64_t> pixels{0};
};

void work_through(const std::vector<std::filesystem::path>& files, std::atomic<std::size_t>& next,
                  const kp::Processor& processor, const Process_options& options, Progress_display& progress,
                  Batch_totals& totals, Stage_times& times)
{
    Frame frame;
    Frame_processor frame_processor(processor, options.transform.settings);
    for (std::size_t index; (index = next++) < files.size();) {
        const std::filesystem::path& file = files[index];
        try {
            const double start = thread_cpu_seconds();
            read_frame(file, options.input.raw, frame);
            times.decode += thread_cpu_seconds() - start;
            frame_processor.process(frame, file.stem().string(), times);
            totals.pixels += frame.pixels.size();
            ++totals.succeeded;
        } catch (const Input_error& error) {
            report(progress, file.string(), error.what());
            ++totals.failed;
        } catch (const kp::Status_error& error) {
            report(progress, file.string(), refusal_reason(error));
            ++totals.failed;
        } catch (const std::exception& error) {
            report(progress, file.string(), error.what());
            ++totals.failed;
        }
        progress.frame_done();
    }
}

int run_process(const Process_options& options)
{
    std::vector<std::string> problems;
    const std::vector<std::filesystem::path> files = expand_inputs(options.input, problems);
    // Before the progress bar exists, so written directly.
    for (const std::string& problem : problems)
        std::fprintf(stderr, "ksi-polarization: %s\n", problem.c_str());
    const bool failed = !problems.empty();

    const std::filesystem::path& directory = options.transform.settings.directory;
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        std::fprintf(stderr, "ksi-polarization: cannot create the output directory %s: %s\n", directory.c_str(),
                     error.message().c_str());
        return exit_failure;
    }

    kp::Module module;
    kp::Processor processor;
    if (options.transform.calibration)
        processor.set_calibration(*options.transform.calibration);

    const unsigned threads = static_cast<unsigned>(std::min<std::size_t>(options.jobs, std::max<std::size_t>(1, files.size())));
    Progress_display progress(files.size());
    Batch_totals totals;
    std::vector<Stage_times> times(threads);
    std::atomic<std::size_t> next{0};
    const auto start = std::chrono::steady_clock::now();
    {
        std::vector<std::thread> workers;
        for (unsigned worker = 1; worker < threads; ++worker)
            workers.emplace_back(work_through, std::cref(files), std::ref(next), std::cref(processor),
                                 std::cref(options), std::ref(progress), std::ref(totals),
                                 std::ref(times[worker]));
        work_through(files, next, processor, options, progress, totals, times[0]);
        for (std::thread& worker : workers)
            worker.join();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.finish();

    Stage_times total;
    for (const Stage_times& worker_times : times)
        total += worker_times;
    const double megapixels = totals.pixels / 1e6;
    timespec process_time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &process_time);
    std::printf("%zu of %zu frames done (%zu failed), %.1f Mpixel in %.2f s: transforms %.1f Mpixel/s, whole run "
                "%.1f Mpixel/s; %u threads, processor time %.2f s: decode %.2f s, transform %.2f s, pictures %.2f s, "
                "encode %.2f s\n",
                totals.succeeded.load(), files.size(), totals.failed.load(), megapixels, seconds,
                total.transform > 0 ? megapixels / total.transform : 0.0, seconds > 0 ? megapixels / seconds : 0.0,
                threads, process_time.tv_sec + process_time.tv_nsec * 1e-9, total.decode, total.transform,
                total.pictures, total.encode);
    return failed || totals.failed > 0 ? exit_failure : exit_success;
}

}  // namespace

void add_process_subcommand(CLI::App& application, Subcommand_action& action)
{
    auto options = std::make_shared<Process_options>();
    CLI::App* command = application.add_subcommand(
        "process", "Turn raw mosaics (PNG, TIFF, PGM or raw dumps) into polarization images");
    add_transform_options(*command, options->transform);
    command->add_option("-j,--jobs", options->jobs, "Frames processed at once, one per thread (default: all cores)")
        ->check(CLI::Range(1, 1024));
    add_input_options(*command, options->input, true);
    command->callback([options, &action] {
        settle_transform_options(options->transform);
        finish_input_options(options->input);
        action = [options] { return run_process(*options); };
    });
}

}  // namespace ksi_cli
