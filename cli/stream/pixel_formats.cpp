#include "pixel_formats.hpp"

#include <cstring>

namespace ksi_cli {

const Pixel_format unpacked_formats[6] = {
    {Pixel_encoding::mono16, "Mono16", 0x01100007u, 16},
    {Pixel_encoding::mono12, "Mono12", 0x01100005u, 12},
    {Pixel_encoding::mono12_packed, "Mono12Packed", 0x010c0006u, 12},
    {Pixel_encoding::mono12p, "Mono12p", 0x010c0047u, 12},
    {Pixel_encoding::mono10, "Mono10", 0x01100003u, 10},
    {Pixel_encoding::mono8, "Mono8", 0x01080001u, 8},
};

std::optional<Pixel_format> pixel_format_by_code(std::uint32_t code)
{
    for (const Pixel_format& format : unpacked_formats)
        if (format.code == code)
            return format;
    return std::nullopt;
}

std::optional<Pixel_format> pixel_format_by_name(const std::string& name)
{
    for (const Pixel_format& format : unpacked_formats)
        if (name == format.name)
            return format;
    return std::nullopt;
}

std::string unpacked_format_names()
{
    std::string names;
    for (const Pixel_format& format : unpacked_formats)
        names += (names.empty() ? "" : ", ") + std::string(format.name);
    return names;
}

std::size_t packed_size(Pixel_encoding encoding, std::size_t pixel_count)
{
    switch (encoding) {
    case Pixel_encoding::mono8: return pixel_count;
    case Pixel_encoding::mono12_packed:
    case Pixel_encoding::mono12p: return pixel_count / 2 * 3 + (pixel_count % 2) * 2;
    default: return pixel_count * 2;
    }
}

namespace {

void widen_bytes(const std::uint8_t* source, std::size_t pixel_count, std::uint16_t* destination)
{
    for (std::size_t i = 0; i < pixel_count; ++i)
        destination[i] = source[i];
}

void copy_little_endian_words(const std::uint8_t* source, std::size_t pixel_count, std::uint16_t* destination)
{
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "16-bit containers are copied as they are");
    std::memcpy(destination, source, pixel_count * 2);
}

// byte 0: bits 11..4 of pixel 0; byte 1: bits 3..0 of pixel 0 in its low
// nibble and of pixel 1 in its high nibble; byte 2: bits 11..4 of pixel 1.
void unpack_mono12_packed(const std::uint8_t* source, std::size_t pixel_count, std::uint16_t* destination)
{
    const std::size_t pairs = pixel_count / 2;
    for (std::size_t pair = 0; pair < pairs; ++pair, source += 3) {
        destination[2 * pair] = static_cast<std::uint16_t>(source[0] << 4 | (source[1] & 0x0f));
        destination[2 * pair + 1] = static_cast<std::uint16_t>(source[2] << 4 | source[1] >> 4);
    }
    if (pixel_count % 2 != 0)
        destination[pixel_count - 1] = static_cast<std::uint16_t>(source[0] << 4 | (source[1] & 0x0f));
}

// Pixel i takes bits 12 i to 12 i + 11 of the stream, bit k of the stream
// being bit k % 8 of byte k / 8: byte 0 holds bits 7..0 of pixel 0, byte 1
// bits 11..8 of pixel 0 in its low nibble and bits 3..0 of pixel 1 in its
// high nibble, byte 2 bits 11..4 of pixel 1.
void unpack_mono12p(const std::uint8_t* source, std::size_t pixel_count, std::uint16_t* destination)
{
    const std::size_t pairs = pixel_count / 2;
    for (std::size_t pair = 0; pair < pairs; ++pair, source += 3) {
        destination[2 * pair] = static_cast<std::uint16_t>(source[0] | (source[1] & 0x0f) << 8);
        destination[2 * pair + 1] = static_cast<std::uint16_t>(source[1] >> 4 | source[2] << 4);
    }
    if (pixel_count % 2 != 0)
        destination[pixel_count - 1] = static_cast<std::uint16_t>(source[0] | (source[1] & 0x0f) << 8);
}

void narrow_to_bytes(const std::uint16_t* source, std::size_t pixel_count, std::uint8_t* destination)
{
    for (std::size_t i = 0; i < pixel_count; ++i)
        destination[i] = static_cast<std::uint8_t>(source[i]);
}

void pack_mono12_packed(const std::uint16_t* source, std::size_t pixel_count, std::uint8_t* destination)
{
    const std::size_t pairs = pixel_count / 2;
    for (std::size_t pair = 0; pair < pairs; ++pair, destination += 3) {
        const unsigned first = source[2 * pair] & 0xfffu, second = source[2 * pair + 1] & 0xfffu;
        destination[0] = static_cast<std::uint8_t>(first >> 4);
        destination[1] = static_cast<std::uint8_t>((first & 0x0fu) | (second & 0x0fu) << 4);
        destination[2] = static_cast<std::uint8_t>(second >> 4);
    }
    if (pixel_count % 2 != 0) {
        const unsigned last = source[pixel_count - 1] & 0xfffu;
        destination[0] = static_cast<std::uint8_t>(last >> 4);
        destination[1] = static_cast<std::uint8_t>(last & 0x0fu);
    }
}

void pack_mono12p(const std::uint16_t* source, std::size_t pixel_count, std::uint8_t* destination)
{
    const std::size_t pairs = pixel_count / 2;
    for (std::size_t pair = 0; pair < pairs; ++pair, destination += 3) {
        const unsigned first = source[2 * pair] & 0xfffu, second = source[2 * pair + 1] & 0xfffu;
        destination[0] = static_cast<std::uint8_t>(first);
        destination[1] = static_cast<std::uint8_t>(first >> 8 | (second & 0x0fu) << 4);
        destination[2] = static_cast<std::uint8_t>(second >> 4);
    }
    if (pixel_count % 2 != 0) {
        const unsigned last = source[pixel_count - 1] & 0xfffu;
        destination[0] = static_cast<std::uint8_t>(last);
        destination[1] = static_cast<std::uint8_t>(last >> 8);
    }
}

}  // namespace

void unpack(Pixel_encoding encoding, const std::uint8_t* source, std::size_t pixel_count,
            std::uint16_t* destination)
{
    switch (encoding) {
    case Pixel_encoding::mono8: widen_bytes(source, pixel_count, destination); return;
    case Pixel_encoding::mono10:
    case Pixel_encoding::mono12:
    case Pixel_encoding::mono16: copy_little_endian_words(source, pixel_count, destination); return;
    case Pixel_encoding::mono12_packed: unpack_mono12_packed(source, pixel_count, destination); return;
    case Pixel_encoding::mono12p: unpack_mono12p(source, pixel_count, destination); return;
    }
}

void pack(Pixel_encoding encoding, const std::uint16_t* source, std::size_t pixel_count, std::uint8_t* destination)
{
    switch (encoding) {
    case Pixel_encoding::mono8: narrow_to_bytes(source, pixel_count, destination); return;
    case Pixel_encoding::mono10:
    case Pixel_encoding::mono12:
    case Pixel_encoding::mono16: std::memcpy(destination, source, pixel_count * 2); return;
    case Pixel_encoding::mono12_packed: pack_mono12_packed(source, pixel_count, destination); return;
    case Pixel_encoding::mono12p: pack_mono12p(source, pixel_count, destination); return;
    }
}

Pixel_format unpacked_format_for_depth(unsigned bit_depth)
{
    const char* name = bit_depth <= 8 ? "Mono8" : bit_depth <= 10 ? "Mono10" : bit_depth <= 12 ? "Mono12" : "Mono16";
    return *pixel_format_by_name(name);
}

}  // namespace ksi_cli
