// The synthetic scene of the demo: a disc of strongly polarized light whose
// angle of polarization turns from -90 to +90 degrees across the frame, on a
// weakly polarized background at 30 degrees, seen through a phase-0 mosaic
// with sensor noise. 1224 x 1024 pixels of 12 bits.
#pragma once

#include "image_reading.h"

namespace ksi_cli {

inline constexpr int demo_scene_bit_depth = 12;

void render_demo_scene(Frame& frame);

}  // namespace ksi_cli
