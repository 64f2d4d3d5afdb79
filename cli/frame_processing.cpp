#include "frame_processing.h"

#include <chrono>
#include <utility>

#include "color_pictures.h"
#include "image_writing.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

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
}

void Frame_processor::transform(const Frame& frame)
{
    const Output_set& wanted = settings_.outputs;
    // The pictures are drawn from the azimuth and DoLP images.
    const bool azimuth = wanted.contains(Output::aolp) || wanted.contains(Output::aolp_color);
    const bool dolp = wanted.contains(Output::dolp) || wanted.contains(Output::aolp_color) ||
                      wanted.contains(Output::dolp_color);
    kp::Output_views outputs;
    outputs.normalized = view(wanted.contains(Output::normalized), normalized_, frame, 2);
    outputs.s0 = view(wanted.contains(Output::s0), s0_, frame);
    outputs.s1 = view(wanted.contains(Output::s1), s1_, frame);
    outputs.s2 = view(wanted.contains(Output::s2), s2_, frame);
    outputs.azimuth = view(azimuth, azimuth_, frame);
    outputs.dolp = view(dolp, dolp_, frame);

    kp::Transform_parameters parameters;
    parameters.phase = settings_.phase;
    parameters.origin_x = settings_.origin_x;
    parameters.origin_y = settings_.origin_y;
    parameters.bit_depth = settings_.bit_depth >= 0 ? static_cast<std::uint32_t>(settings_.bit_depth) : frame.bit_depth;
    parameters.output_maximum = settings_.output_maximum;
    processor_.transform({frame.pixels.data(), frame.width, frame.height}, parameters, outputs);
}

const std::vector<std::uint16_t>& Frame_processor::image(Output output) const
{
    switch (output) {
    case Output::s0: return s0_;
    case Output::s1: return s1_;
    case Output::s2: return s2_;
    case Output::aolp: return azimuth_;
    default: return dolp_;
    }
}

const std::vector<std::uint8_t>& Frame_processor::picture(Output output) const
{
    return output == Output::aolp_color ? aolp_color_ : dolp_color_;
}

void Frame_processor::paint_pictures(std::size_t pixels)
{
    if (settings_.outputs.contains(Output::aolp_color)) {
        aolp_color_.resize(3 * pixels);
        paint_aolp_color(azimuth_.data(), dolp_.data(), pixels, settings_.output_maximum, aolp_color_.data());
    }
    if (settings_.outputs.contains(Output::dolp_color)) {
        dolp_color_.resize(3 * pixels);
        paint_dolp_color(dolp_.data(), pixels, settings_.output_maximum, dolp_color_.data());
    }
}

std::vector<std::filesystem::path> Frame_processor::write_outputs(const Frame& frame, const std::string& stem)
{
    std::vector<Staged_file> staged;
    for (Output output : every_output) {
        if (!settings_.outputs.contains(output))
            continue;
        staged.emplace_back(output_path(settings_.directory, stem, output, settings_.format));
        Staged_file& file = staged.back();
        switch (output) {
        case Output::normalized: write_float_pairs_tiff(file, normalized_.data(), frame.width, frame.height); break;
        case Output::aolp_color:
        case Output::dolp_color: write_rgb8_png(file, picture(output).data(), frame.width, frame.height); break;
        default: write_gray16(file, settings_.format, image(output).data(), frame.width, frame.height); break;
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

std::vector<std::filesystem::path> Frame_processor::process(const Frame& frame, const std::string& stem,
                                                            Stage_times& times)
{
    auto start = Clock::now();
    transform(frame);
    times.transform += seconds_since(start);
    start = Clock::now();
    paint_pictures(frame.pixels.size());
    times.pictures += seconds_since(start);
    start = Clock::now();
    auto written = write_outputs(frame, stem);
    times.encode += seconds_since(start);
    return written;
}

}  // namespace ksi_cli
