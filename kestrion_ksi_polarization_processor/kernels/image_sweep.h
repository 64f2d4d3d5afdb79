// The whole-image kernel: walks the frame in row pairs and hands each pixel to
// exactly one stage. Per row pair: the four-lane blocks, the scalar column
// body, the end of the pair; after the last pair, the last rows.
#pragma once

#include <type_traits>

#include "kernels/edge_stages.h"
#include "kernels/four_lane_block.h"
#include "kernels/kernel_family.h"

// A sweep without a block stage: the scalar stages write every pixel.
struct No_block_stage {
    explicit No_block_stage(const Polarization_computation_arguments&) {}
    static unsigned block_count(unsigned) { return 0; }
    void run_row_pair(unsigned, unsigned) const {}
};

template <class Block_stage, bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2,
          bool Has_azimuth, bool Has_dolp, bool Even_rows, bool Even_columns>
inline void sweep_frame(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices)
{
    Image_buffer_overlays overlays(arguments);
    const Block_stage block_stage(arguments);
    const unsigned rows = arguments.rows;
    const unsigned blocks = Block_stage::block_count(arguments.columns);
    const unsigned block_end = 4 * blocks;

    // A frame of two rows has no row pair: the last-rows stage writes it all.
    unsigned row = 0;
    if (rows != 2) {
        do {
            block_stage.run_row_pair(row, blocks);
            generate_scalar_columns<Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp,
                                    Even_columns>(arguments, matrices, overlays, row, block_end);
            row += 2;
        } while (row < rows - 2);
    }
    generate_last_row_and_column<Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp,
                                 Even_rows, Even_columns>(arguments, matrices, overlays, row);
}

// The whole-image kernel with its blocks in the instruction form Form.
template <class Form, class Indices, class Native_scale, class Has_normalized_pair, class Has_s0, class Has_s1,
          class Has_s2, class Has_azimuth, class Has_dolp, class Even_rows, class Even_columns>
KSI_LANE_OPERATION void sweep_frame_in_form(const Polarization_computation_arguments& arguments,
                                            const Calibration_matrices& matrices)
{
    using Block_stage = Four_lane_block_stage<Indices, Native_scale::value, Has_normalized_pair::value, Has_s0::value,
                                              Has_s1::value, Has_s2::value, Has_azimuth::value, Has_dolp::value, Form>;
    sweep_frame<Block_stage, Native_scale::value, Has_normalized_pair::value, Has_s0::value, Has_s1::value,
                Has_s2::value, Has_azimuth::value, Has_dolp::value, Even_rows::value, Even_columns::value>(arguments,
                                                                                                          matrices);
}

template <class Indices, class Native_scale, class Has_normalized_pair, class Has_s0, class Has_s1, class Has_s2,
          class Has_azimuth, class Has_dolp, class Even_rows, class Even_columns, class Has_sse41>
void generate_polarization_output_data_impl(const Polarization_computation_arguments& arguments,
                                            const Calibration_matrices& matrices)
{
    using Form = std::conditional_t<Has_sse41::value, Sse41_form, Baseline_form>;
    sweep_frame_in_form<Form, Indices, Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth,
                        Has_dolp, Even_rows, Even_columns>(arguments, matrices);
}

template <class Form, class Indices, class Native_scale, class Has_normalized_pair, class Has_s0, class Has_s1,
          class Has_s2, class Has_azimuth, class Has_dolp, class Even_rows, class Even_columns>
void generate_polarization_output_data_in_form(const Polarization_computation_arguments& arguments,
                                               const Calibration_matrices& matrices)
{
    sweep_frame_in_form<Form, Indices, Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth,
                        Has_dolp, Even_rows, Even_columns>(arguments, matrices);
}
