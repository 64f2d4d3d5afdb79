// The plain records handed to every kernel. They own nothing: the frame and
// output buffers belong to the caller, the matrices to the processor object.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The record is handed by address to the AVX2 extension, a separate shared
// object, so its field order and widths are an interface.
struct Polarization_computation_arguments {
    std::uint32_t rows;
    std::uint32_t columns;
    std::int32_t polar_phase;  // re-based to the region's first pixel
    const std::uint16_t* input;
    std::uint32_t bit_depth;
    float input_maximum;  // 2^bit_depth - 1
    float output_maximum;
    std::uint32_t output_maximum_integer;
    float* normalized_stokes;  // slot 0: S1/S0, S2/S0 per pixel
    std::uint16_t* s0_image;   // slot 1
    std::uint16_t* s1_image;   // slot 2
    std::uint16_t* s2_image;   // slot 3
    std::uint16_t* azimuth_image;  // slot 4
    std::uint16_t* dolp_image;     // slot 5
};

static_assert(offsetof(Polarization_computation_arguments, rows) == 0, "record layout");
static_assert(offsetof(Polarization_computation_arguments, columns) == 4, "record layout");
static_assert(offsetof(Polarization_computation_arguments, polar_phase) == 8, "record layout");
static_assert(offsetof(Polarization_computation_arguments, input) == 16, "record layout");
static_assert(offsetof(Polarization_computation_arguments, bit_depth) == 24, "record layout");
static_assert(offsetof(Polarization_computation_arguments, input_maximum) == 28, "record layout");
static_assert(offsetof(Polarization_computation_arguments, output_maximum) == 32, "record layout");
static_assert(offsetof(Polarization_computation_arguments, output_maximum_integer) == 36, "record layout");
static_assert(offsetof(Polarization_computation_arguments, normalized_stokes) == 40, "record layout");
static_assert(offsetof(Polarization_computation_arguments, s0_image) == 48, "record layout");
static_assert(offsetof(Polarization_computation_arguments, s1_image) == 56, "record layout");
static_assert(offsetof(Polarization_computation_arguments, s2_image) == 64, "record layout");
static_assert(offsetof(Polarization_computation_arguments, azimuth_image) == 72, "record layout");
static_assert(offsetof(Polarization_computation_arguments, dolp_image) == 80, "record layout");
static_assert(sizeof(Polarization_computation_arguments) == 88, "record layout");

using Calibration_matrix = std::array<float, 16>;

// The four matrices of one phase, by the parity of a pixel's row and column
// within the region. A matrix is row-major: row 0 weighs S0, row 1 S1,
// row 2 S2; its columns weigh own, horizontal, vertical and diagonal pixel.
struct Calibration_matrices {
    const Calibration_matrix* even_row_even_column;
    const Calibration_matrix* even_row_odd_column;
    const Calibration_matrix* odd_row_even_column;
    const Calibration_matrix* odd_row_odd_column;
};

static_assert(sizeof(Calibration_matrices) == 32, "record layout");

struct Image_overlay {
    std::uint16_t* pixels;  // null where the slot is absent
    std::uint32_t rows;
    std::uint32_t columns;  // also the row stride in elements

    std::uint16_t* element(unsigned row, unsigned column) const
    {
        return pixels + std::size_t(row) * columns + column;
    }
};

// Indexed views of the input and of slots 1 to 5. Slot 0 holds floats and is
// reached through the record itself.
struct Image_buffer_overlays {
    Image_overlay input;
    Image_overlay s0_image;
    Image_overlay s1_image;
    Image_overlay s2_image;
    Image_overlay azimuth_image;
    Image_overlay dolp_image;

    explicit Image_buffer_overlays(const Polarization_computation_arguments& arguments)
        // The input view is only ever read.
        : input{const_cast<std::uint16_t*>(arguments.input), arguments.rows, arguments.columns},
          s0_image{arguments.s0_image, arguments.rows, arguments.columns},
          s1_image{arguments.s1_image, arguments.rows, arguments.columns},
          s2_image{arguments.s2_image, arguments.rows, arguments.columns},
          azimuth_image{arguments.azimuth_image, arguments.rows, arguments.columns},
          dolp_image{arguments.dolp_image, arguments.rows, arguments.columns}
    {
    }
};
