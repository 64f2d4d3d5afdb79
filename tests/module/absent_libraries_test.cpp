// The library with neither the logging library nor the extension anywhere
// on the path.

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "kestrion_ksi_polarization_processor_obj.h"
#include "local_kernel_result.h"
#include "module_holders.h"
#include "module_test_support.h"

using namespace ksi_test;

TEST(AbsentLibraries, InitialiseSucceedsWithASilentLogAndAFailedModule)
{
    Event_record record;
    EXPECT_EQ(kl_polarization_processor_module_initialize(), 0);
    ASSERT_NE(logger.pointer, nullptr) << "an initialised library always has its log object";
    ASSERT_NE(vector_avx2_module.pointer, nullptr);
    EXPECT_TRUE(vector_avx2_module.pointer->failed);
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_FALSE(library_is_open(extension_file_name));

    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
    EXPECT_EQ(logger.pointer, nullptr);
    EXPECT_EQ(vector_avx2_module.pointer, nullptr);
    EXPECT_TRUE(record.events().empty());
}

TEST(AbsentLibraries, EveryRefusalAndSuccessBehavesTheSameOnlySilently)
{
    Event_record record;
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    void* processor = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    ASSERT_NE(processor, nullptr);

    // The same refusals, in the same order, as with a log listening
    // (ExportedLogging.RefusedTransformStillLogsOneTimingLineWithoutItsCode).
    Frame frame(9, 7);
    const auto& scenarios = transform_scenarios();
    for (std::size_t i = 0; i < scenarios.size(); ++i) {
        EXPECT_EQ(run_transform_scenario(i, &kl_polarization_processor_transform, processor, frame),
                  scenarios[i].expected_status)
            << scenarios[i].description;
        if (scenarios[i].expected_status != 0) {
            EXPECT_TRUE(frame.untouched()) << scenarios[i].description;
        }
    }
    // The valid call ran the local kernels at phase 1.
    EXPECT_TRUE(frame.written_everywhere());
    expect_same_outputs(frame,
                        local_kernel_result(frame, *static_cast<kestrion_ksi_polarization_processor_obj*>(processor), 1));

    float matrix[16] = {};
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(nullptr, matrix, nullptr, nullptr, nullptr),
              4);
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(nullptr, matrix, nullptr, nullptr, nullptr),
              4);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(nullptr), 4);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);

    EXPECT_TRUE(record.events().empty());
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_FALSE(library_is_open(extension_file_name));
}
