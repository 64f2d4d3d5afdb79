#include "stream_outputs.hpp"

#include <chrono>
#include <cstdio>

#include "color_pictures.h"
#include "image_writing.h"

namespace ksi_cli {

namespace {

std::int64_t steady_nanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Stream_outputs::Stream_outputs(std::optional<Recording> recording, std::optional<std::filesystem::path> preview,
                               std::uint16_t output_maximum)
    : recording_(std::move(recording)), preview_(std::move(preview)), output_maximum_(output_maximum)
{
}

Frame_settings Stream_outputs::frame_settings(Frame_settings requested) const
{
    if (recording_) {
        requested.directory = recording_->directory;
        requested.outputs = recording_->outputs;
    }
    if (preview_)
        requested.outputs.add(Output::aolp_color);
    return requested;
}

std::string Stream_outputs::stem(std::uint64_t number)
{
    char stem[32];
    std::snprintf(stem, sizeof stem, "frame_%08llu", static_cast<unsigned long long>(number));
    return stem;
}

void Stream_outputs::operator()(const Transformed_frame& frame)
{
    if (recording_ && frame.number % recording_->every == 0)
        frame.outputs.write(frame.frame, stem(frame.number), recording_->outputs);
    if (preview_)
        write_preview(frame);
}

// One thread at a time claims the next second; the others go on.
void Stream_outputs::write_preview(const Transformed_frame& frame)
{
    std::int64_t due = next_preview_.load();
    const std::int64_t now = steady_nanoseconds();
    if (now < due || !next_preview_.compare_exchange_strong(due, now + 1000000000))
        return;
    const std::lock_guard<std::mutex> lock(preview_mutex_);
    // The outputs' size: a colour sensor's are half the frame's.
    const std::size_t pixels = frame.outputs.output_pixels();
    // Sized by the first preview; every frame of a stream has the same size.
    preview_rgb_.resize(3 * pixels);
    paint_aolp_color(frame.outputs.image(Output::aolp).data(), frame.outputs.image(Output::dolp).data(), pixels,
                     output_maximum_, preview_rgb_.data());
    Staged_file file(*preview_);
    write_rgb8_png(file, preview_rgb_.data(), frame.outputs.output_width(), frame.outputs.output_height());
    file.commit();
}

}  // namespace ksi_cli
