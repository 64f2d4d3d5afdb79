#include "image_writing.h"

#include <png.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ksi_cli {

namespace {

// Read once, before any thread starts: umask can only be read by setting it.
const mode_t creation_mask = [] {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}();

}  // namespace

Staged_file::Staged_file(std::filesystem::path final_path) : final_path_(std::move(final_path))
{
    // A dot name keeps the temporary out of directory listings of images.
    std::string pattern =
        (final_path_.parent_path() / ("." + final_path_.filename().string() + ".XXXXXX")).string();
    descriptor_ = mkstemp(pattern.data());
    if (descriptor_ < 0)
        throw Output_error("cannot create a file in " + final_path_.parent_path().string() + ": " +
                           std::strerror(errno));
    temporary_path_ = pattern;
}

Staged_file::Staged_file(Staged_file&& other) noexcept
    : final_path_(std::move(other.final_path_)),
      temporary_path_(std::move(other.temporary_path_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      committed_(std::exchange(other.committed_, true))
{
}

Staged_file::~Staged_file()
{
    if (descriptor_ >= 0)
        close(descriptor_);
    if (!committed_)
        std::remove(temporary_path_.c_str());
}

int Staged_file::take_descriptor() { return std::exchange(descriptor_, -1); }

void Staged_file::commit()
{
    // mkstemp creates the file for its owner alone; give it the permissions
    // of any other file this user creates.
    chmod(temporary_path_.c_str(), 0666 & ~creation_mask);
    if (std::rename(temporary_path_.c_str(), final_path_.c_str()) != 0)
        throw Output_error("cannot rename " + temporary_path_.string() + " to " + final_path_.string() + ": " +
                           std::strerror(errno));
    committed_ = true;
}

namespace {

// ---- PNG -------------------------------------------------------------------

struct Png_writer {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::FILE* file = nullptr;
    char message[200] = "";
    ~Png_writer()
    {
        png_destroy_write_struct(&png, &info);
        if (file != nullptr)
            std::fclose(file);
    }
};

[[noreturn]] void keep_png_error(png_structp png, png_const_charp text)
{
    auto* writer = static_cast<Png_writer*>(png_get_error_ptr(png));
    std::snprintf(writer->message, sizeof writer->message, "libpng: %s", text);
    png_longjmp(png, 1);
}

void ignore_png_warning(png_structp, png_const_charp) {}

struct Png_image {
    const std::uint8_t* rows;  // row-major, samples in host order
    std::size_t row_bytes;
    std::int32_t width;
    std::int32_t height;
    int depth;
    int color_type;
    int significant_bits;
};

// Returns false with writer.message set on failure. libpng reports errors by
// a long jump back into this function, so it holds no object with a
// destructor.
bool encode_png(Png_writer& writer, const Png_image& image)
{
    if (setjmp(png_jmpbuf(writer.png)))
        return false;
    png_init_io(writer.png, writer.file);
    png_set_IHDR(writer.png, writer.info, static_cast<png_uint_32>(image.width),
                 static_cast<png_uint_32>(image.height), image.depth, image.color_type, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(writer.png, png_compression_level);
    png_set_compression_strategy(writer.png, Z_RLE);
    png_set_filter(writer.png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    if (image.significant_bits < image.depth) {
        png_color_8 bits{};
        bits.gray = static_cast<png_byte>(image.significant_bits);
        png_set_sBIT(writer.png, writer.info, &bits);
    }
    png_write_info(writer.png, writer.info);
    if (image.depth == 16 && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
        png_set_swap(writer.png);
    if (image.significant_bits < image.depth) {
        png_color_8 bits{};
        bits.gray = static_cast<png_byte>(image.significant_bits);
        png_set_shift(writer.png, &bits);
    }
    for (std::int32_t row = 0; row < image.height; ++row)
        png_write_row(writer.png, image.rows + static_cast<std::size_t>(row) * image.row_bytes);
    png_write_end(writer.png, nullptr);
    return true;
}

void write_png(Staged_file& file, const Png_image& image)
{
    Png_writer writer;
    const int descriptor = file.take_descriptor();
    writer.file = fdopen(descriptor, "wb");
    if (writer.file == nullptr) {
        close(descriptor);
        throw Output_error("cannot write " + file.final_path().string() + ": " + std::strerror(errno));
    }
    writer.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &writer, keep_png_error, ignore_png_warning);
    if (writer.png != nullptr)
        writer.info = png_create_info_struct(writer.png);
    if (writer.info == nullptr)
        throw Output_error("cannot write " + file.final_path().string() + ": out of memory for the PNG encoder");
    if (!encode_png(writer, image))
        throw Output_error("cannot write " + file.final_path().string() + " (" + writer.message + ")");
    std::FILE* stream = std::exchange(writer.file, nullptr);
    if (std::fflush(stream) != 0 || std::ferror(stream) != 0) {
        const int code = errno;
        std::fclose(stream);
        throw Output_error("cannot write " + file.final_path().string() + ": " + std::strerror(code));
    }
    if (std::fclose(stream) != 0)
        throw Output_error("cannot write " + file.final_path().string() + ": " + std::strerror(errno));
}

// ---- TIFF ------------------------------------------------------------------

int keep_tiff_message(TIFF*, void* user_data, const char* module, const char* format, va_list arguments)
{
    auto* message = static_cast<std::string*>(user_data);
    if (message->empty()) {
        char text[200];
        std::vsnprintf(text, sizeof text, format, arguments);
        *message = std::string(module != nullptr ? module : "libtiff") + ": " + text;
    }
    return 1;
}

int ignore_tiff_warning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct Tiff_image {
    const std::uint8_t* samples;
    std::int32_t width;
    std::int32_t height;
    std::uint16_t samples_per_pixel;
    std::uint16_t bits_per_sample;
    std::uint16_t sample_format;
};

// Uncompressed, in strips of about 256 KiB: the fastest to write and to read.
void write_tiff(Staged_file& file, const Tiff_image& image)
{
    std::string message;
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keep_tiff_message, &message);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignore_tiff_warning, nullptr);
    const int descriptor = file.take_descriptor();
    TIFF* tiff = TIFFFdOpenExt(descriptor, file.temporary_path().c_str(), "w", options.get());
    const auto failure = [&file, &message] {
        return Output_error("cannot write " + file.final_path().string() + " (" + message + ")");
    };
    if (tiff == nullptr) {
        close(descriptor);
        throw failure();
    }
    const std::size_t row_bytes =
        static_cast<std::size_t>(image.width) * image.samples_per_pixel * (image.bits_per_sample / 8);
    const std::uint32_t rows_per_strip = static_cast<std::uint32_t>(std::max<std::size_t>(1, (256 << 10) / row_bytes));
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, image.samples_per_pixel);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, image.bits_per_sample);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, image.sample_format);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, image.samples_per_pixel == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows_per_strip);
    if (image.samples_per_pixel == 2) {
        // The second sample is data of its own, not transparency.
        const std::uint16_t extra[1] = {EXTRASAMPLE_UNSPECIFIED};
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    bool written = true;
    for (std::uint32_t row = 0; written && row < static_cast<std::uint32_t>(image.height); row += rows_per_strip) {
        const std::uint32_t rows = std::min(rows_per_strip, static_cast<std::uint32_t>(image.height) - row);
        written = TIFFWriteEncodedStrip(tiff, TIFFComputeStrip(tiff, row, 0),
                                        const_cast<std::uint8_t*>(image.samples) + row * row_bytes,
                                        static_cast<tmsize_t>(rows * row_bytes)) >= 0;
    }
    written = written && TIFFFlush(tiff) != 0;
    TIFFClose(tiff);
    if (!written || !message.empty())
        throw failure();
}

}  // namespace

void write_gray16(Staged_file& file, Image_format format, const std::uint16_t* samples, std::int32_t width,
                  std::int32_t height, int significant_bits)
{
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(samples);
    if (format == Image_format::png)
        write_png(file, {bytes, static_cast<std::size_t>(width) * 2, width, height, 16, PNG_COLOR_TYPE_GRAY,
                         significant_bits});
    else
        write_tiff(file, {bytes, width, height, 1, 16, SAMPLEFORMAT_UINT});
}

void write_rgb16(Staged_file& file, Image_format format, const std::uint16_t* samples, std::int32_t width,
                 std::int32_t height)
{
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(samples);
    if (format == Image_format::png)
        write_png(file, {bytes, static_cast<std::size_t>(width) * 6, width, height, 16, PNG_COLOR_TYPE_RGB, 16});
    else
        write_tiff(file, {bytes, width, height, 3, 16, SAMPLEFORMAT_UINT});
}

void write_float_pairs_tiff(Staged_file& file, const float* samples, std::int32_t width, std::int32_t height)
{
    write_tiff(file, {reinterpret_cast<const std::uint8_t*>(samples), width, height, 2, 32, SAMPLEFORMAT_IEEEFP});
}

void write_rgb8_png(Staged_file& file, const std::uint8_t* samples, std::int32_t width, std::int32_t height)
{
    write_png(file, {samples, static_cast<std::size_t>(width) * 3, width, height, 8, PNG_COLOR_TYPE_RGB, 8});
}

}  // namespace ksi_cli
