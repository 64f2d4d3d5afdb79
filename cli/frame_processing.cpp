#include "frame_processing.h"

#include <time.h>

#include <utility>

#include "color_pictures.h"
#include "image_writing.h"
#include "intensity_range.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

// Sizes the buffer when wanted (reusing its storage), and views it; an
// unwanted output gets a null view and is not computed.
template <class Element>
kp::Image_view<Element> view(bool wanted, std::vector<Element>& buffer, const Frame& frame, std::size_t per_pixel = 1)
{
    if (!wanted)
        return {};
    buffer.resize(frame.pixels.size() * per_pixel);
    return {buffer.data(), frame.width, frame.height};
}

}  // namespace

double thread_cpu_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec + now.tv_nsec * 1e-9;
}

Stage_times& Stage_times::operator+=(const Stage_times& other)
{
    decode += other.decode;
    transform += other.transform;
    pictures += other.pictures;
    encode += other.encode;
    return *this;
}

Frame_processor::Frame_processor(const kp::Processor& processor, Frame_settings settings)
    : processor_(processor), settings_(std::move(settings))
{
    if (settings_.sensor == Sensor::color)
        color_ = std::make_unique<Color_frame_transform>(processor_);
}

void Frame_processor::transform(const Frame& frame)
{
    const std::uint32_t bit_depth =
        settings_.bit_depth >= 0 ? static_cast<std::uint32_t>(settings_.bit_depth) : frame.bit_depth;
    if (!color_) {
        transform_mono(frame, bit_depth);
        return;
    }
    Output_set images = settings_.outputs;
    // The pictures are drawn from the angle and degree images.
    if (images.contains(Output::aolp_color))
        images.add(Output::aolp);
    if (images.contains(Output::aolp_color) || images.contains(Output::dolp_color))
        images.add(Output::dolp);
    const Color_transform_settings color{settings_.phase,       settings_.origin_x, settings_.origin_y,
                                         settings_.color_order, bit_depth,          settings_.output_maximum};
    color_->transform({frame.pixels.data(), frame.width, frame.height}, color, images);
    output_width_ = color_->layout().plane_width;
    output_height_ = color_->layout().plane_height;
}

void Frame_processor::transform_mono(const Frame& frame, std::uint32_t bit_depth)
{
    const Output_set& wanted = settings_.outputs;
    // The pictures are drawn from the azimuth and DoLP images, the glare
    // images from S0 and DoLP.
    const bool glare = wanted.contains(Output::imin) || wanted.contains(Output::imax);
    const bool azimuth = wanted.contains(Output::aolp) || wanted.contains(Output::aolp_color);
    const bool dolp = wanted.contains(Output::dolp) || wanted.contains(Output::aolp_color) ||
                      wanted.contains(Output::dolp_color) || glare;
    kp::Output_views outputs;
    outputs.normalized = view(wanted.contains(Output::normalized), normalized_, frame, 2);
    outputs.s0 = view(wanted.contains(Output::s0) || glare, s0_, frame);
    outputs.s1 = view(wanted.contains(Output::s1), s1_, frame);
    outputs.s2 = view(wanted.contains(Output::s2), s2_, frame);
    outputs.azimuth = view(azimuth, azimuth_, frame);
    outputs.dolp = view(dolp, dolp_, frame);

    kp::Transform_parameters parameters;
    parameters.phase = settings_.phase;
    parameters.origin_x = settings_.origin_x;
    parameters.origin_y = settings_.origin_y;
    parameters.bit_depth = bit_depth;
    parameters.output_maximum = settings_.output_maximum;
    processor_.transform({frame.pixels.data(), frame.width, frame.height}, parameters, outputs);
    output_width_ = frame.width;
    output_height_ = frame.height;
    if (glare) {
        const std::size_t pixels = frame.pixels.size();
        if (wanted.contains(Output::imin))
            imin_.resize(pixels);
        if (wanted.contains(Output::imax))
            imax_.resize(pixels);
        paint_intensity_range(s0_.data(), dolp_.data(), pixels, settings_.output_maximum,
                              wanted.contains(Output::imin) ? imin_.data() : nullptr,
                              wanted.contains(Output::imax) ? imax_.data() : nullptr);
    }
}

const std::vector<std::uint16_t>& Frame_processor::image(Output output) const
{
    if (color_)
        return color_->image(output);
    switch (output) {
    case Output::s0: return s0_;
    case Output::s1: return s1_;
    case Output::s2: return s2_;
    case Output::aolp: return azimuth_;
    case Output::imin: return imin_;
    case Output::imax: return imax_;
    default: return dolp_;
    }
}

const std::vector<std::uint8_t>& Frame_processor::picture(Output output) const
{
    return output == Output::aolp_color ? aolp_color_ : dolp_color_;
}

void Frame_processor::paint_pictures(Output_set outputs)
{
    const std::size_t pixels = output_pixels();
    if (outputs.contains(Output::aolp_color)) {
        aolp_color_.resize(3 * pixels);
        paint_aolp_color(image(Output::aolp).data(), image(Output::dolp).data(), pixels, settings_.output_maximum,
                         aolp_color_.data());
    }
    if (outputs.contains(Output::dolp_color)) {
        dolp_color_.resize(3 * pixels);
        paint_dolp_color(image(Output::dolp).data(), pixels, settings_.output_maximum, dolp_color_.data());
    }
}

std::vector<std::filesystem::path> Frame_processor::write_outputs(const std::string& stem, Output_set outputs)
{
    const std::int32_t width = output_width_, height = output_height_;
    std::vector<Staged_file> staged;
    for (Output output : every_output) {
        if (!outputs.contains(output))
            continue;
        staged.emplace_back(output_path(settings_.directory, stem, output, settings_.format));
        Staged_file& file = staged.back();
        switch (output) {
        case Output::normalized: write_float_pairs_tiff(file, normalized_.data(), width, height); break;
        case Output::aolp_color:
        case Output::dolp_color: write_rgb8_png(file, picture(output).data(), width, height); break;
        case Output::s0_color: write_rgb16(file, settings_.format, image(output).data(), width, height); break;
        default: write_gray16(file, settings_.format, image(output).data(), width, height); break;
        }
    }
    // Every file is complete before the first takes its name; should a
    // rename still fail, the ones already renamed go too.
    std::vector<std::filesystem::path> written;
    try {
        for (Staged_file& file : staged) {
            file.commit();
            written.push_back(file.final_path());
        }
    } catch (...) {
        std::error_code ignored;
        for (const auto& path : written)
            std::filesystem::remove(path, ignored);
        throw;
    }
    return written;
}

// The frame is the one of the last transform, whose outputs are written.
std::vector<std::filesystem::path> Frame_processor::write(const Frame& /*frame*/, const std::string& stem,
                                                          Output_set outputs)
{
    paint_pictures(outputs);
    return write_outputs(stem, outputs);
}

std::vector<std::filesystem::path> Frame_processor::process(const Frame& frame, const std::string& stem,
                                                            Stage_times& times)
{
    double start = thread_cpu_seconds();
    transform(frame);
    times.transform += thread_cpu_seconds() - start;
    start = thread_cpu_seconds();
    paint_pictures(settings_.outputs);
    times.pictures += thread_cpu_seconds() - start;
    start = thread_cpu_seconds();
    auto written = write_outputs(stem, settings_.outputs);
    times.encode += thread_cpu_seconds() - start;
    return written;
}

}  // namespace ksi_cli
