// Definitions of the scalar stages declared in edge_stages.h.
#pragma once

#include "kernels/edge_stages.h"
#include "kernels/single_quartet.h"

// One evaluation Q(row, column, matrix, look left, look up) with the stage's
// output flags.
template <bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth,
          bool Has_dolp>
struct Quartet_evaluation {
    const Polarization_computation_arguments& arguments;
    Image_buffer_overlays& overlays;

    template <bool Look_left, bool Look_up>
    KSI_LANE_OPERATION void at(unsigned row, unsigned column, const Calibration_matrix* matrix) const
    {
        generate_polarization_output_data_for_single_quartet<Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2,
                                                             Has_azimuth, Has_dolp, Look_left, Look_up>(
            row, column, *matrix, arguments, overlays);
    }
};

// The last two columns of a row pair in a frame of even width: a whole
// quartet whose right-hand pixels look left, since nothing lies to their right.
template <bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth,
          bool Has_dolp, bool Even_columns>
inline void generate_last_column(const Polarization_computation_arguments& arguments,
                                 const Calibration_matrices& matrices, Image_buffer_overlays& overlays, unsigned row,
                                 unsigned column)
{
    static_assert(Even_columns, "an odd last column is two evaluations of the sweep itself");
    const Quartet_evaluation<Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp> q{
        arguments, overlays};
    q.template at<false, false>(row, column, matrices.even_row_even_column);
    q.template at<true, false>(row, column + 1, matrices.even_row_odd_column);
    q.template at<false, false>(row + 1, column, matrices.odd_row_even_column);
    q.template at<true, false>(row + 1, column + 1, matrices.odd_row_odd_column);
}

template <bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth,
          bool Has_dolp, bool Even_columns>
void generate_scalar_columns(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices,
                             Image_buffer_overlays& overlays, unsigned row, unsigned column)
{
    const Quartet_evaluation<Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp> q{
        arguments, overlays};
    const unsigned columns = arguments.columns;
    for (; column < columns - 2; column += 2) {
        q.template at<false, false>(row, column, matrices.even_row_even_column);
        q.template at<false, false>(row, column + 1, matrices.even_row_odd_column);
        q.template at<false, false>(row + 1, column, matrices.odd_row_even_column);
        q.template at<false, false>(row + 1, column + 1, matrices.odd_row_odd_column);
    }
    if constexpr (Even_columns) {
        generate_last_column<Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp, true>(
            arguments, matrices, overlays, row, column);
    } else {
        // The last column is even: its matrices are the first and the third.
        q.template at<true, false>(row, column, matrices.even_row_even_column);
        q.template at<true, false>(row + 1, column, matrices.odd_row_even_column);
    }
}

template <bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth,
          bool Has_dolp, bool Even_rows, bool Even_columns>
void generate_last_row_and_column(const Polarization_computation_arguments& arguments,
                                  const Calibration_matrices& matrices, Image_buffer_overlays& overlays, unsigned row)
{
    const Quartet_evaluation<Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp> q{
        arguments, overlays};
    const Calibration_matrix* const first = matrices.even_row_even_column;
    const Calibration_matrix* const second = matrices.even_row_odd_column;
    const Calibration_matrix* const third = matrices.odd_row_even_column;
    const Calibration_matrix* const fourth = matrices.odd_row_odd_column;
    const unsigned columns = arguments.columns;

    // The upper of two last rows looks down into the lower one, which looks up;
    // a single last row looks up into the row above it.
    unsigned column = 0;
    if (columns != 2) {
        do {
            if constexpr (Even_rows) {
                q.template at<false, false>(row, column, first);
                q.template at<false, false>(row, column + 1, second);
                q.template at<false, true>(row + 1, column, third);
                q.template at<false, true>(row + 1, column + 1, fourth);
            } else {
                q.template at<false, true>(row, column, first);
                q.template at<false, true>(row, column + 1, second);
            }
            column += 2;
        } while (column < columns - 2);
    }

    // The bottom-right pixel of an even-by-odd and of an odd-by-even frame
    // takes the first matrix, whatever its position in the mosaic.
    if constexpr (Even_rows && Even_columns) {
        q.template at<false, false>(row, column, first);
        q.template at<true, false>(row, column + 1, second);
        q.template at<false, true>(row + 1, column, third);
        q.template at<true, true>(row + 1, column + 1, fourth);
    } else if constexpr (Even_rows) {
        q.template at<true, false>(row, column, first);
        q.template at<true, true>(row + 1, column, first);
    } else if constexpr (Even_columns) {
        q.template at<false, true>(row, column, first);
        q.template at<true, true>(row, column + 1, first);
    } else {
        q.template at<true, true>(row, column, first);
    }
}
