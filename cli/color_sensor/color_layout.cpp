#include "color_layout.h"

#include <cstring>

namespace ksi_cli {
namespace {

// The plane of each quartet of the sensor's top-left super-pixel (top left,
// top right, bottom left, bottom right), by colour order.
constexpr Color_plane R = Color_plane::red, G1 = Color_plane::green1, G2 = Color_plane::green2,
                      B = Color_plane::blue;
constexpr Color_plane quartet_planes[4][4] = {
    {R, G1, G2, B},  // rggb
    {B, G1, G2, R},  // bggr
    {G1, R, B, G2},  // grbg
    {G1, B, R, G2},  // gbrg
};

std::int64_t floor_modulo(std::int64_t value, std::int64_t divisor) { return ((value % divisor) + divisor) % divisor; }

std::int64_t floor_division(std::int64_t value, std::int64_t divisor)
{
    return (value - floor_modulo(value, divisor)) / divisor;
}

}  // namespace

const char* color_order_name(Color_order order)
{
    switch (order) {
    case Color_order::rggb: return "rggb";
    case Color_order::bggr: return "bggr";
    case Color_order::grbg: return "grbg";
    case Color_order::gbrg: return "gbrg";
    }
    return "unknown";
}

std::optional<Color_order> color_order_from_name(const std::string& name)
{
    for (Color_order order : every_color_order)
        if (name == color_order_name(order))
            return order;
    return std::nullopt;
}

Color_layout color_layout(std::int32_t width, std::int32_t height, std::int32_t origin_x, std::int32_t origin_y,
                          Color_order order)
{
    if (origin_x % 2 != 0 || origin_y % 2 != 0)
        throw Color_layout_error("origin " + std::to_string(origin_x) + "," + std::to_string(origin_y) +
                                 " starts inside a polarizer quartet: a colour sensor's frame must start at an even "
                                 "column and row");
    if (width < 4 || height < 4)
        throw Color_layout_error(std::to_string(width) + "x" + std::to_string(height) +
                                 " is smaller than one colour super-pixel (4x4)");
    Color_layout layout;
    layout.plane_width = 2 * (width / 4);
    layout.plane_height = 2 * (height / 4);
    // Whether the frame starts with the second quartet column (row) of a
    // super-pixel of the sensor.
    const int shift_x = static_cast<int>(floor_modulo(origin_x, 4) / 2);
    const int shift_y = static_cast<int>(floor_modulo(origin_y, 4) / 2);
    for (int sensor_row = 0; sensor_row < 2; ++sensor_row)
        for (int sensor_column = 0; sensor_column < 2; ++sensor_column) {
            const Color_plane plane = quartet_planes[static_cast<int>(order)][2 * sensor_row + sensor_column];
            Plane_place& place = layout.planes[static_cast<std::size_t>(plane)];
            place.quartet_column = sensor_column ^ shift_x;
            place.quartet_row = sensor_row ^ shift_y;
            // The plane's first quartet lies in sensor super-pixel
            // floor((origin + 2 quartet) / 4), whose quartet of this colour
            // starts the plane's column (row) pair 2 floor(...) of the
            // sensor's plane.
            place.origin_x = static_cast<std::int32_t>(
                2 * floor_division(static_cast<std::int64_t>(origin_x) + 2 * place.quartet_column, 4));
            place.origin_y = static_cast<std::int32_t>(
                2 * floor_division(static_cast<std::int64_t>(origin_y) + 2 * place.quartet_row, 4));
        }
    return layout;
}

void extract_plane(const std::uint16_t* frame, std::int32_t frame_width, const Color_layout& layout,
                   Color_plane plane, std::uint16_t* destination)
{
    const Plane_place& place = layout.place(plane);
    const std::size_t pairs = static_cast<std::size_t>(layout.plane_width) / 2;
    for (std::int32_t row = 0; row < layout.plane_height; ++row) {
        const std::size_t frame_row = 4 * static_cast<std::size_t>(row / 2) + 2 * place.quartet_row + row % 2;
        const std::uint16_t* source = frame + frame_row * frame_width + 2 * place.quartet_column;
        std::uint16_t* target = destination + static_cast<std::size_t>(row) * layout.plane_width;
        // Each quartet row contributes its two pixels, side by side.
        for (std::size_t pair = 0; pair < pairs; ++pair)
            std::memcpy(target + 2 * pair, source + 4 * pair, 2 * sizeof(std::uint16_t));
    }
}

}  // namespace ksi_cli
