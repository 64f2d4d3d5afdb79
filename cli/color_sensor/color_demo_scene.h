// The synthetic scene of the colour demo, seen through a colour polarization
// mosaic (phase 0, colour order rggb): a background whose colour turns from
// orange to blue across the frame, weakly polarized at 30 degrees; three
// discs of red, green and blue paint, nearly unpolarized; a disc of
// strongly polarized yellow light in the middle whose angle turns from -90
// to +90 degrees across it; and a band of white glare across the lower
// half, strongly polarized at 60 degrees as a reflection is, which the imin
// image removes. 1224 x 1024 pixels of 12 bits, with sensor noise.
#pragma once

#include "color_layout.h"
#include "image_reading.h"

namespace ksi_cli {

inline constexpr int color_demo_scene_bit_depth = 12;
inline constexpr Color_order color_demo_scene_order = Color_order::rggb;

void render_color_demo_scene(Frame& frame);

}  // namespace ksi_cli
