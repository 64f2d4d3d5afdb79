// One frame of a colour polarization sensor into its half-resolution
// outputs: the four colour planes are copied out of the frame, each is
// transformed by the library as a polarization mosaic of its own (so every
// per-plane value is the library's), and the planes' S0 and normalized
// pairs are combined (stokes_combination.h).
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "color_layout.h"
#include "kestrion_ksi_polarization_processor.hpp"
#include "output_naming.h"

namespace ksi_cli {

struct Color_transform_settings {
    kestrion::polarization::Phase phase = kestrion::polarization::Phase::degrees_0;
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
    Color_order order = Color_order::rggb;
    std::uint32_t bit_depth = 16;
    std::uint16_t output_maximum = 65535;
};

// Not shared between threads; the processor is.
class Color_frame_transform {
public:
    explicit Color_frame_transform(const kestrion::polarization::Processor& processor);

    // Computes the images among `images` (s0_color, aolp, dolp, imin, imax
    // and the per-colour ones; others are ignored) into buffers kept from
    // frame to frame. Throws Color_layout_error when the frame has no colour
    // layout, Status_error when the library refuses a plane.
    void transform(const kestrion::polarization::Frame_view& frame, const Color_transform_settings& settings,
                   Output_set images);

    // Of the last transform.
    const Color_layout& layout() const { return layout_; }
    std::size_t pixels() const
    {
        return static_cast<std::size_t>(layout_.plane_width) * static_cast<std::size_t>(layout_.plane_height);
    }
    // s0_color holds R, G, B per pixel: the S0 of the R and B planes, and
    // (G1 + G2 + 1) / 2 in integers.
    const std::vector<std::uint16_t>& image(Output output) const;
    // The library's outputs for one plane: its S0 always, its normalized
    // pairs when an image other than s0_color was computed.
    const std::vector<std::uint16_t>& plane_s0(Color_plane plane) const { return planes_[index(plane)].s0; }
    const std::vector<float>& plane_normalized(Color_plane plane) const { return planes_[index(plane)].normalized; }

private:
    struct Plane_buffers {
        std::vector<std::uint16_t> pixels;
        std::vector<std::uint16_t> s0;
        std::vector<float> normalized;
    };
    static std::size_t index(Color_plane plane) { return static_cast<std::size_t>(plane); }
    static std::size_t index(Output output) { return static_cast<std::size_t>(output); }

    void transform_plane(const kestrion::polarization::Frame_view& frame, const Color_transform_settings& settings,
                         Color_plane plane, bool normalized);
    void combine(Output_set images, std::uint16_t output_maximum);

    const kestrion::polarization::Processor& processor_;
    Color_layout layout_;
    std::array<Plane_buffers, 4> planes_;
    std::array<std::vector<std::uint16_t>, every_output.size()> images_;
};

}  // namespace ksi_cli
