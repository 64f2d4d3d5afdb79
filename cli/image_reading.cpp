#include "image_reading.h"

#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

namespace ksi_cli {
namespace {

struct File_closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, File_closer>;

File open_input(const std::filesystem::path& path)
{
    File file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        const int code = errno;
        if (code == ENOENT)
            throw Input_error("missing (no such file)");
        throw Input_error(std::string("unreadable (") + std::strerror(code) + ")");
    }
    return file;
}

std::uint64_t file_size(std::FILE* file)
{
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fseek(file, 0, SEEK_SET);
    return size < 0 ? 0 : static_cast<std::uint64_t>(size);
}

void set_frame_size(Frame& frame, std::uint64_t width, std::uint64_t height)
{
    // The library takes sizes as signed 32-bit numbers.
    if (width > INT32_MAX || height > INT32_MAX || width * height > (std::uint64_t{1} << 32))
        throw Input_error("unsupported size " + std::to_string(width) + "x" + std::to_string(height));
    frame.width = static_cast<std::int32_t>(width);
    frame.height = static_cast<std::int32_t>(height);
    frame.pixels.resize(static_cast<std::size_t>(width * height));
}

// A header's size is believed only as far as the file can hold the samples:
// a damaged header must not make the frame huge. Stored samples need their
// full size in the file; compressed ones expand at most `expansion` times.
void check_size_against_file(const char* format, std::uint64_t width, std::uint64_t height,
                             std::uint64_t sample_bytes, std::uint64_t file_bytes, std::uint64_t expansion)
{
    std::uint64_t needed = 0, most = 0;
    const bool beyond_counting = __builtin_mul_overflow(width, height, &needed) ||
                                 __builtin_mul_overflow(needed, sample_bytes, &needed);
    if (__builtin_mul_overflow(file_bytes, expansion, &most))
        most = UINT64_MAX;
    if (!beyond_counting && needed <= most)
        return;
    const std::string size = std::to_string(width) + "x" + std::to_string(height) + " " +
                             std::to_string(8 * sample_bytes) + "-bit samples ";
    const std::string file = std::to_string(file_bytes) + " bytes";
    throw Input_error(std::string("truncated or corrupt ") + format + " (" + size +
                      (expansion == 1 ? "need more than the file's " + file
                                      : "cannot be decompressed from a file of " + file) +
                      ")");
}

std::uint8_t* frame_bytes(Frame& frame) { return reinterpret_cast<std::uint8_t*>(frame.pixels.data()); }

// 8-bit samples were stored packed in the first width x height bytes of the
// frame's storage; spread them to 16 bits, from the end so that no byte is
// overwritten before it is read.
void widen_bytes_in_place(Frame& frame)
{
    const std::uint8_t* bytes = frame_bytes(frame);
    for (std::size_t i = frame.pixels.size(); i-- > 0;)
        frame.pixels[i] = bytes[i];
}

// Samples, as many as the frame holds, from the file's current position.
void read_samples(std::FILE* file, Raw_sample_format format, Frame& frame, const char* what)
{
    const std::size_t count = frame.pixels.size();
    const std::size_t sample_bytes = format == Raw_sample_format::u8 ? 1 : 2;
    const std::size_t read = std::fread(frame_bytes(frame), 1, count * sample_bytes, file);
    if (read != count * sample_bytes)
        throw Input_error(std::string("truncated ") + what + ": needs " + std::to_string(count * sample_bytes) +
                          " bytes of samples, has " + std::to_string(read));
    if (format == Raw_sample_format::u8) {
        widen_bytes_in_place(frame);
        return;
    }
    const bool host_is_little_endian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    if ((format == Raw_sample_format::u16le) != host_is_little_endian)
        for (std::uint16_t& sample : frame.pixels)
            sample = static_cast<std::uint16_t>((sample >> 8) | (sample << 8));
}

// ---- PNG -------------------------------------------------------------------

struct Png_reader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    char message[200] = "";
    std::uint64_t file_bytes = 0;
    ~Png_reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

[[noreturn]] void keep_png_error(png_structp png, png_const_charp text)
{
    auto* reader = static_cast<Png_reader*>(png_get_error_ptr(png));
    std::snprintf(reader->message, sizeof reader->message, "truncated or corrupt PNG (libpng: %s)", text);
    png_longjmp(png, 1);
}

void ignore_png_warning(png_structp, png_const_charp) {}

// Returns false with reader.message set when the file is refused. libpng
// reports errors by a long jump back into this function, so it holds no
// object with a destructor.
bool decode_png(Png_reader& reader, std::FILE* file, Frame& frame)
{
    if (setjmp(png_jmpbuf(reader.png)))
        return false;
    png_init_io(reader.png, file);
    png_read_info(reader.png, reader.info);
    const png_uint_32 width = png_get_image_width(reader.png, reader.info);
    const png_uint_32 height = png_get_image_height(reader.png, reader.info);
    const int color_type = png_get_color_type(reader.png, reader.info);
    const int depth = png_get_bit_depth(reader.png, reader.info);
    if (color_type != PNG_COLOR_TYPE_GRAY) {
        std::snprintf(reader.message, sizeof reader.message,
                      "colour or multi-sample image (PNG colour type %d, %d channels)", color_type,
                      png_get_channels(reader.png, reader.info));
        return false;
    }
    if (depth != 8 && depth != 16) {
        std::snprintf(reader.message, sizeof reader.message, "unsupported depth: %d-bit samples (8 or 16 needed)",
                      depth);
        return false;
    }
    // Significant bits below the sample depth mean the samples were shifted
    // up to fill it; shifting back restores the camera's range.
    int significant_bits = depth;
    png_color_8p sbit = nullptr;
    if (png_get_sBIT(reader.png, reader.info, &sbit) != 0 && sbit->gray > 0 && sbit->gray < depth)
        significant_bits = sbit->gray;
    if (depth == 16 && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
        png_set_swap(reader.png);
    const int passes = png_set_interlace_handling(reader.png);
    png_read_update_info(reader.png, reader.info);

    // Deflate, PNG's only compression, expands its data at most 1032 times.
    check_size_against_file("PNG", width, height, depth / 8, reader.file_bytes, 1032);
    set_frame_size(frame, width, height);
    const std::size_t row_bytes = static_cast<std::size_t>(width) * (depth / 8);
    for (int pass = 0; pass < passes; ++pass)
        for (png_uint_32 row = 0; row < height; ++row)
            png_read_row(reader.png, frame_bytes(frame) + row * row_bytes, nullptr);
    png_read_end(reader.png, nullptr);

    if (depth == 8)
        widen_bytes_in_place(frame);
    if (significant_bits < depth)
        for (std::uint16_t& sample : frame.pixels)
            sample = static_cast<std::uint16_t>(sample >> (depth - significant_bits));
    frame.bit_depth = static_cast<std::uint32_t>(significant_bits);
    return true;
}

void read_png(std::FILE* file, Frame& frame)
{
    Png_reader reader;
    reader.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &reader, keep_png_error, ignore_png_warning);
    if (reader.png != nullptr)
        reader.info = png_create_info_struct(reader.png);
    if (reader.info == nullptr)
        throw Input_error("out of memory for the PNG decoder");
    reader.file_bytes = file_size(file);
    if (!decode_png(reader, file, frame))
        throw Input_error(reader.message);
}

// ---- TIFF ------------------------------------------------------------------

int keep_tiff_message(TIFF*, void* user_data, const char* module, const char* format, va_list arguments)
{
    auto* message = static_cast<std::string*>(user_data);
    if (!message->empty())
        return 1;  // the first error names the cause; later ones follow from it
    char text[200];
    std::vsnprintf(text, sizeof text, format, arguments);
    *message = std::string(module != nullptr ? module : "libtiff") + ": " + text;
    return 1;
}

int ignore_tiff_warning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct Tiff_closer {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

void read_tiff(const std::filesystem::path& path, Frame& frame)
{
    std::string message;
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keep_tiff_message, &message);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignore_tiff_warning, nullptr);
    std::unique_ptr<TIFF, Tiff_closer> tiff(TIFFOpenExt(path.c_str(), "r", options.get()));
    const auto corrupt = [&message] { return Input_error("truncated or corrupt TIFF (" + message + ")"); };
    if (!tiff)
        throw corrupt();

    std::uint32_t width = 0, height = 0;
    std::uint16_t samples = 1, depth = 1, sample_format = SAMPLEFORMAT_UINT, photometric = PHOTOMETRIC_MINISBLACK;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_BITSPERSAMPLE, &depth);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLEFORMAT, &sample_format);
    TIFFGetField(tiff.get(), TIFFTAG_PHOTOMETRIC, &photometric);
    if (samples != 1 || (photometric != PHOTOMETRIC_MINISBLACK && photometric != PHOTOMETRIC_MINISWHITE))
        throw Input_error("colour or multi-sample image (TIFF with " + std::to_string(samples) +
                          " samples per pixel, photometric " + std::to_string(photometric) + ")");
    if (depth != 8 && depth != 16)
        throw Input_error("unsupported depth: " + std::to_string(depth) + "-bit samples (8 or 16 needed)");
    if (sample_format != SAMPLEFORMAT_UINT)
        throw Input_error("unsupported depth: signed or floating-point samples (unsigned integers needed)");
    if (photometric == PHOTOMETRIC_MINISWHITE)
        throw Input_error("unsupported photometric interpretation: min-is-white");

    std::uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_COMPRESSION, &compression);
    std::error_code size_error;
    const std::uintmax_t tiff_bytes = std::filesystem::file_size(path, size_error);
    // Of the codecs libtiff decodes for grey samples, ZSTD's run-length
    // blocks expand the most: 32768 times.
    check_size_against_file("TIFF", width, height, depth / 8, size_error ? 0 : tiff_bytes,
                            compression == COMPRESSION_NONE ? 1 : 32768);
    set_frame_size(frame, width, height);
    const std::size_t sample_bytes = depth / 8;
    const std::size_t row_bytes = width * sample_bytes;
    std::uint8_t* const bytes = frame_bytes(frame);
    if (TIFFIsTiled(tiff.get())) {
        std::uint32_t tile_width = 0, tile_height = 0;
        TIFFGetField(tiff.get(), TIFFTAG_TILEWIDTH, &tile_width);
        TIFFGetField(tiff.get(), TIFFTAG_TILELENGTH, &tile_height);
        const tmsize_t tile_size = TIFFTileSize(tiff.get());
        if (tile_width == 0 || tile_height == 0 || tile_size <= 0)
            throw corrupt();
        std::vector<std::uint8_t> tile(static_cast<std::size_t>(tile_size));
        for (std::uint32_t y = 0; y < height; y += tile_height)
            for (std::uint32_t x = 0; x < width; x += tile_width) {
                if (TIFFReadTile(tiff.get(), tile.data(), x, y, 0, 0) < 0)
                    throw corrupt();
                const std::uint32_t rows = std::min(tile_height, height - y);
                const std::size_t copy_bytes = std::min(tile_width, width - x) * sample_bytes;
                for (std::uint32_t row = 0; row < rows; ++row)
                    std::memcpy(bytes + (y + row) * row_bytes + x * sample_bytes,
                                tile.data() + row * tile_width * sample_bytes, copy_bytes);
            }
    } else {
        std::uint32_t rows_per_strip = height;
        TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_ROWSPERSTRIP, &rows_per_strip);
        rows_per_strip = std::min(std::max(rows_per_strip, 1u), height);
        for (std::uint32_t y = 0; y < height; y += rows_per_strip) {
            const std::uint32_t rows = std::min(rows_per_strip, height - y);
            const tmsize_t wanted = static_cast<tmsize_t>(rows * row_bytes);
            if (TIFFReadEncodedStrip(tiff.get(), TIFFComputeStrip(tiff.get(), y, 0), bytes + y * row_bytes, wanted) !=
                wanted)
                throw corrupt();
        }
    }
    if (!message.empty())
        throw corrupt();
    if (depth == 8)
        widen_bytes_in_place(frame);
    frame.bit_depth = depth;
}

// ---- PGM -------------------------------------------------------------------

// One decimal number of the header, after blanks and # comments.
std::uint64_t read_header_number(std::FILE* file)
{
    int c = std::fgetc(file);
    for (;;) {
        while (c != EOF && std::isspace(c))
            c = std::fgetc(file);
        if (c != '#')
            break;
        while (c != EOF && c != '\n')
            c = std::fgetc(file);
    }
    if (c == EOF || !std::isdigit(c))
        throw Input_error("truncated or corrupt PGM (bad header)");
    std::uint64_t value = 0;
    while (c != EOF && std::isdigit(c) && value < (std::uint64_t{1} << 40)) {
        value = value * 10 + static_cast<unsigned>(c - '0');
        c = std::fgetc(file);
    }
    // Exactly one blank ends the header's last number; the samples follow.
    if (c == EOF || !std::isspace(c))
        throw Input_error("truncated or corrupt PGM (bad header)");
    return value;
}

void read_pgm(std::FILE* file, Frame& frame)
{
    std::fseek(file, 2, SEEK_SET);
    const std::uint64_t width = read_header_number(file);
    const std::uint64_t height = read_header_number(file);
    const std::uint64_t maximum = read_header_number(file);
    if (maximum == 0 || maximum > 65535)
        throw Input_error("truncated or corrupt PGM (maximum value " + std::to_string(maximum) + ")");
    // The header's size is believed only once the file holds that many
    // samples: a damaged header must not make the frame huge.
    const std::uint64_t sample_bytes = maximum < 256 ? 1 : 2;
    const long header_end = std::ftell(file);
    const std::uint64_t available = file_size(file) - static_cast<std::uint64_t>(header_end);
    std::fseek(file, header_end, SEEK_SET);
    std::uint64_t needed = 0;
    const bool beyond_counting = __builtin_mul_overflow(width, height, &needed) ||
                                 __builtin_mul_overflow(needed, sample_bytes, &needed);
    if (beyond_counting || needed > available)
        throw Input_error("truncated PGM: needs " + (beyond_counting ? std::string("more than 2^64") : std::to_string(needed)) +
                          " bytes of samples, has " + std::to_string(available));
    set_frame_size(frame, width, height);
    read_samples(file, sample_bytes == 1 ? Raw_sample_format::u8 : Raw_sample_format::u16be, frame, "PGM");
    std::uint32_t bits = 1;
    while ((std::uint64_t{1} << bits) - 1 < maximum)
        ++bits;
    frame.bit_depth = bits;
}

void read_raw(std::FILE* file, const Raw_layout& layout, Frame& frame)
{
    const std::uint64_t sample_bytes = layout.format == Raw_sample_format::u8 ? 1 : 2;
    const std::uint64_t needed = std::uint64_t(layout.width) * std::uint64_t(layout.height) * sample_bytes;
    const std::uint64_t size = file_size(file);
    if (size != needed)
        throw Input_error("raw size does not match: " + std::to_string(layout.width) + "x" +
                          std::to_string(layout.height) + " " + (sample_bytes == 1 ? "u8" : "u16") + " needs " +
                          std::to_string(needed) + " bytes, the file has " + std::to_string(size));
    set_frame_size(frame, layout.width, layout.height);
    read_samples(file, layout.format, frame, "raw dump");
    frame.bit_depth = static_cast<std::uint32_t>(8 * sample_bytes);
}

bool has_extension(const std::filesystem::path& file, std::initializer_list<const char*> extensions)
{
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::any_of(extensions.begin(), extensions.end(),
                       [&extension](const char* known) { return extension == known; });
}

}  // namespace

void read_frame(const std::filesystem::path& path, const std::optional<Raw_layout>& raw, Frame& frame)
{
    File file = open_input(path);
    if (raw) {
        read_raw(file.get(), *raw, frame);
        return;
    }
    unsigned char magic[8] = {};
    const std::size_t length = std::fread(magic, 1, sizeof magic, file.get());
    std::rewind(file.get());
    static const unsigned char tiff_little[4] = {'I', 'I', 42, 0}, tiff_big[4] = {'M', 'M', 0, 42};
    if (length == 8 && png_sig_cmp(magic, 0, 8) == 0)
        read_png(file.get(), frame);
    else if (length >= 4 && (std::memcmp(magic, tiff_little, 4) == 0 || std::memcmp(magic, tiff_big, 4) == 0))
        read_tiff(path, frame);
    else if (length >= 3 && magic[0] == 'P' && magic[1] == '5' && std::isspace(magic[2]))
        read_pgm(file.get(), frame);
    else
        throw Input_error(length == 0 ? "not an image (empty file)"
                                      : "not an image (neither PNG, TIFF nor binary PGM; raw dumps need --raw)");
}

bool is_input_file_name(const std::filesystem::path& file, bool raw)
{
    return raw ? has_extension(file, {".raw"}) : has_extension(file, {".png", ".tif", ".tiff", ".pgm"});
}

}  // namespace ksi_cli
