// Helpers shared by the core tests: module sessions, processors, random
// frames, output buffers with guard zones, and comparison against the scalar
// reference with readable mismatch reports.
//
// Uses the public C interface only, so executables linked against the shared
// object and against the internal library can both include it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kestrion_ksi_polarization_processor.h"
#include "scalar_reference.h"

namespace core_test {

using ksi_reference::Matrix;
using Matrix_set = std::array<Matrix, 4>;

// Sanitized builds run the same comparisons on fewer random cases.
#ifdef KSI_CORE_TESTS_SANITIZED
constexpr int iteration_divisor = 3;
#else
constexpr int iteration_divisor = 1;
#endif
inline int scaled_iterations(int release_count) { return std::max(1, release_count / iteration_divisor); }

// ---------------------------------------------------------------------------
// Module and processor.

class Module_session {
public:
    Module_session() { EXPECT_EQ(kl_polarization_processor_module_initialize(), status_success); }
    ~Module_session() { kl_polarization_processor_module_terminate(); }
    Module_session(const Module_session&) = delete;
    Module_session& operator=(const Module_session&) = delete;
};

class Processor {
public:
    Processor()
    {
        const int status = kl_polarization_processor_create_polarization_processor(&handle_);
        EXPECT_EQ(status, status_success);
        EXPECT_NE(handle_, nullptr);
    }
    ~Processor()
    {
        if (handle_ != nullptr)
            kl_polarization_processor_destroy_polarization_processor(handle_);
    }
    Processor(const Processor&) = delete;
    Processor& operator=(const Processor&) = delete;

    void* handle() const { return handle_; }

    int set(const Matrix_set& by_polarizer) const
    {
        return kl_polarization_processor_set_custom_calibration_coefficients(
            handle_, by_polarizer[0].data(), by_polarizer[1].data(), by_polarizer[2].data(), by_polarizer[3].data());
    }

    Matrix_set get() const
    {
        Matrix_set m;
        EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(handle_, m[0].data(), m[1].data(),
                                                                                m[2].data(), m[3].data()),
                  status_success);
        return m;
    }

private:
    void* handle_ = nullptr;
};

inline Matrix_set default_matrices()
{
    Matrix_set m;
    for (int p = 0; p < 4; ++p)
        m[p] = ksi_reference::default_matrix(p);
    return m;
}

inline Matrix_set same_matrix_everywhere(const Matrix& matrix) { return {matrix, matrix, matrix, matrix}; }

// A matrix from its three read rows; the fourth row is zero.
inline Matrix matrix_rows(std::array<float, 4> s0, std::array<float, 4> s1, std::array<float, 4> s2)
{
    Matrix m{};
    for (int j = 0; j < 4; ++j) {
        m[j] = s0[j];
        m[4 + j] = s1[j];
        m[8 + j] = s2[j];
    }
    return m;
}

inline bool same_bits(const Matrix& a, const Matrix& b) { return std::memcmp(a.data(), b.data(), sizeof(Matrix)) == 0; }

// ---------------------------------------------------------------------------
// Slots.

constexpr unsigned slot_bit(int slot) { return 1u << slot; }
constexpr unsigned all_slots = 0x3Fu;

inline std::string slot_list(unsigned slots)
{
    std::string text = "{";
    for (int s = 0; s < 6; ++s) {
        if (slots & slot_bit(s)) {
            if (text.size() > 1)
                text += ",";
            text += std::to_string(s);
        }
    }
    return text + "}";
}

// ---------------------------------------------------------------------------
// Output buffers. All six slot buffers live in one allocation, each between
// guard zones; every byte starts at a fill value. Absent slots keep their
// space but get a null pointer, so that any write to them or to a guard zone
// shows as a changed byte.

class Output_arena {
public:
    static constexpr std::size_t guard_bytes = 64;

    Output_arena(std::size_t pixels, unsigned present_slots, unsigned char fill)
        : pixels_(pixels), slots_(present_slots), fill_(fill)
    {
        std::size_t offset = guard_bytes;
        for (int s = 0; s < 6; ++s) {
            offsets_[s] = offset;
            offset += slot_bytes(s) + guard_bytes;
        }
        bytes_.assign(offset, fill);
    }

    std::size_t pixels() const { return pixels_; }
    unsigned present_slots() const { return slots_; }
    bool present(int slot) const { return (slots_ & slot_bit(slot)) != 0; }
    std::size_t slot_bytes(int slot) const { return slot == 0 ? 8 * pixels_ : 2 * pixels_; }

    float* normalized() { return present(0) ? reinterpret_cast<float*>(bytes_.data() + offsets_[0]) : nullptr; }
    std::uint16_t* slot(int s)
    {
        return present(s) ? reinterpret_cast<std::uint16_t*>(bytes_.data() + offsets_[s]) : nullptr;
    }

    float normalized_at(std::size_t index) const
    {
        float value;
        std::memcpy(&value, bytes_.data() + offsets_[0] + 4 * index, 4);
        return value;
    }
    std::uint16_t slot_at(int s, std::size_t index) const
    {
        std::uint16_t value;
        std::memcpy(&value, bytes_.data() + offsets_[s] + 2 * index, 2);
        return value;
    }

    // Descriptions of every changed byte range outside the present buffers.
    std::vector<std::string> untouched_violations() const
    {
        std::vector<std::string> problems;
        auto check = [&](std::size_t begin, std::size_t end, const std::string& what) {
            for (std::size_t i = begin; i < end; ++i) {
                if (bytes_[i] != fill_) {
                    std::ostringstream text;
                    text << what << ": byte " << (i - begin) << " changed from 0x" << std::hex << int(fill_)
                         << " to 0x" << int(bytes_[i]);
                    problems.push_back(text.str());
                    return;
                }
            }
        };
        check(0, offsets_[0], "guard before slot 0");
        for (int s = 0; s < 6; ++s) {
            const std::size_t end = offsets_[s] + slot_bytes(s);
            if (!present(s))
                check(offsets_[s], end, "absent slot " + std::to_string(s));
            check(end, end + guard_bytes, "guard after slot " + std::to_string(s));
        }
        return problems;
    }

private:
    std::size_t pixels_;
    unsigned slots_;
    unsigned char fill_;
    std::size_t offsets_[6] = {};
    std::vector<unsigned char> bytes_;
};

// ---------------------------------------------------------------------------
// One frame with everything a transform needs.

struct Frame_case {
    unsigned rows = 2;
    unsigned columns = 2;
    std::int32_t sensor_phase = 0;
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
    std::uint32_t bit_depth = 16;
    std::uint16_t output_maximum = 65535;
    unsigned slots = all_slots;
    Matrix_set by_polarizer = default_matrices();
    bool custom = false;
    std::vector<std::uint16_t> input;

    std::size_t pixels() const { return std::size_t(rows) * columns; }
    std::int32_t region_phase() const { return ksi_reference::rebase_phase(sensor_phase, origin_x, origin_y); }
    Matrix_set positional() const { return ksi_reference::matrices_for_phase(by_polarizer, region_phase()); }

    std::string describe() const
    {
        std::ostringstream text;
        text << "frame " << rows << " rows x " << columns << " columns, sensor phase " << sensor_phase
             << ", origin (" << origin_x << ", " << origin_y << ") -> region phase " << region_phase()
             << ", bit depth " << bit_depth << ", output maximum " << output_maximum << ", slots "
             << slot_list(slots) << (custom ? ", custom matrices" : ", default matrices");
        return text.str();
    }
};

inline ksi_reference::Frame_outputs reference_outputs(const Frame_case& frame)
{
    ksi_reference::Frame_request request;
    request.rows = frame.rows;
    request.columns = frame.columns;
    request.input = frame.input.data();
    request.bit_depth = frame.bit_depth;
    request.output_maximum = frame.output_maximum;
    request.matrices = frame.positional();
    return ksi_reference::evaluate_frame(request);
}

inline std::string float_text(float value)
{
    std::ostringstream text;
    text.precision(9);
    text << value << " (0x" << std::hex << ksi_reference::bits_of(value) << ")";
    return text.str();
}

// Everything that went into one pixel.
inline std::string pixel_inputs(const Frame_case& frame, const Matrix_set& positional, unsigned r, unsigned c)
{
    using namespace ksi_reference;
    const Pixel_rule rule = pixel_rule(frame.rows, frame.columns, r, c);
    const Quartet_positions q = quartet_positions(rule, r, c);
    std::uint16_t quartet[4];
    std::ostringstream text;
    text << "rule '" << describe(rule) << "' (polarizer " << 45 * polarizer_of_position(frame.region_phase(), rule.matrix)
         << "), quartet";
    for (int i = 0; i < 4; ++i) {
        quartet[i] = frame.input[std::size_t(q.row[i]) * frame.columns + q.column[i]];
        text << " (" << q.row[i] << "," << q.column[i] << ")=" << quartet[i];
    }
    const Matrix& m = positional[rule.matrix];
    text.precision(9);
    text << ", matrix rows";
    for (int i = 0; i < 3; ++i) {
        text << " [";
        for (int j = 0; j < 4; ++j)
            text << (j ? " " : "") << m[4 * i + j];
        text << "]";
    }
    const Pixel_outputs p = evaluate_pixel(m, quartet, frame.bit_depth, frame.output_maximum);
    text << ", wide sums S0 " << double(p.s0_wide) << " S1 " << double(p.s1_wide) << " S2 " << double(p.s2_wide)
         << ", single S0 " << float_text(p.s0) << " S1 " << float_text(p.s1) << " S2 " << float_text(p.s2);
    return text.str();
}

// Compares every present slot; pixels of the four-lane block are skipped when
// asked. Returns the number of mismatching elements and adds at most
// `max_reports` gtest failures with full detail.
inline std::size_t compare_with_reference(const Frame_case& frame, const Output_arena& arena,
                                          const ksi_reference::Frame_outputs& expected, bool skip_block_pixels,
                                          const std::string& context, int max_reports = 6)
{
    std::size_t mismatches = 0;
    const Matrix_set positional = frame.positional();
    for (unsigned r = 0; r < frame.rows; ++r) {
        for (unsigned c = 0; c < frame.columns; ++c) {
            if (skip_block_pixels && ksi_reference::is_block_pixel(frame.rows, frame.columns, r, c))
                continue;
            const std::size_t index = std::size_t(r) * frame.columns + c;
            for (int s = 0; s < 6; ++s) {
                if (!arena.present(s))
                    continue;
                std::string expected_text, actual_text;
                bool equal;
                if (s == 0) {
                    equal = true;
                    for (int e = 0; e < 2; ++e) {
                        const float want = expected.normalized[2 * index + e];
                        const float got = arena.normalized_at(2 * index + e);
                        if (!ksi_reference::same_normalized(want, got)) {
                            equal = false;
                            expected_text = "element " + std::to_string(e) + " " + float_text(want);
                            actual_text = float_text(got);
                        }
                    }
                } else {
                    equal = expected.slot[s][index] == arena.slot_at(s, index);
                    expected_text = std::to_string(expected.slot[s][index]);
                    actual_text = std::to_string(arena.slot_at(s, index));
                }
                if (equal)
                    continue;
                if (int(mismatches) < max_reports) {
                    ADD_FAILURE() << context << ": " << frame.describe() << "\n  pixel (row " << r << ", column "
                                  << c << ") slot " << s << ": expected " << expected_text << ", actual "
                                  << actual_text << "\n  " << pixel_inputs(frame, positional, r, c);
                }
                ++mismatches;
            }
        }
    }
    if (mismatches > std::size_t(max_reports))
        ADD_FAILURE() << context << ": " << mismatches << " mismatching elements in all, " << frame.describe();
    return mismatches;
}

inline bool check_untouched(const Output_arena& arena, const Frame_case& frame, const std::string& context)
{
    const auto problems = arena.untouched_violations();
    for (const auto& problem : problems)
        ADD_FAILURE() << context << ": " << frame.describe() << ": " << problem;
    return problems.empty();
}

// ---------------------------------------------------------------------------
// The exported transform.

inline int transform_frame(void* handle, const Frame_case& frame, Output_arena& arena)
{
    return kl_polarization_processor_transform(handle, frame.sensor_phase, frame.input.data(), frame.origin_x,
                                               frame.origin_y, std::int32_t(frame.columns), std::int32_t(frame.rows),
                                               frame.bit_depth, frame.output_maximum, arena.normalized(),
                                               arena.slot(1), arena.slot(2), arena.slot(3), arena.slot(4),
                                               arena.slot(5));
}

// Sets the frame's matrices, runs the exported transform on poisoned
// buffers and compares with the reference: all pixels except those of the
// four-lane block, and every guard zone and absent slot.
inline std::size_t check_exported_frame(const Processor& processor, const Frame_case& frame,
                                        const std::string& context, unsigned char fill = 0xA5)
{
    EXPECT_EQ(processor.set(frame.by_polarizer), status_success);
    Output_arena arena(frame.pixels(), frame.slots, fill);
    const int status = transform_frame(processor.handle(), frame, arena);
    if (status != status_success) {
        ADD_FAILURE() << context << ": transform returned " << status << " for " << frame.describe();
        return 1;
    }
    const auto expected = reference_outputs(frame);
    std::size_t mismatches = compare_with_reference(frame, arena, expected, true, context);
    if (!check_untouched(arena, frame, context))
        ++mismatches;
    return mismatches;
}

// ---------------------------------------------------------------------------
// Random frames.

inline float random_matrix_entry(std::mt19937_64& rng)
{
    std::uniform_int_distribution<int> style(0, 99);
    const int s = style(rng);
    if (s < 35)
        return float(std::uniform_int_distribution<int>(-2, 2)(rng));
    if (s < 70)
        return std::uniform_real_distribution<float>(-4.0f, 4.0f)(rng);
    if (s < 78)
        return std::uniform_real_distribution<float>(-0.01f, 0.01f)(rng);
    if (s < 84)
        return std::ldexp(std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng),
                          std::uniform_int_distribution<int>(-140, 120)(rng));
    if (s < 87)
        return -0.0f;
    if (s < 89)
        return std::numeric_limits<float>::quiet_NaN();
    if (s < 91)
        return std::numeric_limits<float>::infinity();
    if (s < 93)
        return -std::numeric_limits<float>::infinity();
    if (s < 95)
        return std::numeric_limits<float>::denorm_min() * float(std::uniform_int_distribution<int>(1, 1000)(rng));
    return 0.5f * float(std::uniform_int_distribution<int>(-8, 8)(rng));
}

inline Matrix random_matrix(std::mt19937_64& rng)
{
    Matrix m;
    // Mostly well-behaved rows with a few odd entries.
    const bool wild = std::uniform_int_distribution<int>(0, 3)(rng) == 0;
    for (int i = 0; i < 16; ++i) {
        if (wild || std::uniform_int_distribution<int>(0, 4)(rng) == 0)
            m[i] = random_matrix_entry(rng);
        else
            m[i] = std::uniform_real_distribution<float>(-2.0f, 2.0f)(rng);
    }
    return m;
}

inline std::uint16_t random_output_maximum(std::mt19937_64& rng, std::uint32_t bit_depth)
{
    const std::uint32_t native = ksi_reference::input_maximum_integer(bit_depth);
    switch (std::uniform_int_distribution<int>(0, 6)(rng)) {
    case 0:
    case 1:
        if (native != 0)
            return std::uint16_t(native);
        return 1;
    case 2:
        return 65535;
    case 3:
        return 4095;
    case 4:
        return 255;
    case 5:
        return std::uint16_t(std::uniform_int_distribution<int>(1, 9)(rng));
    default:
        return std::uint16_t(std::uniform_int_distribution<int>(1, 65535)(rng));
    }
}

inline std::vector<std::uint16_t> random_input(std::mt19937_64& rng, std::size_t pixels, std::uint32_t bit_depth)
{
    const int input_maximum = int(ksi_reference::input_maximum_integer(bit_depth));
    std::vector<std::uint16_t> input(pixels);
    std::uniform_int_distribution<int> in_range(0, input_maximum);
    std::uniform_int_distribution<int> full(0, 65535);
    switch (std::uniform_int_distribution<int>(0, 9)(rng)) {
    case 0:  // whole 16-bit range, above the input maximum too
        for (auto& p : input)
            p = std::uint16_t(full(rng));
        break;
    case 1: {  // mostly dark
        std::uniform_int_distribution<int> lit(0, 5);
        for (auto& p : input)
            p = lit(rng) == 0 ? std::uint16_t(in_range(rng)) : 0;
        break;
    }
    case 2: {  // flat
        const std::uint16_t level = std::uint16_t(in_range(rng));
        std::fill(input.begin(), input.end(), level);
        break;
    }
    case 3: {  // small variation around a level: near-equal quartets
        const int level = in_range(rng);
        std::uniform_int_distribution<int> wobble(-2, 2);
        for (auto& p : input)
            p = std::uint16_t(std::clamp(level + wobble(rng), 0, std::max(input_maximum, 0)));
        break;
    }
    default:
        for (auto& p : input)
            p = std::uint16_t(in_range(rng));
        break;
    }
    return input;
}

inline std::int32_t random_origin(std::mt19937_64& rng)
{
    switch (std::uniform_int_distribution<int>(0, 9)(rng)) {
    case 0:
        return std::numeric_limits<std::int32_t>::min();
    case 1:
        return std::numeric_limits<std::int32_t>::max();
    case 2:
        return std::numeric_limits<std::int32_t>::min() + 1;
    default:
        return std::uniform_int_distribution<std::int32_t>(-5000, 5000)(rng);
    }
}

// A random frame of the given size. `phase` below 0 lets the phase be
// random as well (including negative sensor phases now and then).
inline Frame_case random_frame(std::mt19937_64& rng, unsigned rows, unsigned columns, int phase = -1)
{
    Frame_case frame;
    frame.rows = rows;
    frame.columns = columns;
    if (phase >= 0)
        frame.sensor_phase = phase;
    else if (std::uniform_int_distribution<int>(0, 9)(rng) == 0)
        frame.sensor_phase = std::uniform_int_distribution<int>(0, 1)(rng) ? -1 : std::numeric_limits<std::int32_t>::min();
    else
        frame.sensor_phase = std::uniform_int_distribution<int>(0, 3)(rng);
    frame.origin_x = random_origin(rng);
    frame.origin_y = random_origin(rng);
    frame.bit_depth = std::uint32_t(std::uniform_int_distribution<int>(0, 16)(rng));
    frame.output_maximum = random_output_maximum(rng, frame.bit_depth);
    frame.slots = unsigned(std::uniform_int_distribution<int>(1, 63)(rng));
    frame.custom = std::uniform_int_distribution<int>(0, 9)(rng) < 6;
    if (frame.custom) {
        for (auto& m : frame.by_polarizer)
            m = random_matrix(rng);
    }
    frame.input = random_input(rng, frame.pixels(), frame.bit_depth);
    return frame;
}

}  // namespace core_test
