// Where the colour planes of a colour polarization sensor lie in a frame.
//
// The sensor repeats a 4x4 super-pixel of four 2x2 polarizer quartets, each
// quartet under one colour filter, the quartets in Bayer order. The colour
// order names the filters of the quartets of the sensor's top-left
// super-pixel: top left, top right, bottom left, bottom right. G1 is the
// green quartet of a super-pixel's top quartet row, G2 the one of its bottom
// row. A colour plane gathers the quartets under one filter, side by side:
// a polarization mosaic of half the frame's width and height with the
// frame's polarizer layout.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace ksi_cli {

enum class Color_order : std::uint8_t { rggb, bggr, grbg, gbrg };

inline constexpr std::array<Color_order, 4> every_color_order{Color_order::rggb, Color_order::bggr, Color_order::grbg,
                                                              Color_order::gbrg};

const char* color_order_name(Color_order order);
std::optional<Color_order> color_order_from_name(const std::string& name);

// The four planes, in the order in which the combined Stokes vector sums them.
enum class Color_plane : std::uint8_t { red, green1, green2, blue };

inline constexpr std::array<Color_plane, 4> every_color_plane{Color_plane::red, Color_plane::green1,
                                                              Color_plane::green2, Color_plane::blue};

// A frame that has no colour answer: it starts inside a quartet, or holds
// no complete super-pixel.
class Color_layout_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One plane inside the frame.
struct Plane_place {
    // The plane's quartets start at frame column 4 k + 2 quartet_column and
    // frame row 4 j + 2 quartet_row.
    int quartet_column = 0;
    int quartet_row = 0;
    // The plane's first pixel in the coordinates of the plane of the whole
    // sensor: what the library takes as the plane's origin. Always even, so
    // the plane keeps the frame's polarizer layout.
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
};

struct Color_layout {
    // Every plane and output: (2 floor(W / 4)) x (2 floor(H / 4)); the
    // frame's last W mod 4 columns and H mod 4 rows hold no complete
    // super-pixel and are left out.
    std::int32_t plane_width = 0;
    std::int32_t plane_height = 0;
    std::array<Plane_place, 4> planes;  // by Color_plane

    const Plane_place& place(Color_plane plane) const { return planes[static_cast<std::size_t>(plane)]; }
};

// The layout of a width x height frame whose first pixel sits at sensor
// column origin_x and row origin_y. An origin that is even but not a
// multiple of 4 starts the frame with the second quartet column or row of a
// super-pixel. Throws Color_layout_error for an odd origin or a frame
// smaller than 4x4.
Color_layout color_layout(std::int32_t width, std::int32_t height, std::int32_t origin_x, std::int32_t origin_y,
                          Color_order order);

// Copies the plane's pixels out of the frame into `plane` (plane_width x
// plane_height elements, row-major).
void extract_plane(const std::uint16_t* frame, std::int32_t frame_width, const Color_layout& layout,
                   Color_plane plane, std::uint16_t* destination);

}  // namespace ksi_cli
