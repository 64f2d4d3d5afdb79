#include "color_frame_transform.h"

#include "intensity_range.h"
#include "stokes_combination.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

// The per-colour images and the planes each sums.
struct Color_channel {
    Output aolp;
    Output dolp;
    std::vector<Color_plane> planes;
};

const std::array<Color_channel, 3> color_channels{{
    {Output::aolp_r, Output::dolp_r, {Color_plane::red}},
    {Output::aolp_g, Output::dolp_g, {Color_plane::green1, Color_plane::green2}},
    {Output::aolp_b, Output::dolp_b, {Color_plane::blue}},
}};

bool needs_stokes(Output_set images)
{
    for (Output output : {Output::aolp, Output::dolp, Output::imin, Output::imax, Output::aolp_r, Output::aolp_g,
                          Output::aolp_b, Output::dolp_r, Output::dolp_g, Output::dolp_b})
        if (images.contains(output))
            return true;
    return false;
}

}  // namespace

Color_frame_transform::Color_frame_transform(const kp::Processor& processor) : processor_(processor) {}

const std::vector<std::uint16_t>& Color_frame_transform::image(Output output) const { return images_[index(output)]; }

void Color_frame_transform::transform_plane(const kp::Frame_view& frame, const Color_transform_settings& settings,
                                            Color_plane plane, bool normalized)
{
    Plane_buffers& buffers = planes_[index(plane)];
    const std::size_t count = pixels();
    buffers.pixels.resize(count);
    extract_plane(frame.data, frame.width, layout_, plane, buffers.pixels.data());
    buffers.s0.resize(count);
    kp::Output_views outputs;
    outputs.s0 = {buffers.s0.data(), layout_.plane_width, layout_.plane_height};
    if (normalized) {
        buffers.normalized.resize(2 * count);
        outputs.normalized = {buffers.normalized.data(), layout_.plane_width, layout_.plane_height};
    }
    const Plane_place& place = layout_.place(plane);
    kp::Transform_parameters parameters;
    parameters.phase = settings.phase;
    parameters.origin_x = place.origin_x;
    parameters.origin_y = place.origin_y;
    parameters.bit_depth = settings.bit_depth;
    parameters.output_maximum = settings.output_maximum;
    processor_.transform({buffers.pixels.data(), layout_.plane_width, layout_.plane_height}, parameters, outputs);
}

void Color_frame_transform::transform(const kp::Frame_view& frame, const Color_transform_settings& settings,
                                      Output_set images)
{
    layout_ = color_layout(frame.width, frame.height, settings.origin_x, settings.origin_y, settings.order);
    const bool stokes = needs_stokes(images);
    for (Color_plane plane : every_color_plane)
        transform_plane(frame, settings, plane, stokes);
    combine(images, settings.output_maximum);
}

void Color_frame_transform::combine(Output_set images, std::uint16_t output_maximum)
{
    const std::size_t count = pixels();
    // The glare images are drawn from the combined DoLP.
    if (images.contains(Output::imin) || images.contains(Output::imax))
        images.add(Output::dolp);
    const auto buffer = [&](Output output, std::size_t per_pixel = 1) -> std::uint16_t* {
        if (!images.contains(output))
            return nullptr;
        std::vector<std::uint16_t>& image = images_[index(output)];
        image.resize(per_pixel * count);
        return image.data();
    };
    std::array<const std::uint16_t*, 4> s0;
    std::array<const float*, 4> normalized;
    for (Color_plane plane : every_color_plane) {
        s0[index(plane)] = planes_[index(plane)].s0.data();
        normalized[index(plane)] = planes_[index(plane)].normalized.data();
    }
    const std::size_t red = index(Color_plane::red), green1 = index(Color_plane::green1),
                      green2 = index(Color_plane::green2), blue = index(Color_plane::blue);

    if (std::uint16_t* rgb = buffer(Output::s0_color, 3))
        for (std::size_t i = 0; i < count; ++i, rgb += 3) {
            rgb[0] = s0[red][i];
            rgb[1] = static_cast<std::uint16_t>((s0[green1][i] + s0[green2][i] + 1) / 2);
            rgb[2] = s0[blue][i];
        }
    if (!needs_stokes(images))
        return;

    std::uint16_t* const aolp = buffer(Output::aolp);
    std::uint16_t* const dolp = buffer(Output::dolp);
    std::uint16_t* const imin = buffer(Output::imin);
    std::uint16_t* const imax = buffer(Output::imax);
    for (std::size_t i = 0; i < count; ++i) {
        Stokes_sum sum;
        for (std::size_t plane = 0; plane < 4; ++plane)
            sum.add(s0[plane][i], normalized[plane][2 * i], normalized[plane][2 * i + 1]);
        if (aolp != nullptr)
            aolp[i] = sum.aolp_element(output_maximum);
        if (dolp != nullptr)
            dolp[i] = sum.dolp_element(output_maximum);
        if (imin != nullptr || imax != nullptr) {
            // The mean of the four planes' S0, rounded half up: s0's scale.
            const auto intensity = static_cast<std::uint16_t>(
                (static_cast<std::uint32_t>(s0[red][i]) + s0[green1][i] + s0[green2][i] + s0[blue][i] + 2) / 4);
            if (imin != nullptr)
                imin[i] = intensity_minimum(intensity, dolp[i], output_maximum);
            if (imax != nullptr)
                imax[i] = intensity_maximum(intensity, dolp[i], output_maximum);
        }
    }
    for (const Color_channel& channel : color_channels) {
        std::uint16_t* const channel_aolp = buffer(channel.aolp);
        std::uint16_t* const channel_dolp = buffer(channel.dolp);
        if (channel_aolp == nullptr && channel_dolp == nullptr)
            continue;
        for (std::size_t i = 0; i < count; ++i) {
            Stokes_sum sum;
            for (Color_plane plane : channel.planes)
                sum.add(s0[index(plane)][i], normalized[index(plane)][2 * i], normalized[index(plane)][2 * i + 1]);
            if (channel_aolp != nullptr)
                channel_aolp[i] = sum.aolp_element(output_maximum);
            if (channel_dolp != nullptr)
                channel_dolp[i] = sum.dolp_element(output_maximum);
        }
    }
}

}  // namespace ksi_cli
