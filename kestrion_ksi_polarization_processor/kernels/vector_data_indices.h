// Which of the block's six source vectors enter each sum and difference, per
// phase, as a compile-time list. The vectors are, by index: even and odd
// lanes of row r (0, 1), of row r + 1 (2, 3) and of row r + 2 (4, 5).
#pragma once

#include <cstddef>

template <unsigned... Indices>
struct Vector_data_indices {
    static_assert(sizeof...(Indices) == 16, "a phase list has sixteen positions");
    static constexpr unsigned positions[16] = {Indices...};

    // Position p, counted from 1 as i1 to i16:
    //   i1..i4 S0 of the upper row, i5..i8 S0 of the lower row,
    //   i9 - i10 S1 upper, i11 - i12 S1 lower, i13 - i14 S2 upper, i15 - i16 S2 lower.
    static constexpr unsigned at(std::size_t p) { return positions[p - 1]; }
};

using Phase_0_indices = Vector_data_indices<2, 1, 3, 0, 2, 5, 3, 4, 0, 3, 4, 3, 2, 1, 2, 5>;
using Phase_45_indices = Vector_data_indices<0, 3, 1, 2, 4, 3, 5, 2, 2, 1, 2, 5, 0, 3, 4, 3>;
using Phase_90_indices = Vector_data_indices<1, 2, 0, 3, 5, 2, 3, 4, 3, 0, 3, 4, 1, 2, 5, 2>;
using Phase_135_indices = Vector_data_indices<3, 0, 2, 1, 3, 4, 2, 5, 1, 2, 5, 2, 3, 0, 3, 4>;
