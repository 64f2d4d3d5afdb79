// One frame in, the requested output files out: the transform into buffers
// kept from frame to frame, the pictures, and the encoding.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "image_reading.h"
#include "kestrion_ksi_polarization_processor.hpp"
#include "output_naming.h"

namespace ksi_cli {

struct Frame_settings {
    kestrion::polarization::Phase phase = kestrion::polarization::Phase::degrees_0;
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
    int bit_depth = -1;  // 0 to 16 overrides the frame's own
    std::uint16_t output_maximum = 65535;
    Output_set outputs;
    Image_format format = Image_format::png;
    std::filesystem::path directory = ".";
};

// Seconds spent in each stage, summed over frames (and threads).
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

    // The transform alone, into the buffers below.
    void transform(const Frame& frame);

    const std::vector<float>& normalized() const { return normalized_; }
    const std::vector<std::uint16_t>& image(Output output) const;
    const std::vector<std::uint8_t>& picture(Output output) const;

private:
    void paint_pictures(std::size_t pixels);
    std::vector<std::filesystem::path> write_outputs(const Frame& frame, const std::string& stem);

    const kestrion::polarization::Processor& processor_;
    Frame_settings settings_;
    std::vector<float> normalized_;
    std::vector<std::uint16_t> s0_, s1_, s2_, azimuth_, dolp_;
    std::vector<std::uint8_t> aolp_color_, dolp_color_;
};

}  // namespace ksi_cli
