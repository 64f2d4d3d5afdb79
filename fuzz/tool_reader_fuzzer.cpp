// The command-line tool's readers on arbitrary bytes: every file must give
// either a frame or the tool's own error (which names what is wrong), never
// a crash, a hang, a leak or any other exception. One source, built once per
// reader; KSI_FUZZ_READER says which:
//   1 PNG, 2 TIFF, 3 PGM: the input is the file; inputs that do not start
//                        with the format's signature belong to another target
//   4 raw:               three bytes choose width, height and sample format,
//                        the rest is the file
//   5 calibration:       the input is the JSON calibration file
//
// The readers take a path, so the bytes go into an in-memory file opened
// through /proc/self/fd.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "calibration_file.h"
#include "image_reading.h"

namespace {

enum Reader { png = 1, tiff = 2, pgm = 3, raw = 4, calibration = 5 };
constexpr Reader reader = Reader(KSI_FUZZ_READER);

// One in-memory file for the whole run, rewritten for every input.
class Memory_file {
public:
    Memory_file() : descriptor_(memfd_create("ksi_fuzz_input", 0))
    {
        if (descriptor_ < 0) {
            std::perror("memfd_create");
            std::abort();
        }
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    const std::string& hold(const std::uint8_t* bytes, std::size_t size)
    {
        if (ftruncate(descriptor_, 0) != 0 || pwrite(descriptor_, bytes, size, 0) != ssize_t(size)) {
            std::perror("writing the in-memory file");
            std::abort();
        }
        return path_;
    }

private:
    int descriptor_;
    std::string path_;
};

bool starts_with(const std::uint8_t* bytes, std::size_t size, const char* signature, std::size_t length)
{
    return size >= length && std::memcmp(bytes, signature, length) == 0;
}

bool has_own_signature(const std::uint8_t* bytes, std::size_t size)
{
    switch (reader) {
    case png: return starts_with(bytes, size, "\x89PNG\r\n\x1a\n", 8);
    case tiff: return starts_with(bytes, size, "II*\0", 4) || starts_with(bytes, size, "MM\0*", 4);
    case pgm: return starts_with(bytes, size, "P5", 2);
    default: return true;
    }
}

[[noreturn]] void fail(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

// A frame the tool hands to the library must describe its own pixels. A
// size the library cannot take (an empty PGM, say) is left for the
// library's refusal, which the tool reports.
void check_frame(const ksi_cli::Frame& frame)
{
    if (frame.width < 0 || frame.height < 0 ||
        frame.pixels.size() != std::size_t(frame.width) * std::size_t(frame.height))
        fail("a frame of " + std::to_string(frame.width) + "x" + std::to_string(frame.height) + " with " +
             std::to_string(frame.pixels.size()) + " pixels");
    if (frame.bit_depth < 1 || frame.bit_depth > 16)
        fail("a frame of bit depth " + std::to_string(frame.bit_depth));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static Memory_file file;
    if (!has_own_signature(bytes, size))
        return -1;  // another reader's input: keep it out of this corpus

    std::optional<ksi_cli::Raw_layout> layout;
    if (reader == raw) {
        if (size < 3)
            return -1;
        static const ksi_cli::Raw_sample_format formats[3] = {
            ksi_cli::Raw_sample_format::u8, ksi_cli::Raw_sample_format::u16le, ksi_cli::Raw_sample_format::u16be};
        layout = ksi_cli::Raw_layout{1 + bytes[0], 1 + bytes[1], formats[bytes[2] % 3]};
        bytes += 3;
        size -= 3;
    }
    const std::string& path = file.hold(bytes, size);

    try {
        if (reader == calibration) {
            ksi_cli::read_calibration_file(path);
        } else {
            ksi_cli::Frame frame;
            ksi_cli::read_frame(path, layout, frame);
            check_frame(frame);
        }
    } catch (const ksi_cli::Input_error& error) {
        if (std::strlen(error.what()) == 0)
            fail("an input error without a reason");
    } catch (const ksi_cli::Calibration_file_error& error) {
        if (std::strlen(error.what()) == 0)
            fail("a calibration error without a reason");
    }
    return 0;
}
