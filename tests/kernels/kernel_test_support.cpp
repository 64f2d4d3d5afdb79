#include "kernel_test_support.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

#include <cpuid.h>

namespace kernel_test_support {

std::uint32_t bits_of(float value)
{
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

namespace {

float float_of(std::uint32_t bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::uint32_t input_maximum_of(std::uint32_t bit_depth) { return (std::uint32_t(1) << bit_depth) - 1u; }

}  // namespace

const char* slot_name(unsigned slot)
{
    static const char* const names[6] = {"normalized", "s0", "s1", "s2", "azimuth", "dolp"};
    return slot < 6 ? names[slot] : "?";
}

std::string slot_set_name(Slot_set slots)
{
    std::string name;
    for (unsigned slot = 0; slot < 6; ++slot)
        if (slots & slot_bit(slot)) {
            if (!name.empty())
                name += "+";
            name += slot_name(slot);
        }
    return name.empty() ? "none" : name;
}

Frame::Frame(unsigned rows, unsigned columns, std::uint16_t value)
    : rows(rows), columns(columns), pixels(std::size_t(rows) * columns, value)
{
}

Frame_outputs::Frame_outputs(unsigned rows, unsigned columns, Slot_set slots, std::size_t image_offset)
    : rows_(rows), columns_(columns), slots_(slots), image_offset_(image_offset)
{
    const std::size_t pixels = std::size_t(rows) * columns;
    if (has(0)) {
        normalized_.assign(2 * pixels + guard_elements, float_of(normalized_sentinel_bits));
        std::fill(normalized_.begin() + std::ptrdiff_t(2 * pixels), normalized_.end(),
                  float_of(0x3C5A3C5Au));
    }
    for (unsigned slot = 1; slot < 6; ++slot)
        if (has(slot)) {
            images_[slot].assign(image_offset + pixels + guard_elements, guard_value);
            std::fill_n(images_[slot].begin() + std::ptrdiff_t(image_offset), pixels, image_sentinel);
        }
}

float* Frame_outputs::normalized() { return has(0) ? normalized_.data() : nullptr; }

std::uint16_t* Frame_outputs::image(unsigned slot) { return has(slot) ? images_[slot].data() + image_offset_ : nullptr; }

float Frame_outputs::normalized_at(unsigned row, unsigned column, unsigned element) const
{
    return normalized_[2 * (std::size_t(row) * columns_ + column) + element];
}

std::uint16_t Frame_outputs::image_at(unsigned slot, unsigned row, unsigned column) const
{
    return images_[slot][image_index(row, column)];
}

std::uint16_t& Frame_outputs::image_element(unsigned slot, unsigned row, unsigned column)
{
    return images_[slot][image_index(row, column)];
}

bool Frame_outputs::guards_intact() const
{
    const std::size_t pixels = std::size_t(rows_) * columns_;
    if (has(0))
        for (std::size_t i = 2 * pixels; i < normalized_.size(); ++i)
            if (bits_of(normalized_[i]) != 0x3C5A3C5Au)
                return false;
    for (unsigned slot = 1; slot < 6; ++slot)
        if (has(slot))
            for (std::size_t i = 0; i < images_[slot].size(); ++i)
                if ((i < image_offset_ || i >= image_offset_ + pixels) && images_[slot][i] != guard_value)
                    return false;
    return true;
}

bool is_native_scale(std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    return std::uint32_t(output_maximum) == input_maximum_of(bit_depth);
}

Polarization_computation_arguments make_arguments(const Frame& frame, Frame_outputs& outputs, std::int32_t polar_phase,
                                                  std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    Polarization_computation_arguments arguments{};
    arguments.rows = frame.rows;
    arguments.columns = frame.columns;
    arguments.polar_phase = polar_phase;
    arguments.input = frame.pixels.data();
    arguments.bit_depth = bit_depth;
    arguments.input_maximum = float(input_maximum_of(bit_depth));
    arguments.output_maximum = float(output_maximum);
    arguments.output_maximum_integer = output_maximum;
    arguments.normalized_stokes = outputs.normalized();
    arguments.s0_image = outputs.image(1);
    arguments.s1_image = outputs.image(2);
    arguments.s2_image = outputs.image(3);
    arguments.azimuth_image = outputs.image(4);
    arguments.dolp_image = outputs.image(5);
    return arguments;
}

Angle_matrices default_angle_matrices()
{
    // Rows S0, S1, S2 and an unused fourth row; columns own, horizontal,
    // vertical, diagonal.
    Angle_matrices m;
    m.matrix_0 = {1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0, 0, 0, 0, 0};
    m.matrix_45 = {1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1, 0, 0, 0, 0};
    m.matrix_90 = {1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0, 0, 0, 0, 0};
    m.matrix_135 = {1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1, 0, 0, 0, 0};
    return m;
}

Angle_matrices scaled(const Angle_matrices& matrices, float factor)
{
    Angle_matrices result = matrices;
    for (Matrix* m : {&result.matrix_0, &result.matrix_45, &result.matrix_90, &result.matrix_135})
        for (float& weight : *m)
            weight *= factor;
    return result;
}

Angle_matrices random_angle_matrices(std::mt19937& random, bool with_non_finite)
{
    std::uniform_real_distribution<float> weight(-2.0f, 2.0f);
    std::uniform_int_distribution<int> pick(0, 15);
    Angle_matrices result;
    for (Matrix* m : {&result.matrix_0, &result.matrix_45, &result.matrix_90, &result.matrix_135}) {
        for (float& w : *m)
            w = weight(random);
        if (with_non_finite) {
            (*m)[std::size_t(pick(random))] = std::numeric_limits<float>::quiet_NaN();
            (*m)[std::size_t(pick(random))] = std::numeric_limits<float>::infinity();
            (*m)[std::size_t(pick(random))] = -std::numeric_limits<float>::infinity();
            (*m)[std::size_t(pick(random))] = 3.0e38f;
        }
    }
    return result;
}

Calibration_matrices matrices_of_phase(const Angle_matrices& m, std::int32_t polar_phase)
{
    switch (polar_phase) {
    case 1:
        return {&m.matrix_45, &m.matrix_90, &m.matrix_0, &m.matrix_135};
    case 2:
        return {&m.matrix_90, &m.matrix_45, &m.matrix_135, &m.matrix_0};
    case 3:
        return {&m.matrix_135, &m.matrix_0, &m.matrix_90, &m.matrix_45};
    default:
        return {&m.matrix_0, &m.matrix_135, &m.matrix_45, &m.matrix_90};
    }
}

std::int32_t rebased_phase(std::int32_t polar_phase, std::int32_t origin_x, std::int32_t origin_y)
{
    const std::int32_t rx = origin_x % 2;
    const std::int32_t ry = origin_y % 2;
    if (rx == 0 && ry == 0)
        return polar_phase;
    // Columns: odd x only, odd y only, both.
    static const std::int32_t table[4][3] = {{3, 1, 2}, {2, 0, 3}, {1, 3, 0}, {0, 2, 1}};
    const int column = (rx == 1 && ry == 0) ? 0 : (rx == 0 && ry == 1) ? 1 : 2;
    const std::int32_t old_phase = (polar_phase >= 0 && polar_phase <= 3) ? polar_phase : 0;
    return table[old_phase][column];
}

const char* texture_name(Texture texture)
{
    switch (texture) {
    case Texture::uniform:
        return "uniform";
    case Texture::full_range:
        return "full_range";
    case Texture::sparse:
        return "sparse";
    case Texture::flat:
        return "flat";
    case Texture::gradient:
        return "gradient";
    case Texture::mixed:
        return "mixed";
    }
    return "?";
}

Texture random_texture(std::mt19937& random)
{
    static const Texture textures[] = {Texture::uniform, Texture::uniform, Texture::full_range, Texture::sparse,
                                       Texture::flat,    Texture::gradient, Texture::mixed,    Texture::mixed};
    std::uniform_int_distribution<int> pick(0, int(sizeof textures / sizeof textures[0]) - 1);
    return textures[pick(random)];
}

namespace {

std::uint16_t texture_value(std::mt19937& random, Texture texture, std::uint32_t input_maximum, unsigned row,
                            unsigned column, std::uint32_t flat_level, std::uint32_t slope_row,
                            std::uint32_t slope_column)
{
    const std::uint32_t top = std::max<std::uint32_t>(input_maximum, 3);
    switch (texture) {
    case Texture::uniform:
        return std::uint16_t(std::uniform_int_distribution<std::uint32_t>(0, top)(random));
    case Texture::full_range:
        return std::uint16_t(std::uniform_int_distribution<std::uint32_t>(0, 65535)(random));
    case Texture::sparse: {
        const std::uint32_t v = std::uniform_int_distribution<std::uint32_t>(0, 9)(random);
        return std::uint16_t(v < 6 ? 0 : v - 5);
    }
    case Texture::flat: {
        const bool spike = std::uniform_int_distribution<int>(0, 31)(random) == 0;
        return std::uint16_t(spike ? std::uniform_int_distribution<std::uint32_t>(0, top)(random) : flat_level);
    }
    case Texture::gradient: {
        const std::uint32_t noise = std::uniform_int_distribution<std::uint32_t>(0, 2)(random);
        return std::uint16_t((slope_row * row + slope_column * column + noise) % (top + 1));
    }
    case Texture::mixed:
        break;
    }
    return 0;
}

}  // namespace

Frame random_frame(std::mt19937& random, unsigned rows, unsigned columns, std::uint32_t bit_depth, Texture texture)
{
    Frame frame(rows, columns);
    const std::uint32_t input_maximum = input_maximum_of(bit_depth);
    const std::uint32_t top = std::max<std::uint32_t>(input_maximum, 3);
    std::uniform_int_distribution<std::uint32_t> level(0, top);
    std::uniform_int_distribution<std::uint32_t> slope(0, 64);
    if (texture != Texture::mixed) {
        const std::uint32_t flat_level = level(random);
        const std::uint32_t slope_row = slope(random), slope_column = slope(random);
        for (unsigned r = 0; r < rows; ++r)
            for (unsigned c = 0; c < columns; ++c)
                frame.at(r, c) = texture_value(random, texture, input_maximum, r, c, flat_level, slope_row,
                                               slope_column);
        return frame;
    }
    // Tiles of 3 x 5 pixels, each with its own texture, so that tiles cut
    // across quartets and blocks in every way.
    static const Texture tile_textures[] = {Texture::uniform, Texture::full_range, Texture::sparse, Texture::flat,
                                            Texture::gradient};
    std::uniform_int_distribution<int> pick(0, 4);
    const unsigned tile_rows = (rows + 2) / 3, tile_columns = (columns + 4) / 5;
    for (unsigned tr = 0; tr < tile_rows; ++tr)
        for (unsigned tc = 0; tc < tile_columns; ++tc) {
            const Texture t = tile_textures[pick(random)];
            const std::uint32_t flat_level = level(random);
            const std::uint32_t slope_row = slope(random), slope_column = slope(random);
            for (unsigned r = 3 * tr; r < std::min(rows, 3 * tr + 3); ++r)
                for (unsigned c = 5 * tc; c < std::min(columns, 5 * tc + 5); ++c)
                    frame.at(r, c) =
                        texture_value(random, t, input_maximum, r, c, flat_level, slope_row, slope_column);
        }
    return frame;
}

Comparison compare_outputs(const Frame_outputs& expected, const Frame_outputs& actual, const std::string& context)
{
    Comparison result;
    std::ostringstream report;
    constexpr std::size_t reported = 12;
    const unsigned rows = expected.rows(), columns = expected.columns();
    if (actual.rows() != rows || actual.columns() != columns || actual.slots() != expected.slots()) {
        result.equal = false;
        result.report = context + ": output buffers of different shape";
        return result;
    }
    const auto note = [&](unsigned slot, unsigned row, unsigned column, const std::string& what) {
        ++result.mismatches;
        result.equal = false;
        if (result.mismatches <= reported)
            report << "  " << slot_name(slot) << " (" << row << ", " << column << ")"
                   << (four_lane_reference::is_block_pixel(rows, columns, row, column) ? " [block]" : " [scalar]")
                   << ": " << what << "\n";
    };
    for (unsigned slot = 0; slot < 6; ++slot) {
        if (!expected.has(slot))
            continue;
        for (unsigned row = 0; row < rows; ++row)
            for (unsigned column = 0; column < columns; ++column) {
                if (slot == 0) {
                    for (unsigned element = 0; element < 2; ++element) {
                        const float e = expected.normalized_at(row, column, element);
                        const float a = actual.normalized_at(row, column, element);
                        const bool same = (std::isnan(e) && std::isnan(a)) || bits_of(e) == bits_of(a);
                        if (!same) {
                            std::ostringstream what;
                            what.precision(9);
                            what << "element " << element << " expected " << e << " (0x" << std::hex << bits_of(e)
                                 << ") actual " << a << " (0x" << bits_of(a) << ")";
                            note(slot, row, column, what.str());
                        }
                    }
                } else {
                    const std::uint16_t e = expected.image_at(slot, row, column);
                    const std::uint16_t a = actual.image_at(slot, row, column);
                    if (e != a)
                        note(slot, row, column, "expected " + std::to_string(e) + " actual " + std::to_string(a));
                }
            }
    }
    if (!actual.guards_intact()) {
        result.equal = false;
        report << "  a guard zone behind an output buffer was overwritten\n";
    }
    if (!result.equal) {
        std::ostringstream head;
        head << context << ": " << result.mismatches << " mismatching elements";
        if (result.mismatches > reported)
            head << " (first " << reported << " shown)";
        head << "\n";
        result.report = head.str() + report.str();
    }
    return result;
}

void copy_block_pixels(const Frame_outputs& source, Frame_outputs& target)
{
    const unsigned rows = source.rows(), columns = source.columns();
    const unsigned end_row = four_lane_reference::block_row_end(rows, columns);
    const unsigned end_column = four_lane_reference::block_end(rows, columns);
    Frame_outputs& from = const_cast<Frame_outputs&>(source);
    for (unsigned row = 0; row < end_row; ++row)
        for (unsigned column = 0; column < end_column; ++column) {
            if (source.has(0)) {
                const std::size_t i = 2 * (std::size_t(row) * columns + column);
                target.normalized()[i] = from.normalized()[i];
                target.normalized()[i + 1] = from.normalized()[i + 1];
            }
            for (unsigned slot = 1; slot < 6; ++slot)
                if (source.has(slot))
                    target.image_element(slot, row, column) = source.image_at(slot, row, column);
        }
}

bool cpuid_reports_sse41()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        return false;
    return (ecx & (1u << 19)) != 0;
}

bool cpuid_reports_avx2()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx))
        return false;
    return (ebx & (1u << 5)) != 0;
}

unsigned scaled_iterations(unsigned release_count)
{
#ifdef KSI_KERNEL_TESTS_SANITIZED
    return std::max(1u, release_count / 8);
#else
    return release_count;
#endif
}

std::string Frame_case::describe() const
{
    std::ostringstream s;
    s << rows << "x" << columns << " phase " << phase << " bit_depth " << bit_depth << " output_maximum "
      << output_maximum << (is_native_scale(bit_depth, output_maximum) ? " (native)" : " (rescaled)") << " slots "
      << slot_set_name(slots) << " matrices "
      << (matrices_kind == 0 ? "default" : matrices_kind == 1 ? "random" : "random+non-finite") << " texture "
      << texture_name(texture) << " seed " << seed;
    return s.str();
}

Frame Frame_case::frame() const
{
    std::mt19937 random(seed);
    return random_frame(random, rows, columns, bit_depth, texture);
}

Angle_matrices Frame_case::angle_matrices() const
{
    if (matrices_kind == 0)
        return default_angle_matrices();
    std::mt19937 random(seed ^ 0x9E3779B9u);
    return random_angle_matrices(random, matrices_kind == 2);
}

std::uint16_t random_output_maximum(std::mt19937& random, std::uint32_t bit_depth)
{
    const int c = std::uniform_int_distribution<int>(0, 9)(random);
    if (c < 4 && bit_depth > 0)
        return std::uint16_t((1u << bit_depth) - 1u);  // native scale
    static const std::uint16_t common[] = {65535, 4095, 255, 1, 1000, 65534, 1023, 16383};
    if (c < 7)
        return common[std::uniform_int_distribution<int>(0, 7)(random)];
    return std::uint16_t(std::uniform_int_distribution<int>(1, 65535)(random));
}

Frame_case random_case(std::mt19937& random, unsigned rows, unsigned columns)
{
    Frame_case c;
    c.rows = rows;
    c.columns = columns;
    c.phase = std::uniform_int_distribution<int>(0, 3)(random);
    c.bit_depth = std::uint32_t(std::uniform_int_distribution<int>(0, 16)(random));
    c.output_maximum = random_output_maximum(random, c.bit_depth);
    c.slots = Slot_set(std::uniform_int_distribution<int>(1, 63)(random));
    const int m = std::uniform_int_distribution<int>(0, 5)(random);
    c.matrices_kind = m < 3 ? 0 : m < 5 ? 1 : 2;
    c.texture = random_texture(random);
    c.seed = std::uint32_t(random());
    return c;
}

}  // namespace kernel_test_support
