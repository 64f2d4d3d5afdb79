// Monochrome pixel formats of GenICam cameras (names and codes of the
// GenICam pixel format naming convention), their conversion into the
// library's frame of 16-bit pixels, and back: frames replayed from memory
// travel packed, as a camera would send them.
#ifndef KSI_STREAM_PIXEL_FORMATS_HPP
#define KSI_STREAM_PIXEL_FORMATS_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace ksi_cli {

enum class Pixel_encoding {
    mono8,          // one byte per pixel
    mono10,         // 16-bit little-endian container, 10 significant bits
    mono12,         // 16-bit little-endian container, 12 significant bits
    mono16,         // 16-bit little-endian
    mono12_packed,  // GigE Vision packing: two pixels in three bytes, high bits first
    mono12p,        // two pixels in three bytes, a little-endian bit stream
};

struct Pixel_format {
    Pixel_encoding encoding;
    const char* name;      // e.g. "Mono12Packed"
    std::uint32_t code;    // the camera's PixelFormat value
    unsigned bit_depth;    // significant bits of a pixel
};

// The formats this tool unpacks, in order of preference (deepest first).
extern const Pixel_format unpacked_formats[6];

std::optional<Pixel_format> pixel_format_by_code(std::uint32_t code);
std::optional<Pixel_format> pixel_format_by_name(const std::string& name);
// "Mono8, Mono10, Mono12, Mono16, Mono12Packed, Mono12p"
std::string unpacked_format_names();

// Bytes that pixel_count pixels take. Packed formats run on across rows, so
// an odd pixel count ends in a half-used byte triple (two bytes).
std::size_t packed_size(Pixel_encoding encoding, std::size_t pixel_count);

// Writes pixel_count pixels from source (packed_size bytes) into destination.
void unpack(Pixel_encoding encoding, const std::uint8_t* source, std::size_t pixel_count,
            std::uint16_t* destination);

// The inverse: writes packed_size bytes. Samples must fit the format's bit
// depth (higher bits are not kept).
void pack(Pixel_encoding encoding, const std::uint16_t* source, std::size_t pixel_count,
          std::uint8_t* destination);

// The format a frame of `bit_depth` significant bits travels in without
// loss when no packing is asked for: Mono8, Mono10, Mono12 or Mono16.
Pixel_format unpacked_format_for_depth(unsigned bit_depth);

}  // namespace ksi_cli

#endif
