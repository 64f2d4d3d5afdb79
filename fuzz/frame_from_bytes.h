// One frame for the kernels, read from fuzz input: size, phase, scale, slot
// set, calibration matrices (NaN and infinities included) and pixels, with
// exact-size output buffers for the present slots.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kernels/polarization_computation_arguments.h"
#include "scalar_reference.h"

namespace ksi_fuzz {

using Matrix = ksi_reference::Matrix;

struct Fuzzed_frame;

// Buffers of exactly the frame's size for the present slots; absent slots
// have none.
struct Output_buffers {
    std::vector<float> normalized;
    std::array<std::vector<std::uint16_t>, 6> images;  // index 1 to 5

    explicit Output_buffers(const Fuzzed_frame& frame);
};

struct Fuzzed_frame {
    unsigned rows = 2;
    unsigned columns = 2;
    std::int32_t polar_phase = 0;  // of the region's first pixel; anything but 1, 2, 3 acts as 0
    std::uint32_t bit_depth = 12;
    std::uint16_t output_maximum = 4095;
    unsigned slots = 0x3F;
    std::array<Matrix, 4> by_polarizer{};
    bool custom_matrices = false;
    std::vector<std::uint16_t> input;

    bool has(unsigned slot) const { return (slots & (1u << slot)) != 0; }
    std::size_t pixels() const { return std::size_t(rows) * columns; }

    Polarization_computation_arguments record(Output_buffers& outputs) const
    {
        Polarization_computation_arguments arguments{};
        arguments.rows = rows;
        arguments.columns = columns;
        arguments.polar_phase = polar_phase;
        arguments.input = input.data();
        arguments.bit_depth = bit_depth;
        arguments.input_maximum = float(ksi_reference::input_maximum_integer(bit_depth));
        arguments.output_maximum = float(output_maximum);
        arguments.output_maximum_integer = output_maximum;
        arguments.normalized_stokes = has(0) ? outputs.normalized.data() : nullptr;
        std::uint16_t** images[6] = {nullptr,
                                     &arguments.s0_image,
                                     &arguments.s1_image,
                                     &arguments.s2_image,
                                     &arguments.azimuth_image,
                                     &arguments.dolp_image};
        for (unsigned slot = 1; slot < 6; ++slot)
            *images[slot] = has(slot) ? outputs.images[slot].data() : nullptr;
        return arguments;
    }

    std::string describe() const
    {
        return std::to_string(rows) + "x" + std::to_string(columns) + " frame, phase " + std::to_string(polar_phase) +
               ", bit depth " + std::to_string(bit_depth) + ", output maximum " + std::to_string(output_maximum) +
               ", slots 0x" + [&] {
                   char text[8];
                   std::snprintf(text, sizeof text, "%02x", slots);
                   return std::string(text);
               }() + (custom_matrices ? ", custom matrices" : ", default matrices");
    }
};

inline Output_buffers::Output_buffers(const Fuzzed_frame& frame)
{
    if (frame.has(0))
        normalized.assign(2 * frame.pixels(), -3.5f);
    for (unsigned slot = 1; slot < 6; ++slot)
        if (frame.has(slot))
            images[slot].assign(frame.pixels(), 0xA5A5);
}

inline float consume_matrix_entry(FuzzedDataProvider& data)
{
    switch (data.ConsumeIntegralInRange(0, 5)) {
    case 0: return float(data.ConsumeIntegralInRange(-1, 1));
    case 1: return data.PickValueInArray({INFINITY, -INFINITY, NAN, 0.0f, -0.0f, 1e-45f, 3.4e38f});
    case 2: return data.ConsumeFloatingPointInRange(-4.0f, 4.0f);
    default: {
        const std::uint32_t bits = data.ConsumeIntegral<std::uint32_t>();
        float entry;
        std::memcpy(&entry, &bits, sizeof entry);
        return entry;
    }
    }
}

inline Fuzzed_frame consume_frame(FuzzedDataProvider& data, unsigned largest_side = 64)
{
    Fuzzed_frame frame;
    frame.rows = data.ConsumeIntegralInRange(2u, largest_side);
    frame.columns = data.ConsumeIntegralInRange(2u, largest_side);
    frame.polar_phase = data.ConsumeBool() ? data.ConsumeIntegralInRange(0, 3) : data.ConsumeIntegral<std::int32_t>();
    frame.bit_depth = data.ConsumeIntegralInRange(0u, 16u);
    frame.output_maximum =
        data.ConsumeBool() && frame.bit_depth > 0 ? std::uint16_t((1u << frame.bit_depth) - 1u)  // native scale
                                                  : std::uint16_t(data.ConsumeIntegralInRange(1, 65535));
    frame.slots = data.ConsumeIntegralInRange(1u, 63u);
    for (int polarizer = 0; polarizer < 4; ++polarizer)
        frame.by_polarizer[polarizer] = ksi_reference::default_matrix(polarizer);
    if ((frame.custom_matrices = data.ConsumeBool()))
        for (Matrix& matrix : frame.by_polarizer)
            for (int entry = 0; entry < 12; ++entry)  // the fourth row is read by nothing
                matrix[entry] = consume_matrix_entry(data);

    frame.input.resize(frame.pixels());
    const int texture = data.ConsumeIntegralInRange(0, 3);
    std::mt19937 random(data.ConsumeIntegral<std::uint32_t>());
    const std::uint32_t top = frame.bit_depth == 16 || data.ConsumeBool() ? 0xFFFFu : (1u << frame.bit_depth) - 1u;
    for (std::uint16_t& pixel : frame.input) {
        switch (texture) {
        case 0: pixel = data.ConsumeIntegral<std::uint16_t>(); break;  // the input's own bytes, then zeros
        case 1: pixel = std::uint16_t(random() % (top + 1)); break;
        case 2: pixel = std::uint16_t(random() % 4 == 0 ? random() % (top + 1) : 0); break;  // sparse
        default: pixel = std::uint16_t(top - random() % 3); break;  // near saturation
        }
    }
    return frame;
}

// The matrices of the frame's phase by pixel position, and the record of
// pointers to them that the kernels take.
struct Positional_matrices {
    std::array<Matrix, 4> matrices;

    explicit Positional_matrices(const Fuzzed_frame& frame)
        : matrices(ksi_reference::matrices_for_phase(frame.by_polarizer, frame.polar_phase))
    {
    }
    Positional_matrices(const Positional_matrices&) = delete;

    Calibration_matrices pointers() const { return {&matrices[0], &matrices[1], &matrices[2], &matrices[3]}; }
};

// Slot 0 elements compare bit for bit, except that any NaN equals any NaN.
inline bool same_elements(const std::vector<float>& expected, const std::vector<float>& actual, std::size_t at,
                          std::size_t count)
{
    for (std::size_t i = at; i < at + count; ++i)
        if (!ksi_reference::same_normalized(expected[i], actual[i]))
            return false;
    return true;
}

}  // namespace ksi_fuzz
