// Which transforms reach the extension, with what, and when the local
// kernels take over; through the exported functions of the shared object.

#include <array>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "kestrion_ksi_polarization_processor_obj.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

// Which matrix (0, 45, 90, 135 as indices 0 to 3) each phase's calibration
// set names, in the order even/even, even/odd, odd/even, odd/odd.
constexpr int phase_sets[4][4] = {
    {0, 3, 1, 2},
    {1, 2, 0, 3},
    {2, 1, 3, 0},
    {3, 0, 2, 1},
};

class Extension_session {
public:
    Extension_session()
    {
        EXPECT_EQ(kl_polarization_processor_module_initialize(), 0);
        EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    }
    ~Extension_session()
    {
        EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
        EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
    }

    // Sets four matrices whose every element tells its matrix and position.
    void set_distinct_matrices()
    {
        for (int m = 0; m < 4; ++m)
            for (int i = 0; i < 16; ++i)
                custom[m][i] = float(1000 * m + i) + 0.25f;
        ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor, custom[0].data(),
                                                                               custom[1].data(), custom[2].data(),
                                                                               custom[3].data()),
                  0);
        ASSERT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(processor, stored[0].data(),
                                                                               stored[1].data(), stored[2].data(),
                                                                               stored[3].data()),
                  0);
        ASSERT_EQ(stored, custom);
    }

    const Calibration_matrix& matrix(int index) const
    {
        const auto* object = static_cast<const kestrion_ksi_polarization_processor_obj*>(processor);
        const Calibration_matrix* matrices[4] = {&object->matrix_0, &object->matrix_45, &object->matrix_90,
                                                 &object->matrix_135};
        return *matrices[index];
    }

    void* processor = nullptr;
    std::array<std::array<float, 16>, 4> custom{};
    std::array<std::array<float, 16>, 4> stored{};
};

// Checks one recorded extension transform: the record built from the frame
// with the given phase, and the calibration set of the given phase, by
// address and by the values get returned.
void expect_extension_call(const Event& call, const Frame& frame, int recorded_phase, int set_phase,
                           const Extension_session& session)
{
    ASSERT_EQ(call.size(), 1u + 14u + 4u + 64u);
    EXPECT_EQ(call[0], "transform");
    EXPECT_EQ(call[1], std::to_string(frame.height)) << "rows";
    EXPECT_EQ(call[2], std::to_string(frame.width)) << "columns";
    EXPECT_EQ(call[3], std::to_string(recorded_phase)) << "re-based phase";
    EXPECT_EQ(call[4], pointer_text(frame.input.data()));
    EXPECT_EQ(call[5], std::to_string(frame.bit_depth));
    EXPECT_EQ(call[6], float_bits_text(float((1u << frame.bit_depth) - 1)));
    EXPECT_EQ(call[7], float_bits_text(float(frame.output_maximum)));
    EXPECT_EQ(call[8], std::to_string(frame.output_maximum));
    EXPECT_EQ(call[9], pointer_text(frame.normalized_stokes.data()));
    EXPECT_EQ(call[10], pointer_text(frame.s0.data()));
    EXPECT_EQ(call[11], pointer_text(frame.s1.data()));
    EXPECT_EQ(call[12], pointer_text(frame.s2.data()));
    EXPECT_EQ(call[13], pointer_text(frame.azimuth.data()));
    EXPECT_EQ(call[14], pointer_text(frame.dolp.data()));
    for (int k = 0; k < 4; ++k) {
        const int matrix = phase_sets[set_phase][k];
        EXPECT_EQ(call[15 + k], pointer_text(&session.matrix(matrix))) << "set entry " << k;
        for (int i = 0; i < 16; ++i)
            EXPECT_EQ(call[19 + 16 * k + i], float_bits_text(session.stored[matrix][i]))
                << "set entry " << k << " element " << i;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// A sound extension.

TEST(ExtensionDispatchSound, ThisMachineHasAvx2)
{
    EXPECT_TRUE(__builtin_cpu_supports("avx2"));
}

TEST(ExtensionDispatchSound, ValidatedTransformReachesTheExtensionWithTheRebasedPhaseAndItsSet)
{
    ASSERT_TRUE(__builtin_cpu_supports("avx2"));
    Event_record record;
    Extension_session session;
    session.set_distinct_matrices();

    Frame frame(8, 6);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, session.processor, 1, 1, 0), 0);

    const auto calls = record.events_of("transform");
    ASSERT_EQ(calls.size(), 1u);
    expect_extension_call(calls[0], frame, 2, 2, session);
    EXPECT_TRUE(frame.untouched()) << "the local kernels wrote after the extension";
}

TEST(ExtensionDispatchSound, EachPhaseHandsItsOwnCalibrationSet)
{
    ASSERT_TRUE(__builtin_cpu_supports("avx2"));
    struct Case {
        int phase, origin_x, origin_y, recorded_phase, set_phase;
    };
    const Case cases[] = {
        {0, 0, 0, 0, 0},  {1, 0, 0, 1, 1},  {2, 0, 0, 2, 2},   {3, 0, 0, 3, 3},   {-1, 0, 0, -1, 0},
        {1, 3, 2, 2, 2},  {1, -3, 2, 3, 3}, {0, 0, 1, 1, 1},   {0, -1, 0, 2, 2},  {3, 0, -1, 1, 1},
        {2, 1, 1, 0, 0},  {-1, 1, 0, 3, 3}, {-7, 0, 0, -7, 0}, {3, 4, -6, 3, 3},
    };
    Event_record record;
    Extension_session session;
    session.set_distinct_matrices();
    std::size_t index = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "phase " << c.phase << " at (" << c.origin_x << ", " << c.origin_y << ")");
        Frame frame(6, 4);
        ASSERT_EQ(frame.transform(&kl_polarization_processor_transform, session.processor, c.phase, c.origin_x,
                                  c.origin_y),
                  0);
        const auto calls = record.events_of("transform");
        ASSERT_EQ(calls.size(), index + 1);
        expect_extension_call(calls[index], frame, c.recorded_phase, c.set_phase, session);
        EXPECT_TRUE(frame.untouched());
        ++index;
    }
}

TEST(ExtensionDispatchSound, RefusedTransformsNeverReachTheExtension)
{
    ASSERT_TRUE(__builtin_cpu_supports("avx2"));
    Event_record record;
    Extension_session session;
    Frame frame(9, 7);
    const auto& scenarios = transform_scenarios();
    for (std::size_t i = 0; i < scenarios.size(); ++i) {
        SCOPED_TRACE(scenarios[i].description);
        ASSERT_EQ(run_transform_scenario(i, &kl_polarization_processor_transform, session.processor, frame),
                  scenarios[i].expected_status);
        EXPECT_EQ(record.count("transform"), scenarios[i].expected_status == 0 ? 1u : 0u);
    }
    EXPECT_TRUE(frame.untouched());
}

TEST(ExtensionDispatchSound, InitialisedOnceAndTerminatedOnceAtTheLastTerminate)
{
    Event_record record;
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    EXPECT_EQ(record.events_of("initialize"), (std::vector<Event>{{"initialize", "0"}}));

    ASSERT_EQ(kl_polarization_processor_module_terminate(), 0);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), 0);
    EXPECT_EQ(record.count("terminate"), 0u);
    EXPECT_TRUE(library_is_open(extension_file_name));

    ASSERT_EQ(kl_polarization_processor_module_terminate(), 0);
    const auto events = record.events();
    EXPECT_EQ(only(events, "terminate").size(), 1u);
    EXPECT_EQ(only(events, "free_log").size(), 1u);
    EXPECT_LT(first_index_of(events, "terminate"), first_index_of(events, "free_log"))
        << "the extension goes before the log";
    EXPECT_FALSE(library_is_open(extension_file_name));
    EXPECT_FALSE(library_is_open(logger_file_name));

    ASSERT_EQ(kl_polarization_processor_module_terminate(), 0);
    EXPECT_EQ(record.count("terminate"), 1u) << "an unmatched terminate changes nothing";
}

TEST(ExtensionDispatchSound, ProcessorUsesTheModuleOfTheMoment)
{
    ASSERT_TRUE(__builtin_cpu_supports("avx2"));
    Event_record record;
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    void* processor = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), 0);

    Frame frame(6, 4);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, processor, 0), 2);

    // A new initialise builds a new module; the old processor reaches it.
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    EXPECT_EQ(record.count("initialize"), 2u);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, processor, 0), 0);
    EXPECT_EQ(record.count("transform"), 1u);
    EXPECT_TRUE(frame.untouched());
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
}

// ---------------------------------------------------------------------------
// Extensions that cannot be used: the local kernels serve every frame.

namespace {

void expect_local_kernels_in_charge(const Event_record& record)
{
    ASSERT_TRUE(__builtin_cpu_supports("avx2")) << "the extension would have been chosen had it been usable";
    {
        Extension_session session;
        Frame frame(10, 6);
        EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, session.processor, 1, 1, 0), 0);
        EXPECT_TRUE(frame.written_everywhere());
        EXPECT_EQ(record.count("transform"), 0u);
    }
    EXPECT_FALSE(library_is_open(extension_file_name));
}

}  // namespace

TEST(ExtensionDispatchRefusing, RefusedExtensionLeavesTheLocalKernelsInCharge)
{
    Event_record record;
    expect_local_kernels_in_charge(record);
    EXPECT_EQ(record.events_of("initialize"), (std::vector<Event>{{"initialize", "1"}}));
}

TEST(ExtensionDispatchRefusing, RefusedExtensionIsTerminatedOnceAtTheLastTerminate)
{
    Event_record record;
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), 0);
    EXPECT_EQ(record.count("terminate"), 0u);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), 0);
    EXPECT_EQ(record.count("terminate"), 1u);
    EXPECT_FALSE(library_is_open(extension_file_name));
}

TEST(ExtensionDispatchWithoutInitialize, IncompleteExtensionLeavesTheLocalKernelsInCharge)
{
    Event_record record;
    expect_local_kernels_in_charge(record);
    EXPECT_EQ(record.count("initialize"), 0u);
    EXPECT_EQ(record.count("terminate"), 0u);
}

TEST(ExtensionDispatchWithoutTransform, IncompleteExtensionLeavesTheLocalKernelsInCharge)
{
    Event_record record;
    expect_local_kernels_in_charge(record);
    EXPECT_EQ(record.count("initialize"), 0u);
    EXPECT_EQ(record.count("terminate"), 0u);
}

TEST(ExtensionDispatchWithoutTerminate, IncompleteExtensionLeavesTheLocalKernelsInCharge)
{
    Event_record record;
    expect_local_kernels_in_charge(record);
    EXPECT_EQ(record.count("initialize"), 0u);
    EXPECT_EQ(record.count("terminate"), 0u);
}

TEST(ExtensionDispatchAbsent, AbsentExtensionLeavesTheLocalKernelsInCharge)
{
    Event_record record;
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    EXPECT_FALSE(library_is_open(extension_file_name));
    expect_local_kernels_in_charge(record);
    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
}
