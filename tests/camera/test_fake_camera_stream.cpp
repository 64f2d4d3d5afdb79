// The streaming engine against Aravis's in-process simulated camera: each
// frame the camera delivers is a synthetic mosaic written by the test, and
// every transformed frame must equal the library's own transform of it.
#include <gtest/gtest.h>

#include <arv.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include <kestrion_ksi_polarization_processor.h>
#include <kestrion_ksi_polarization_processor.hpp>

#include "camera.hpp"
#include "camera_source.hpp"
#include "image_reading.h"
#include "reference_packing.h"
#include "stream_engine.hpp"
#include "stream_outputs.hpp"

namespace {

namespace kp = kestrion::polarization;
using namespace ksi_cli;

constexpr ArvPixelFormat mono12p_code = 0x010c0047u;  // not named by Aravis 0.8

// The mosaics the simulated camera delivered, in delivery order.
struct Delivered_mosaics {
    std::mutex mutex;
    std::vector<std::vector<std::uint16_t>> frames;
    unsigned bits = 16;
    ArvFakeCamera* camera = nullptr;
};

std::uint16_t synthetic_pixel(std::size_t frame, std::size_t index, unsigned bits)
{
    std::uint64_t x = (frame + 1) * 0x9e3779b97f4a7c15ull ^ (index + 1) * 0xbf58476d1ce4e5b9ull;
    x ^= x >> 31;
    x *= 0x94d049bb133111ebull;
    x ^= x >> 29;
    return static_cast<std::uint16_t>(x & ((1u << bits) - 1));
}

void fill_with_mosaic(ArvBuffer* buffer, void* mosaics_pointer, guint32, guint32, ArvPixelFormat format)
{
    auto& mosaics = *static_cast<Delivered_mosaics*>(mosaics_pointer);
    const std::size_t pixels =
        static_cast<std::size_t>(arv_buffer_get_image_width(buffer)) * arv_buffer_get_image_height(buffer);
    // The buffer reports its size only once filled; the stream allocated
    // it at the camera's payload size.
    const std::size_t size = arv_fake_camera_get_payload(mosaics.camera);
    auto* data = static_cast<std::uint8_t*>(const_cast<void*>(arv_buffer_get_data(buffer, nullptr)));
    std::lock_guard<std::mutex> lock(mosaics.mutex);
    std::vector<std::uint16_t> mosaic(pixels);
    for (std::size_t i = 0; i < pixels; ++i)
        mosaic[i] = synthetic_pixel(mosaics.frames.size(), i, mosaics.bits);
    std::vector<std::uint8_t> bytes;
    switch (format) {
    case ARV_PIXEL_FORMAT_MONO_8: bytes.assign(mosaic.begin(), mosaic.end()); break;
    case ARV_PIXEL_FORMAT_MONO_12_PACKED: bytes = reference_packing::pack_mono12_packed(mosaic); break;
    case mono12p_code: bytes = reference_packing::pack_mono12p(mosaic); break;
    default: bytes = reference_packing::little_endian_words(mosaic); break;
    }
    ASSERT_GE(size, bytes.size());
    std::memcpy(data, bytes.data(), bytes.size());
    mosaics.frames.push_back(std::move(mosaic));
}

struct Recorded_frame {
    std::vector<float> normalized;
    std::vector<std::uint16_t> s0, s1, s2, azimuth, dolp;
};

class FakeCameraStream : public testing::Test {
protected:
    void SetUp() override
    {
        include_simulated_cameras();
        camera_ = std::make_unique<Camera>("Fake_1");
        mosaics_.camera = fake_camera();
        arv_fake_camera_set_fill_pattern(fake_camera(), fill_with_mosaic, &mosaics_);
        camera_->set_frame_rate(100);
    }

    void TearDown() override
    {
        arv_fake_camera_set_fill_pattern(fake_camera(), nullptr, nullptr);
        camera_.reset();
    }

    ArvFakeCamera* fake_camera() const
    {
        return arv_fake_device_get_fake_camera(ARV_FAKE_DEVICE(arv_camera_get_device(camera_->handle())));
    }

    Pixel_format set_up_camera(const Region& region, const char* pixel_format)
    {
        camera_->set_region(region);
        return camera_->select_pixel_format(std::string(pixel_format));
    }

    static Stream_settings settings_of(kp::Phase phase, const std::vector<Output>& outputs, std::uint64_t frames,
                                       unsigned threads = 1)
    {
        Stream_settings settings;
        settings.frame.phase = phase;
        settings.frame.outputs = Output_set::of(outputs);
        settings.frame_limit = frames;
        settings.threads = threads;
        return settings;
    }

    Stream_summary stream(const Pixel_format& format, const Stream_settings& settings)
    {
        mosaics_.bits = format.bit_depth;
        const Frame_consumer record = [this](const Transformed_frame& frame) {
            const Frame_processor& outputs = frame.outputs;
            Recorded_frame copy{outputs.normalized(),         outputs.image(Output::s0),
                                outputs.image(Output::s1),    outputs.image(Output::s2),
                                outputs.image(Output::aolp),  outputs.image(Output::dolp)};
            std::lock_guard<std::mutex> lock(recorded_mutex_);
            recorded_[frame.number] = std::move(copy);
        };
        Camera_source source(*camera_, format);
        return run_stream(source, settings, processor_, record, never_stop_);
    }

    // The library's transform of delivered frame `number` through the C
    // interface, with the given origin.
    Recorded_frame direct_transform(std::uint64_t number, const Region& region, int origin_x, int origin_y,
                                    kp::Phase phase, unsigned bit_depth, Output_set slots)
    {
        const std::size_t pixels = static_cast<std::size_t>(region.width) * region.height;
        Recorded_frame expected;
        auto make = [pixels](bool present, std::vector<std::uint16_t>& image) {
            if (present)
                image.assign(pixels, 0);
            return present ? image.data() : nullptr;
        };
        if (slots.contains(Output::normalized))
            expected.normalized.assign(2 * pixels, 0);
        std::uint16_t* s0 = make(slots.contains(Output::s0), expected.s0);
        std::uint16_t* s1 = make(slots.contains(Output::s1), expected.s1);
        std::uint16_t* s2 = make(slots.contains(Output::s2), expected.s2);
        std::uint16_t* azimuth = make(slots.contains(Output::aolp), expected.azimuth);
        std::uint16_t* dolp = make(slots.contains(Output::dolp), expected.dolp);
        std::lock_guard<std::mutex> lock(mosaics_.mutex);
        EXPECT_LT(number, mosaics_.frames.size());
        EXPECT_EQ(kl_polarization_processor_transform(
                      processor_.handle(), static_cast<std::int32_t>(phase), mosaics_.frames.at(number).data(),
                      origin_x, origin_y, region.width, region.height, bit_depth, 65535,
                      slots.contains(Output::normalized) ? expected.normalized.data() : nullptr, s0, s1, s2,
                      azimuth, dolp),
                  status_success);
        return expected;
    }

    void expect_recorded_equal_direct(const Stream_summary& summary, kp::Phase phase, int origin_x, int origin_y,
                                      Output_set slots)
    {
        ASSERT_EQ(recorded_.size(), summary.transformed);
        for (const auto& [number, frame] : recorded_) {
            const Recorded_frame expected =
                direct_transform(number, summary.region, origin_x, origin_y, phase, summary.bit_depth, slots);
            ASSERT_EQ(frame.normalized.size(), expected.normalized.size());
            if (!frame.normalized.empty()) {  // bitwise: NaN and -0 included
                EXPECT_EQ(0, std::memcmp(frame.normalized.data(), expected.normalized.data(),
                                         frame.normalized.size() * sizeof(float)))
                    << "normalized of frame " << number;
            }
            EXPECT_EQ(frame.s0, expected.s0) << "s0 of frame " << number;
            EXPECT_EQ(frame.s1, expected.s1) << "s1 of frame " << number;
            EXPECT_EQ(frame.s2, expected.s2) << "s2 of frame " << number;
            EXPECT_EQ(frame.azimuth, expected.azimuth) << "azimuth of frame " << number;
            EXPECT_EQ(frame.dolp, expected.dolp) << "dolp of frame " << number;
        }
    }

    kp::Module module_;
    kp::Processor processor_;
    std::unique_ptr<Camera> camera_;
    Delivered_mosaics mosaics_;
    std::mutex recorded_mutex_;
    std::map<std::uint64_t, Recorded_frame> recorded_;
    std::atomic<bool> never_stop_{false};
};

// The simulated camera fills only the buffers it gets, so its n-th fill is
// the n-th frame received even when it found no free buffer at times (lost
// upstream, possible on a loaded machine).
void expect_counts(const Stream_summary& summary, std::uint64_t frames)
{
    EXPECT_EQ(summary.transformed, frames);
    EXPECT_EQ(summary.received, frames + summary.dropped_busy);
    EXPECT_EQ(summary.stop_reason, "frame limit");
    EXPECT_FALSE(summary.failure);
}

TEST_F(FakeCameraStream, EveryFrameOfMono16EqualsTheDirectTransform)
{
    const Pixel_format format = set_up_camera({0, 0, 64, 48}, "Mono16");
    const Stream_settings settings = settings_of(
        kp::Phase::degrees_45, {Output::normalized, Output::s0, Output::s1, Output::s2, Output::aolp, Output::dolp}, 12,
        2);
    const Stream_summary summary = stream(format, settings);
    expect_counts(summary, 12);
    EXPECT_EQ(summary.bit_depth, 16u);
    EXPECT_EQ(summary.pixel_format, "Mono16");
    expect_recorded_equal_direct(summary, settings.frame.phase, 0, 0, settings.frame.outputs);
}

TEST_F(FakeCameraStream, Mono8FramesTakeBitDepth8)
{
    const Pixel_format format = set_up_camera({0, 0, 40, 30}, "Mono8");
    const Stream_settings settings = settings_of(kp::Phase::degrees_135, {Output::s0, Output::aolp, Output::dolp}, 6);
    const Stream_summary summary = stream(format, settings);
    expect_counts(summary, 6);
    EXPECT_EQ(summary.bit_depth, 8u);
    expect_recorded_equal_direct(summary, settings.frame.phase, 0, 0, settings.frame.outputs);
}

TEST_F(FakeCameraStream, RegionAtOddOffsetRebasesThePhase)
{
    const Pixel_format format = set_up_camera({3, 5, 66, 50}, "Mono16");
    const Stream_settings settings =
        settings_of(kp::Phase::degrees_90, {Output::s1, Output::aolp, Output::dolp}, 5, 2);
    const Stream_summary summary = stream(format, settings);
    expect_counts(summary, 5);
    EXPECT_EQ(summary.origin_x, 3);
    EXPECT_EQ(summary.origin_y, 5);
    expect_recorded_equal_direct(summary, settings.frame.phase, 3, 5, settings.frame.outputs);
    // The offset matters: the same frames at origin 0,0 come out otherwise.
    const auto& [number, frame] = *recorded_.begin();
    EXPECT_NE(frame.azimuth,
              direct_transform(number, summary.region, 0, 0, settings.frame.phase, 16, settings.frame.outputs).azimuth);
}

TEST_F(FakeCameraStream, OriginOptionOverridesTheOffset)
{
    const Pixel_format format = set_up_camera({3, 5, 66, 50}, "Mono16");
    Stream_settings settings = settings_of(kp::Phase::degrees_0, {Output::s1, Output::aolp}, 4);
    settings.origin = std::pair{0, 0};
    const Stream_summary summary = stream(format, settings);
    expect_counts(summary, 4);
    EXPECT_EQ(summary.origin_x, 0);
    expect_recorded_equal_direct(summary, settings.frame.phase, 0, 0, settings.frame.outputs);
}

TEST_F(FakeCameraStream, BitDepthOptionOverridesTheFormat)
{
    const Pixel_format format = set_up_camera({0, 0, 32, 32}, "Mono16");
    Stream_settings settings = settings_of(kp::Phase::degrees_45, {Output::s0, Output::dolp}, 3);
    settings.frame.bit_depth = 12;
    const Stream_summary summary = stream(format, settings);
    expect_counts(summary, 3);
    EXPECT_EQ(summary.bit_depth, 12u);
    expect_recorded_equal_direct(summary, settings.frame.phase, 0, 0, settings.frame.outputs);
}

TEST_F(FakeCameraStream, StopRequestEndsTheStreamCleanly)
{
    const Pixel_format format = set_up_camera({0, 0, 32, 32}, "Mono16");
    const Stream_settings settings = settings_of(kp::Phase::degrees_0, {Output::s0}, 0);
    std::atomic<bool> stop{false};
    std::thread interrupter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        stop = true;
    });
    Camera_source source(*camera_, format);
    const Stream_summary summary = run_stream(source, settings, processor_, {}, stop);
    interrupter.join();
    EXPECT_EQ(summary.stop_reason, "interrupted");
    EXPECT_FALSE(summary.failure);
    EXPECT_GT(summary.transformed, 0u);
}

// Frames that are not what the stream was set up for never count as
// received: set up for Mono8, the camera then switched to Mono16.
TEST_F(FakeCameraStream, NoExpectedFrameWithinTheTimeoutIsAFailure)
{
    const Pixel_format format = set_up_camera({0, 0, 32, 32}, "Mono8");
    camera_->select_pixel_format(std::string("Mono16"));
    Stream_settings settings = settings_of(kp::Phase::degrees_0, {Output::s0}, 0);
    settings.no_frame_timeout_seconds = 0.5;
    const Stream_summary summary = stream(format, settings);
    ASSERT_TRUE(summary.failure);
    EXPECT_EQ(*summary.failure, "no complete frame from camera 'Fake_1' within 0.5 s");
    EXPECT_EQ(summary.received, 0u);
    EXPECT_EQ(summary.transformed, 0u);
    EXPECT_GT(summary.lost_upstream, 0u);
}

TEST_F(FakeCameraStream, ConsumerFailureStopsTheStream)
{
    const Pixel_format format = set_up_camera({0, 0, 32, 32}, "Mono16");
    const Stream_settings settings = settings_of(kp::Phase::degrees_0, {Output::s0}, 0);
    const Frame_consumer failing = [](const Transformed_frame&) { throw std::runtime_error("disk full"); };
    Camera_source source(*camera_, format);
    const Stream_summary summary = run_stream(source, settings, processor_, failing, never_stop_);
    ASSERT_TRUE(summary.failure);
    EXPECT_EQ(*summary.failure, "disk full");
}

TEST_F(FakeCameraStream, PixelFormatChoice)
{
    // The simulated camera offers Mono8 and Mono16 among its formats.
    EXPECT_STREQ(camera_->select_pixel_format(std::string("Mono8")).name, "Mono8");
    EXPECT_STREQ(camera_->select_pixel_format(std::nullopt).name, "Mono8");  // kept as delivered
    arv_camera_set_pixel_format_from_string(camera_->handle(), "RGB8", nullptr);
    EXPECT_STREQ(camera_->select_pixel_format(std::nullopt).name, "Mono16");  // the deepest one offered
    try {
        camera_->select_pixel_format(std::string("Mono12p"));
        ADD_FAILURE() << "Mono12p was accepted";
    } catch (const Camera_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  "camera 'Fake_1' does not offer Mono12p (it offers BayerBG8, BayerGB8, BayerGR8, BayerRG8, Mono8, "
                  "RGB8, Mono16)");
    }
    try {
        camera_->select_pixel_format(std::string("RGB8"));
        ADD_FAILURE() << "RGB8 was accepted";
    } catch (const Camera_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  "pixel format 'RGB8' is not one this tool unpacks (Mono16, Mono12, Mono12Packed, Mono12p, Mono10, "
                  "Mono8)");
    }
}

// The simulated camera offers Mono8 and Mono16 only; a description of it
// with the 10- and 12-bit formats added lets it deliver those too (it sizes
// its payload by the bits per pixel of the format's code).
class PackedFormatStream : public FakeCameraStream, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        FakeCameraStream::SetUp();
        std::size_t size = 0;
        const char* original = arv_fake_camera_get_genicam_xml(fake_camera(), &size);
        std::string description(original, size);
        const std::string mono16_entry = "<EnumEntry Name=\"Mono16\" NameSpace=\"Standard\">";
        const std::size_t at = description.find(mono16_entry);
        ASSERT_NE(at, std::string::npos);
        std::string entries;
        for (const char* name : {"Mono10", "Mono12", "Mono12Packed", "Mono12p"})
            entries += "<EnumEntry Name=\"" + std::string(name) + "\" NameSpace=\"Standard\"><Value>" +
                       std::to_string(pixel_format_by_name(name)->code) + "</Value></EnumEntry>\n";
        description.insert(at, entries);
        description_file_ =
            std::filesystem::temp_directory_path() / ("ksi_fake_camera_" + std::to_string(getpid()) + ".xml");
        std::ofstream(description_file_) << description;
        FakeCameraStream::TearDown();
        arv_set_fake_camera_genicam_filename(description_file_.c_str());
        FakeCameraStream::SetUp();
    }

    void TearDown() override
    {
        FakeCameraStream::TearDown();
        arv_set_fake_camera_genicam_filename(nullptr);
        std::filesystem::remove(description_file_);
    }

    std::filesystem::path description_file_;
};

TEST_P(PackedFormatStream, EveryFrameEqualsTheDirectTransform)
{
    // An odd width, so packed rows run on across byte triples. (An odd
    // pixel count, tested in the unpacking tests, would end in half a
    // triple, which this camera's payload rounds away.)
    const Pixel_format format = set_up_camera({1, 2, 63, 10}, GetParam());
    EXPECT_STREQ(format.name, GetParam());
    const Stream_settings settings =
        settings_of(kp::Phase::degrees_135, {Output::s0, Output::s2, Output::aolp, Output::dolp}, 4, 2);
    const Stream_summary summary = stream(format, settings);
    expect_counts(summary, 4);
    EXPECT_EQ(summary.bit_depth, format.bit_depth);
    expect_recorded_equal_direct(summary, settings.frame.phase, 1, 2, settings.frame.outputs);
}

INSTANTIATE_TEST_SUITE_P(Formats, PackedFormatStream, testing::Values("Mono10", "Mono12", "Mono12Packed", "Mono12p"));

// The files the stream command writes: every second frame recorded with
// the tool's writers, read back with its reader, equal to the direct
// transform; a preview picture under its final name and nothing else.
TEST_F(FakeCameraStream, RecordedFilesEqualTheDirectTransform)
{
    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("ksi_stream_record_" + std::to_string(getpid()));
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
    camera_->set_region({1, 0, 50, 40});
    const Pixel_format format = camera_->select_pixel_format(std::string("Mono16"));
    const Output_set recorded = Output_set::of({Output::s0, Output::aolp, Output::dolp});
    const std::filesystem::path preview = directory / "preview.png";
    Stream_outputs outputs(Recording{directory, 2, recorded}, preview, 65535);
    Stream_settings settings = settings_of(kp::Phase::degrees_45, {}, 8, 2);
    settings.frame = outputs.frame_settings(settings.frame);
    mosaics_.bits = 16;
    Camera_source camera_source(*camera_, format);
    const Stream_summary summary =
        run_stream(camera_source, settings, processor_, std::ref(outputs), never_stop_);
    expect_counts(summary, 8);

    std::size_t files = 0, frames_checked = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        files += entry.is_regular_file();
    EXPECT_TRUE(std::filesystem::exists(preview));
    for (std::uint64_t number = 0; number < summary.received; ++number) {
        const std::string stem = Stream_outputs::stem(number);
        const std::filesystem::path s0_file = directory / (stem + "_s0.png");
        if (number % 2 != 0) {
            EXPECT_FALSE(std::filesystem::exists(s0_file)) << s0_file;
            continue;
        }
        if (!std::filesystem::exists(s0_file))
            continue;  // dropped while every buffer was busy
        const Recorded_frame expected =
            direct_transform(number, summary.region, 1, 0, settings.frame.phase, 16, recorded);
        Frame read;
        read_frame(s0_file, std::nullopt, read);
        EXPECT_EQ(read.pixels, expected.s0) << s0_file;
        read_frame(directory / (stem + "_aolp.png"), std::nullopt, read);
        EXPECT_EQ(read.pixels, expected.azimuth) << stem;
        read_frame(directory / (stem + "_dolp.png"), std::nullopt, read);
        EXPECT_EQ(read.pixels, expected.dolp) << stem;
        ++frames_checked;
    }
    // Frames 0, 2, 4, 6 unless one was dropped; three files each, and the preview.
    EXPECT_GE(frames_checked, summary.received / 2 - summary.dropped_busy);
    EXPECT_GT(frames_checked, 0u);
    EXPECT_EQ(files, 3 * frames_checked + 1);
    std::filesystem::remove_all(directory);
}

TEST(CameraAccess, UnknownIdIsNamed)
{
    include_simulated_cameras();
    try {
        Camera camera("No_such_camera");
        FAIL() << "a camera was opened";
    } catch (const Camera_error& error) {
        EXPECT_EQ(std::string(error.what()).rfind("no camera with id 'No_such_camera'", 0), 0u) << error.what();
    }
}

TEST(CameraAccess, ListIncludesTheSimulatedCamera)
{
    include_simulated_cameras();
    bool found = false;
    for (const Camera_description& camera : list_cameras())
        if (camera.id == "Fake_1") {
            found = true;
            EXPECT_EQ(camera.interface_name, "Fake");
            EXPECT_EQ(camera.model, "Fake");
        }
    EXPECT_TRUE(found);
}

}  // namespace
