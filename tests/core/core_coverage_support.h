// Frames whose outputs reveal, for every pixel, which matrix and which
// neighbours computed it.
//
// Every input pixel holds a distinct value from 1 to 255. The matrix with
// mark w (1 to 4) has the rows
//   S0: 2w 0 0 0     -> S0 = w x own
//   S1: 0 1 0 256    -> S1 = horizontal + 256 x diagonal
//   S2: 0 0 1 0      -> S2 = vertical
// At bit depth 16 with output maximum 65535 all three are exact integers in
// slots 1, 2 and 3, from which the mark, the horizontal side, the vertical
// side and the diagonal pixel are read back.
#pragma once

#include "core_test_support.h"

namespace core_test {

inline Matrix marked_matrix(int mark)
{
    return matrix_rows({2.0f * float(mark), 0, 0, 0}, {0, 1, 0, 256}, {0, 0, 1, 0});
}

constexpr unsigned coverage_slots = slot_bit(1) | slot_bit(2) | slot_bit(3);

inline Frame_case coverage_frame(unsigned rows, unsigned columns)
{
    Frame_case frame;
    frame.rows = rows;
    frame.columns = columns;
    frame.bit_depth = 16;
    frame.output_maximum = 65535;
    frame.slots = coverage_slots;
    frame.custom = true;
    frame.input.resize(frame.pixels());
    for (std::size_t i = 0; i < frame.pixels(); ++i)
        frame.input[i] = std::uint16_t(1 + i % 255);
    return frame;
}

// "k H V" as in ksi_reference::describe, where k is the mark minus 1, or a
// description of what could not be decoded.
inline std::string decode_pixel(const Frame_case& frame, const Output_arena& arena, unsigned r, unsigned c)
{
    const auto pixel = [&](unsigned row, unsigned column) -> int {
        return frame.input[std::size_t(row) * frame.columns + column];
    };
    const std::size_t index = std::size_t(r) * frame.columns + c;
    const int s0 = arena.slot_at(1, index);
    const int s1 = arena.slot_at(2, index);
    const int s2 = arena.slot_at(3, index);
    std::ostringstream raw;
    raw << " [raw S0 " << s0 << " S1 " << s1 << " S2 " << s2 << "]";

    const int own = pixel(r, c);
    if (s0 % own != 0 || s0 / own < 1 || s0 / own > 4)
        return "? (S0 is no mark times the own pixel)" + raw.str();
    const int mark = s0 / own;
    const int horizontal = s1 % 256;
    const int diagonal = s1 / 256;

    int h = -1;
    char h_side = '?';
    if (c + 1 < frame.columns && pixel(r, c + 1) == horizontal) {
        h = int(c + 1);
        h_side = 'R';
    } else if (c >= 1 && pixel(r, c - 1) == horizontal) {
        h = int(c - 1);
        h_side = 'L';
    }
    int v = -1;
    char v_side = '?';
    if (r + 1 < frame.rows && pixel(r + 1, c) == s2) {
        v = int(r + 1);
        v_side = 'D';
    } else if (r >= 1 && pixel(r - 1, c) == s2) {
        v = int(r - 1);
        v_side = 'U';
    }
    std::string text = std::to_string(mark - 1) + " " + h_side + " " + v_side;
    if (h < 0 || v < 0)
        return text + raw.str();
    if (pixel(unsigned(v), unsigned(h)) != diagonal)
        return text + " (wrong diagonal)" + raw.str();
    return text;
}

// Maps the matrix mark seen at a pixel to the position in the phase's set
// when the marks were given per polarizer.
inline std::string polarizer_marks_to_positions(const std::string& decoded, std::int32_t region_phase)
{
    if (decoded.empty() || decoded[0] < '0' || decoded[0] > '3')
        return decoded;
    const int polarizer = decoded[0] - '0';
    for (int k = 0; k < 4; ++k)
        if (ksi_reference::polarizer_of_position(region_phase, k) == polarizer)
            return std::to_string(k) + decoded.substr(1);
    return decoded;
}

using Rule_map = std::vector<std::vector<std::string>>;

inline Rule_map reference_rule_map(unsigned rows, unsigned columns)
{
    Rule_map map(rows, std::vector<std::string>(columns));
    for (unsigned r = 0; r < rows; ++r)
        for (unsigned c = 0; c < columns; ++c)
            map[r][c] = ksi_reference::describe(ksi_reference::pixel_rule(rows, columns, r, c));
    return map;
}

// Splits "0RD 1LD" rows into cells "0 R D", "1 L D".
inline Rule_map rule_map_from_text(const std::vector<std::string>& rows)
{
    Rule_map map;
    for (const auto& row : rows) {
        std::vector<std::string> cells;
        std::istringstream in(row);
        std::string cell;
        while (in >> cell)
            cells.push_back(std::string(1, cell[0]) + " " + cell[1] + " " + cell[2]);
        map.push_back(cells);
    }
    return map;
}

}  // namespace core_test
