#include "cli_test_support.h"

#include <fcntl.h>
#include <png.h>
#include <spawn.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"

extern char** environ;

namespace cli_test {

namespace {

std::string read_text(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }

}  // namespace

Run_result run_tool(const std::vector<std::string>& arguments, const std::filesystem::path& directory)
{
    const std::filesystem::path out_file = directory / ".tool_stdout", err_file = directory / ".tool_stderr";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    std::vector<std::string> all{KSI_CLI_EXECUTABLE};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : all)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, KSI_CLI_EXECUTABLE, &actions, nullptr, argv.data(), environ) != 0)
        fail("cannot start " KSI_CLI_EXECUTABLE);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    waitpid(child, &status, 0);
    Run_result result;
    result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = read_text(out_file);
    result.err = read_text(err_file);
    std::filesystem::remove(out_file);
    std::filesystem::remove(err_file);
    return result;
}

Temporary_directory::Temporary_directory()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "ksi_cli_test_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        fail("mkdtemp failed");
    path_ = pattern;
}

Temporary_directory::~Temporary_directory()
{
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                 ignored);
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> file_names(const std::filesystem::path& directory)
{
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error))
        names.push_back(entry->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::uint8_t> file_bytes(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void write_bytes(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes)
{
    std::ofstream stream(file, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::uint16_t> random_mosaic(std::int32_t width, std::int32_t height, int bits, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<unsigned> sample(0, (1u << bits) - 1);
    std::vector<std::uint16_t> frame(static_cast<std::size_t>(width) * height);
    for (std::uint16_t& pixel : frame)
        pixel = static_cast<std::uint16_t>(sample(generator));
    return frame;
}

void write_png(const std::filesystem::path& file, const std::vector<std::uint16_t>& samples, std::int32_t width,
               std::int32_t height, int depth, int channels, int significant_bits)
{
    std::FILE* stream = std::fopen(file.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png)))
        fail("libpng failed to write " + file.string());
    png_init_io(png, stream);
    const int color_type = channels == 1 ? PNG_COLOR_TYPE_GRAY
                           : channels == 2 ? PNG_COLOR_TYPE_GRAY_ALPHA
                                           : PNG_COLOR_TYPE_RGB;
    png_set_IHDR(png, info, width, height, depth, color_type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (significant_bits != 0) {
        png_color_8 bits{};
        bits.gray = bits.red = bits.green = bits.blue = static_cast<png_byte>(significant_bits);
        png_set_sBIT(png, info, &bits);
    }
    png_write_info(png, info);
    // Rows packed as PNG stores them: big-endian 16-bit samples, or 8 / fewer bits.
    const std::size_t row_samples = static_cast<std::size_t>(width) * channels;
    std::vector<png_byte> row((row_samples * depth + 7) / 8);
    for (std::int32_t y = 0; y < height; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (std::size_t i = 0; i < row_samples; ++i) {
            const unsigned value = samples[y * row_samples + i];
            if (depth == 16) {
                row[2 * i] = static_cast<png_byte>(value >> 8);
                row[2 * i + 1] = static_cast<png_byte>(value);
            } else {
                const std::size_t bit = i * depth;
                row[bit / 8] |= static_cast<png_byte>(value << (8 - depth - bit % 8));
            }
        }
        png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(stream);
}

void write_tiff(const std::filesystem::path& file, const std::vector<std::uint16_t>& samples, std::int32_t width,
                std::int32_t height, int depth, int channels, std::uint32_t tile_size, std::uint32_t rows_per_strip)
{
    TIFF* tiff = TIFFOpen(file.c_str(), "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<std::uint16_t>(channels));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(depth));
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, channels >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    const std::size_t bytes_per_sample = static_cast<std::size_t>(depth) / 8;
    const std::size_t pixel_bytes = bytes_per_sample * channels;
    // The samples in the file's layout, host order (libtiff swaps as needed).
    std::vector<std::uint8_t> packed(samples.size() * bytes_per_sample);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (depth == 8)
            packed[i] = static_cast<std::uint8_t>(samples[i]);
        else if (depth == 16)
            std::memcpy(&packed[2 * i], &samples[i], 2);
        else {
            const std::uint32_t wide = samples[i];
            packed.resize(samples.size() * 4);
            std::memcpy(&packed[4 * i], &wide, 4);
        }
    }
    if (tile_size != 0) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, tile_size);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, tile_size);
        std::vector<std::uint8_t> tile(static_cast<std::size_t>(tile_size) * tile_size * pixel_bytes, 0);
        for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(height); y += tile_size)
            for (std::uint32_t x = 0; x < static_cast<std::uint32_t>(width); x += tile_size) {
                std::fill(tile.begin(), tile.end(), 0);
                for (std::uint32_t row = 0; row < tile_size && y + row < static_cast<std::uint32_t>(height); ++row)
                    for (std::uint32_t column = 0; column < tile_size && x + column < static_cast<std::uint32_t>(width);
                         ++column)
                        std::memcpy(&tile[(row * tile_size + column) * pixel_bytes],
                                    &packed[((y + row) * static_cast<std::size_t>(width) + x + column) * pixel_bytes],
                                    pixel_bytes);
                TIFFWriteTile(tiff, tile.data(), x, y, 0, 0);
            }
    } else {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows_per_strip);
        for (std::int32_t y = 0; y < height; ++y)
            TIFFWriteScanline(tiff, &packed[static_cast<std::size_t>(y) * width * pixel_bytes], y, 0);
    }
    TIFFClose(tiff);
}

void write_pgm(const std::filesystem::path& file, const std::vector<std::uint16_t>& samples, std::int32_t width,
               std::int32_t height, unsigned maximum)
{
    std::ostringstream header;
    header << "P5\n# written by the tests\n" << width << " " << height << "\n" << maximum << "\n";
    std::string text = header.str();
    std::vector<std::uint8_t> bytes(text.begin(), text.end());
    for (std::uint16_t sample : samples) {
        if (maximum > 255)
            bytes.push_back(static_cast<std::uint8_t>(sample >> 8));
        bytes.push_back(static_cast<std::uint8_t>(sample));
    }
    write_bytes(file, bytes);
}

Image read_png(const std::filesystem::path& file)
{
    std::FILE* stream = std::fopen(file.c_str(), "rb");
    if (stream == nullptr)
        fail("cannot open " + file.string());
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png)))
        fail("libpng failed to read " + file.string());
    png_init_io(png, stream);
    png_read_info(png, info);
    Image image;
    image.width = static_cast<std::int32_t>(png_get_image_width(png, info));
    image.height = static_cast<std::int32_t>(png_get_image_height(png, info));
    image.channels = png_get_channels(png, info);
    image.depth = png_get_bit_depth(png, info);
    png_color_8p bits = nullptr;
    if (png_get_sBIT(png, info, &bits) != 0)
        image.significant_bits = bits->gray != 0 ? bits->gray : bits->red;
    const std::size_t row_samples = static_cast<std::size_t>(image.width) * image.channels;
    std::vector<png_byte> row(png_get_rowbytes(png, info));
    image.samples.resize(row_samples * image.height);
    for (std::int32_t y = 0; y < image.height; ++y) {
        png_read_row(png, row.data(), nullptr);
        for (std::size_t i = 0; i < row_samples; ++i)
            image.samples[y * row_samples + i] =
                image.depth == 16 ? static_cast<std::uint16_t>(row[2 * i] << 8 | row[2 * i + 1]) : row[i];
    }
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(stream);
    return image;
}

Image read_tiff(const std::filesystem::path& file)
{
    TIFF* tiff = TIFFOpen(file.c_str(), "r");
    if (tiff == nullptr)
        fail("cannot open " + file.string());
    Image image;
    std::uint32_t width = 0, height = 0;
    std::uint16_t channels = 1, depth = 1, format = SAMPLEFORMAT_UINT;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &channels);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &depth);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
    image.width = static_cast<std::int32_t>(width);
    image.height = static_cast<std::int32_t>(height);
    image.channels = channels;
    image.depth = depth;
    const std::size_t row_samples = static_cast<std::size_t>(width) * channels;
    std::vector<std::uint8_t> row(TIFFScanlineSize(tiff));
    for (std::uint32_t y = 0; y < height; ++y) {
        if (TIFFReadScanline(tiff, row.data(), y, 0) < 0)
            fail("libtiff failed to read " + file.string());
        for (std::size_t i = 0; i < row_samples; ++i) {
            if (format == SAMPLEFORMAT_IEEEFP && depth == 32) {
                float value;
                std::memcpy(&value, &row[4 * i], 4);
                image.floats.push_back(value);
            } else if (depth == 16) {
                std::uint16_t value;
                std::memcpy(&value, &row[2 * i], 2);
                image.samples.push_back(value);
            } else {
                image.samples.push_back(row[i]);
            }
        }
    }
    TIFFClose(tiff);
    return image;
}

Transform_result library_transform(const std::vector<std::uint16_t>& frame, std::int32_t width, std::int32_t height,
                                   const Transform_arguments& arguments)
{
    const std::size_t pixels = static_cast<std::size_t>(width) * height;
    Transform_result result;
    result.normalized.resize(2 * pixels);
    for (auto& image : result.images)
        image.resize(pixels);
    kl_polarization_processor_module_initialize();
    void* processor = nullptr;
    int status = kl_polarization_processor_create_polarization_processor(&processor);
    if (status == status_success && arguments.calibration) {
        const auto& m = *arguments.calibration;
        status = kl_polarization_processor_set_custom_calibration_coefficients(processor, m[0].data(), m[1].data(),
                                                                               m[2].data(), m[3].data());
    }
    if (status == status_success)
        status = kl_polarization_processor_transform(
            processor, arguments.phase, frame.data(), arguments.origin_x, arguments.origin_y, width, height,
            arguments.bit_depth, arguments.output_maximum, result.normalized.data(), result.images[0].data(),
            result.images[1].data(), result.images[2].data(), result.images[3].data(), result.images[4].data());
    kl_polarization_processor_destroy_polarization_processor(processor);
    kl_polarization_processor_module_terminate();
    if (status != status_success)
        fail("the library refused the reference transform with status " + std::to_string(status));
    return result;
}

void expect_images_equal_library(const std::filesystem::path& directory, const std::string& stem,
                                 const std::vector<std::uint16_t>& frame, std::int32_t width, std::int32_t height,
                                 const Transform_arguments& arguments, const std::string& extension)
{
    const Transform_result expected = library_transform(frame, width, height, arguments);
    static const char* const names[5] = {"s0", "s1", "s2", "aolp", "dolp"};
    for (int slot = 0; slot < 5; ++slot) {
        const std::filesystem::path file = directory / (stem + "_" + names[slot] + "." + extension);
        ASSERT_TRUE(std::filesystem::exists(file)) << file;
        const Image image = extension == "png" ? read_png(file) : read_tiff(file);
        EXPECT_EQ(image.width, width) << file;
        EXPECT_EQ(image.height, height) << file;
        EXPECT_EQ(image.channels, 1) << file;
        EXPECT_EQ(image.depth, 16) << file;
        EXPECT_EQ(image.samples, expected.images[slot]) << file;
    }
    const std::filesystem::path file = directory / (stem + "_normalized.tiff");
    ASSERT_TRUE(std::filesystem::exists(file)) << file;
    const Image normalized = read_tiff(file);
    EXPECT_EQ(normalized.channels, 2);
    EXPECT_EQ(normalized.depth, 32);
    ASSERT_EQ(normalized.floats.size(), expected.normalized.size());
    EXPECT_EQ(std::memcmp(normalized.floats.data(), expected.normalized.data(), 4 * expected.normalized.size()), 0)
        << file << " differs bitwise from the library's normalized pair";
}

}  // namespace cli_test
