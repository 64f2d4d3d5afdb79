// One frame in, the requested output files out: the transform into buffers
// kept from frame to frame, the pictures, and the encoding.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "color_sensor/color_frame_transform.h"
#include "image_reading.h"
#include "kestrion_ksi_polarization_processor.hpp"
#include "output_naming.h"

namespace ksi_cli {

struct Frame_settings {
    Sensor sensor = Sensor::mono;
    Color_order color_order = Color_order::rggb;  // colour sensors: the quartets' filters
    kestrion::polarization::Phase phase = kestrion::polarization::Phase::degrees_0;
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
    int bit_depth = -1;  // 0 to 16 overrides the frame's own
    std::uint16_t output_maximum = 65535;
    Output_set outputs;
    Image_format format = Image_format::png;
    std::filesystem::path directory = ".";
};

// Processor time of the calling thread, in seconds. Stages are timed with
// it rather than the wall clock, so that their split does not depend on what
// else the machine is running.
double thread_cpu_seconds();

// Processor seconds spent in each stage, summed over frames (and threads).
struct Stage_times {
    double decode = 0;
    double transform = 0;
    double pictures = 0;
    double encode = 0;
    Stage_times& operator+=(const Stage_times& other);
};

// Not shared between threads: each worker owns one. The processor is shared.
class Frame_processor {
public:
    Frame_processor(const kestrion::polarization::Processor& processor, Frame_settings settings);

    // Transforms the frame and writes every requested output as
    // <directory>/<stem>_<output>.<extension>; either all files appear or
    // none does. Returns their paths. Throws Status_error when the library
    // refuses the frame, Output_error when a file cannot be written.
    std::vector<std::filesystem::path> process(const Frame& frame, const std::string& stem, Stage_times& times);

    // The transform alone, into the buffers below. A colour sensor's frame
    // without a colour layout throws Color_layout_error.
    void transform(const Frame& frame);

    // Size of the images and pictures of the last transform: the frame's,
    // or for a colour sensor its complete super-pixels' at half resolution.
    std::int32_t output_width() const { return output_width_; }
    std::int32_t output_height() const { return output_height_; }
    std::size_t output_pixels() const
    {
        return static_cast<std::size_t>(output_width_) * static_cast<std::size_t>(output_height_);
    }

    // After transform(): paints the pictures among `outputs` and writes
    // `outputs` (all computed by that transform), as process() does. Live
    // streams transform every frame and write only some, or fewer outputs
    // than they compute.
    std::vector<std::filesystem::path> write(const Frame& frame, const std::string& stem, Output_set outputs);

    const std::vector<float>& normalized() const { return normalized_; }
    // A 16-bit image (s0_color: R, G, B per pixel).
    const std::vector<std::uint16_t>& image(Output output) const;
    const std::vector<std::uint8_t>& picture(Output output) const;

private:
    void transform_mono(const Frame& frame, std::uint32_t bit_depth);
    void paint_pictures(Output_set outputs);
    std::vector<std::filesystem::path> write_outputs(const std::string& stem, Output_set outputs);

    const kestrion::polarization::Processor& processor_;
    Frame_settings settings_;
    std::int32_t output_width_ = 0;
    std::int32_t output_height_ = 0;
    std::vector<float> normalized_;
    std::vector<std::uint16_t> s0_, s1_, s2_, azimuth_, dolp_, imin_, imax_;
    std::vector<std::uint8_t> aolp_color_, dolp_color_;
    std::unique_ptr<Color_frame_transform> color_;  // colour sensors
};

}  // namespace ksi_cli
