// Packers written bit by bit from the layouts of the camera pixel formats,
// the reference for the tool's unpacking.
#pragma once

#include <cstdint>
#include <vector>

namespace reference_packing {

// Mono12p: bit b of pixel i is bit 12 i + b of a stream whose bit k is bit
// k % 8 of byte k / 8.
inline std::vector<std::uint8_t> pack_mono12p(const std::vector<std::uint16_t>& pixels)
{
    std::vector<std::uint8_t> bytes((pixels.size() * 12 + 7) / 8, 0);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        for (unsigned b = 0; b < 12; ++b)
            if (pixels[i] >> b & 1) {
                const std::size_t k = 12 * i + b;
                bytes[k / 8] |= static_cast<std::uint8_t>(1u << (k % 8));
            }
    return bytes;
}

// Mono12Packed (GigE Vision): for each pair, byte 0 = bits 11..4 of the
// first pixel, byte 1 = bits 3..0 of the first (low nibble) and of the second
// (high nibble), byte 2 = bits 11..4 of the second.
inline std::vector<std::uint8_t> pack_mono12_packed(const std::vector<std::uint16_t>& pixels)
{
    std::vector<std::uint8_t> bytes((pixels.size() * 12 + 7) / 8, 0);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const std::size_t triple = i / 2 * 3;
        const unsigned high = pixels[i] / 16, low = pixels[i] % 16;
        if (i % 2 == 0) {
            bytes[triple] = static_cast<std::uint8_t>(high);
            bytes[triple + 1] = static_cast<std::uint8_t>(bytes[triple + 1] + low);
        } else {
            bytes[triple + 1] = static_cast<std::uint8_t>(bytes[triple + 1] + low * 16);
            bytes[triple + 2] = static_cast<std::uint8_t>(high);
        }
    }
    return bytes;
}

inline std::vector<std::uint8_t> little_endian_words(const std::vector<std::uint16_t>& pixels)
{
    std::vector<std::uint8_t> bytes;
    for (std::uint16_t pixel : pixels) {
        bytes.push_back(static_cast<std::uint8_t>(pixel % 256));
        bytes.push_back(static_cast<std::uint8_t>(pixel / 256));
    }
    return bytes;
}

}  // namespace reference_packing
