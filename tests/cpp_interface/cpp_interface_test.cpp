// kestrion_ksi_polarization_processor.hpp: the module guard, the processor
// object, the transform with typed views, and a Status_error naming the code
// for every argument the library refuses.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "kestrion_ksi_polarization_processor.hpp"

namespace kp = kestrion::polarization;

namespace {

constexpr std::int32_t width = 12, height = 6;
constexpr std::size_t pixels = static_cast<std::size_t>(width) * height;
constexpr std::uint16_t untouched = 0xBEEF;

std::vector<std::uint16_t> random_frame()
{
    std::mt19937 generator(7);
    std::uniform_int_distribution<unsigned> sample(0, 4095);
    std::vector<std::uint16_t> frame(pixels);
    for (std::uint16_t& pixel : frame)
        pixel = static_cast<std::uint16_t>(sample(generator));
    return frame;
}

template <class Element>
kp::Image_view<Element> view_of(std::vector<Element>& buffer, std::int32_t w = width, std::int32_t h = height)
{
    return {buffer.data(), w, h};
}

// Expects `call` to throw a Status_error with `status` whose message names
// the function, the enumerator, the number and the meaning.
template <class Call>
void expect_status_error(Call call, int status, const std::string& function)
{
    try {
        call();
        ADD_FAILURE() << "no exception; expected " << kp::status_name(status);
    } catch (const kp::Status_error& error) {
        EXPECT_EQ(error.status(), status);
        EXPECT_EQ(std::string(error.what()), function + ": " + kp::status_name(status) + " (" +
                                                 std::to_string(status) + "): " + kp::status_meaning(status));
    }
}

class TransformRefusal : public ::testing::Test {
protected:
    void expect_refused(const kp::Frame_view& view, const kp::Transform_parameters& parameters,
                        const kp::Output_views& outputs, int status)
    {
        expect_status_error([&] { processor.transform(view, parameters, outputs); }, status,
                            "kl_polarization_processor_transform");
    }

    kp::Module module;
    kp::Processor processor;
    std::vector<std::uint16_t> frame = random_frame();
    kp::Frame_view frame_view{frame.data(), width, height};
    kp::Transform_parameters parameters{kp::Phase::degrees_0, 0, 0, 12, 4095};
    std::vector<std::uint16_t> s0 = std::vector<std::uint16_t>(pixels, untouched);
    std::vector<std::uint16_t> dolp = std::vector<std::uint16_t>(pixels, untouched);
};

}  // namespace

TEST(StatusNames, EveryCodeHasItsEnumeratorAndAMeaning)
{
    const char* const names[] = {"status_success",           "status_failure",          "status_module_not_initialized",
                                 "status_out_of_memory",     "status_null_handle",      "status_null_input",
                                 "status_no_output",         "status_output_is_input",  "status_duplicate_output",
                                 "status_invalid_phase",     "status_zero_output_maximum", "status_invalid_width",
                                 "status_invalid_height",    "status_invalid_bit_depth"};
    for (int status = 0; status <= 13; ++status) {
        EXPECT_STREQ(kp::status_name(status), names[status]);
        EXPECT_STRNE(kp::status_meaning(status), "not a status of this library");
    }
    EXPECT_STREQ(kp::status_name(14), "unknown status");
    EXPECT_STREQ(kp::status_meaning(-1), "not a status of this library");
    EXPECT_STREQ(kp::status_meaning(status_invalid_width), "width is 1 or less");
}

TEST(StatusNames, CheckStatusThrowsOnlyForFailures)
{
    EXPECT_NO_THROW(kp::check_status("f", status_success));
    expect_status_error([] { kp::check_status("f", status_out_of_memory); }, status_out_of_memory, "f");
}

TEST(ModuleGuard, ProcessorsNeedAnInitialisedModule)
{
    expect_status_error([] { kp::Processor processor; }, status_module_not_initialized,
                        "kl_polarization_processor_create_polarization_processor");
    {
        kp::Module module;
        kp::Module second;  // counted: one guard going leaves the library usable
        EXPECT_NO_THROW(kp::Processor());
    }
    expect_status_error([] { kp::Processor processor; }, status_module_not_initialized,
                        "kl_polarization_processor_create_polarization_processor");
}

TEST(ModuleGuard, ProcessorUsedAfterTheLastGuardIsRefused)
{
    auto module = std::make_unique<kp::Module>();
    kp::Processor processor;
    module.reset();
    expect_status_error([&] { processor.calibration(); }, status_module_not_initialized,
                        "kl_polarization_processor_get_custom_calibration_coefficients");
    module = std::make_unique<kp::Module>();  // lets the destructor free the processor
}

TEST(ProcessorObject, StartsWithTheDefaultMatricesAndKeepsWhatIsSet)
{
    kp::Module module;
    kp::Processor processor;
    const kp::Calibration defaults{{{1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0, 0, 0, 0, 0},
                                    {1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1, 0, 0, 0, 0},
                                    {1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0, 0, 0, 0, 0},
                                    {1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1, 0, 0, 0, 0}}};
    EXPECT_EQ(processor.calibration(), defaults);
    kp::Calibration custom{};
    for (int m = 0; m < 4; ++m)
        for (int i = 0; i < 16; ++i)
            custom[m][i] = 0.5f * m - 0.25f * i;
    processor.set_calibration(custom);
    EXPECT_EQ(processor.calibration(), custom);
}

TEST(ProcessorObject, MoveHandsTheHandleOver)
{
    kp::Module module;
    kp::Processor first;
    void* const handle = first.handle();
    ASSERT_NE(handle, nullptr);
    kp::Processor second(std::move(first));
    EXPECT_EQ(second.handle(), handle);
    EXPECT_EQ(first.handle(), nullptr);
    kp::Processor third;
    void* const third_handle = third.handle();
    third = std::move(second);
    EXPECT_EQ(third.handle(), handle);
    EXPECT_EQ(second.handle(), third_handle);
}

TEST(ProcessorObject, TransformEqualsTheCInterface)
{
    kp::Module module;
    kp::Processor processor;
    const auto frame = random_frame();
    std::vector<float> normalized(2 * pixels), expected_normalized(2 * pixels);
    std::array<std::vector<std::uint16_t>, 5> images, expected;
    for (int i = 0; i < 5; ++i) {
        images[i].assign(pixels, 0);
        expected[i].assign(pixels, 0);
    }
    kp::Output_views outputs{view_of(normalized), view_of(images[0]), view_of(images[1]),
                             view_of(images[2]),  view_of(images[3]), view_of(images[4])};
    processor.transform({frame.data(), width, height}, {kp::Phase::degrees_135, 3, 2, 12, 4095}, outputs);
    ASSERT_EQ(kl_polarization_processor_transform(processor.handle(), polar_phase_135, frame.data(), 3, 2, width,
                                                  height, 12, 4095, expected_normalized.data(), expected[0].data(),
                                                  expected[1].data(), expected[2].data(), expected[3].data(),
                                                  expected[4].data()),
              status_success);
    EXPECT_EQ(std::memcmp(normalized.data(), expected_normalized.data(), normalized.size() * 4), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(images[i], expected[i]) << "slot " << i + 1;
}

TEST_F(TransformRefusal, NullHandleOfAMovedFromProcessor)
{
    kp::Processor taken(std::move(processor));
    expect_refused(frame_view, parameters, {{}, view_of(s0)}, status_null_handle);
}

TEST_F(TransformRefusal, PhaseAbove135Degrees)
{
    parameters.phase = static_cast<kp::Phase>(4);
    expect_refused(frame_view, parameters, {{}, view_of(s0)}, status_invalid_phase);
}

TEST_F(TransformRefusal, NullFrame)
{
    expect_refused({nullptr, width, height}, parameters, {{}, view_of(s0)}, status_null_input);
}

TEST_F(TransformRefusal, NoOutput) { expect_refused(frame_view, parameters, {}, status_no_output); }

TEST_F(TransformRefusal, OutputThatIsTheFrame)
{
    expect_refused(frame_view, parameters, {{}, view_of(frame)}, status_output_is_input);
}

TEST_F(TransformRefusal, TwoOutputsInOneBuffer)
{
    kp::Output_views outputs{};
    outputs.s1 = view_of(s0);
    outputs.dolp = view_of(s0);
    expect_refused(frame_view, parameters, outputs, status_duplicate_output);
}

TEST_F(TransformRefusal, WidthOfOne)
{
    expect_refused({frame.data(), 1, height}, parameters, {{}, view_of(s0, 1, height)}, status_invalid_width);
}

TEST_F(TransformRefusal, HeightOfOne)
{
    expect_refused({frame.data(), width, 1}, parameters, {{}, view_of(s0, width, 1)}, status_invalid_height);
}

TEST_F(TransformRefusal, ZeroOutputMaximum)
{
    parameters.output_maximum = 0;
    expect_refused(frame_view, parameters, {{}, view_of(s0)}, status_zero_output_maximum);
}

TEST_F(TransformRefusal, BitDepthAbove16)
{
    parameters.bit_depth = 17;
    expect_refused(frame_view, parameters, {{}, view_of(s0)}, status_invalid_bit_depth);
}

TEST_F(TransformRefusal, RefusalsWriteNothing)
{
    parameters.bit_depth = 17;
    kp::Output_views outputs{};
    outputs.s0 = view_of(s0);
    outputs.dolp = view_of(dolp);
    expect_refused(frame_view, parameters, outputs, status_invalid_bit_depth);
    EXPECT_EQ(s0, std::vector<std::uint16_t>(pixels, untouched));
    EXPECT_EQ(dolp, std::vector<std::uint16_t>(pixels, untouched));
}

TEST_F(TransformRefusal, OutputOfAnotherSizeIsRefusedBeforeTheLibrary)
{
    kp::Output_views outputs{};
    outputs.s0 = view_of(s0);
    outputs.dolp = view_of(dolp, width, height - 1);
    try {
        processor.transform(frame_view, parameters, outputs);
        ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "output dolp is 12x5, the frame 12x6");
    }
    EXPECT_EQ(s0, std::vector<std::uint16_t>(pixels, untouched));
    outputs.dolp = {};
    outputs.normalized = {nullptr, 3, 3};  // not computed, so its size does not matter
    EXPECT_NO_THROW(processor.transform(frame_view, parameters, outputs));
    EXPECT_NE(s0, std::vector<std::uint16_t>(pixels, untouched));
}
