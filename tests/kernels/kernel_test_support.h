// Frames, output buffers, calibration sets and comparisons shared by the
// kernel tests, the emulator check and nothing else. Nothing here calls the
// library, so the helpers serve executables that link the shared object as
// well as those that link the internal library.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "four_lane_reference.h"
#include "kernels/polarization_computation_arguments.h"

namespace kernel_test_support {

// Bit i set: slot i present (0 normalized pair, 1 S0, 2 S1, 3 S2, 4 azimuth,
// 5 DoLP).
using Slot_set = unsigned;
constexpr Slot_set all_slots = 0x3Fu;
constexpr Slot_set slot_bit(unsigned slot) { return 1u << slot; }
std::string slot_set_name(Slot_set slots);
const char* slot_name(unsigned slot);

struct Frame {
    unsigned rows = 0;
    unsigned columns = 0;
    std::vector<std::uint16_t> pixels;  // exactly rows x columns, so that a sanitizer sees any over-read

    Frame(unsigned rows, unsigned columns, std::uint16_t value = 0);
    std::uint16_t& at(unsigned row, unsigned column) { return pixels[std::size_t(row) * columns + column]; }
    std::uint16_t at(unsigned row, unsigned column) const { return pixels[std::size_t(row) * columns + column]; }
};

// Output buffers of the present slots, prefilled with a sentinel and followed
// by a guard zone that must survive every call. `image_offset` guarded
// elements precede each 16-bit image, to place the images at any even
// address modulo a cache line.
class Frame_outputs {
public:
    Frame_outputs(unsigned rows, unsigned columns, Slot_set slots, std::size_t image_offset = 0);

    unsigned rows() const { return rows_; }
    unsigned columns() const { return columns_; }
    Slot_set slots() const { return slots_; }
    bool has(unsigned slot) const { return (slots_ & slot_bit(slot)) != 0; }

    float* normalized();                        // null when slot 0 is absent
    std::uint16_t* image(unsigned slot);        // slots 1 to 5; null when absent
    float normalized_at(unsigned row, unsigned column, unsigned element) const;
    std::uint16_t image_at(unsigned slot, unsigned row, unsigned column) const;
    std::uint16_t& image_element(unsigned slot, unsigned row, unsigned column);
    bool guards_intact() const;

private:
    std::size_t image_index(unsigned row, unsigned column) const
    {
        return image_offset_ + std::size_t(row) * columns_ + column;
    }

    unsigned rows_;
    unsigned columns_;
    Slot_set slots_;
    std::size_t image_offset_;
    std::vector<float> normalized_;
    std::array<std::vector<std::uint16_t>, 6> images_;  // index = slot, 0 unused
};

constexpr std::size_t guard_elements = 32;
constexpr std::uint16_t image_sentinel = 0xA5C3;
constexpr std::uint32_t normalized_sentinel_bits = 0x7FA5C3A5u;
constexpr std::uint16_t guard_value = 0x5A3C;

// The record the transform would build for these buffers.
Polarization_computation_arguments make_arguments(const Frame& frame, Frame_outputs& outputs, std::int32_t polar_phase,
                                                  std::uint32_t bit_depth, std::uint16_t output_maximum);
bool is_native_scale(std::uint32_t bit_depth, std::uint16_t output_maximum);

// Calibration matrices by polarizer angle, as set and get see them.
using Matrix = std::array<float, 16>;
struct Angle_matrices {
    Matrix matrix_0, matrix_45, matrix_90, matrix_135;
};
Angle_matrices default_angle_matrices();
Angle_matrices scaled(const Angle_matrices& matrices, float factor);
Angle_matrices random_angle_matrices(std::mt19937& random, bool with_non_finite);
// The set a processor hands to the kernels of a phase: matrices by row and
// column parity of the pixel. Points into `matrices`.
Calibration_matrices matrices_of_phase(const Angle_matrices& matrices, std::int32_t polar_phase);
Calibration_matrices matrices_of_phase(const Angle_matrices&& matrices, std::int32_t polar_phase) = delete;

// The phase of the region's first pixel, from the sensor phase and the
// parity of the region's origin (remainders truncated toward zero).
std::int32_t rebased_phase(std::int32_t polar_phase, std::int32_t origin_x, std::int32_t origin_y);

// Random frames. Several textures, chosen by the generator, so that zero
// quartets, equal neighbours, saturated and sparse values all occur.
enum class Texture { uniform, full_range, sparse, flat, gradient, mixed };
Frame random_frame(std::mt19937& random, unsigned rows, unsigned columns, std::uint32_t bit_depth, Texture texture);
Texture random_texture(std::mt19937& random);
const char* texture_name(Texture texture);

// One randomised frame: everything a kernel depends on.
struct Frame_case {
    unsigned rows = 0, columns = 0;
    std::int32_t phase = 0;  // the record's phase (after re-basing)
    std::uint32_t bit_depth = 12;
    std::uint16_t output_maximum = 4095;
    Slot_set slots = all_slots;
    int matrices_kind = 0;  // 0 default, 1 random, 2 random with non-finite weights
    Texture texture = Texture::uniform;
    std::uint32_t seed = 0;

    std::string describe() const;
    Frame frame() const;
    Angle_matrices angle_matrices() const;
};

// An output maximum for a bit depth: often the native one, often a common
// value, sometimes any.
std::uint16_t random_output_maximum(std::mt19937& random, std::uint32_t bit_depth);
// Phase 0 to 3, any bit depth, slot set, matrices and texture.
Frame_case random_case(std::mt19937& random, unsigned rows, unsigned columns);

// Pixel-by-pixel comparison of every present slot. Slot 0 is compared bit
// for bit, except that any not-a-number equals any other; slots 1 to 5 must
// be equal. The report names the first mismatches with their positions and
// whether the block owns the pixel.
struct Comparison {
    bool equal = true;
    std::size_t mismatches = 0;
    std::string report;
};
Comparison compare_outputs(const Frame_outputs& expected, const Frame_outputs& actual, const std::string& context);

// Copies the block pixels of every present slot from `source` into `target`.
void copy_block_pixels(const Frame_outputs& source, Frame_outputs& target);

// Is this machine's SSE4.1 flag set, by CPUID leaf 1 ECX bit 19.
bool cpuid_reports_sse41();

// The SSE4.1 tests fail, rather than skip, on a processor without it.
#define REQUIRE_SSE41()                                                                                   \
    ASSERT_TRUE(__builtin_cpu_supports("sse4.1"))                                                         \
        << "this test exercises the SSE4.1 kernels and must run on a processor with SSE4.1";             \
    ASSERT_TRUE(kernel_test_support::cpuid_reports_sse41())

// The bits of a single-precision value.
std::uint32_t bits_of(float value);
bool cpuid_reports_avx2();

// Number of repetitions of the randomised tests; smaller under sanitizers.
unsigned scaled_iterations(unsigned release_count);

}  // namespace kernel_test_support
