// The processor object's choice between the extension and the local
// kernels, with a sound stand-in extension loaded and initialised.

#include <cstring>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "kestrion_ksi_polarization_processor_obj.h"
#include "module_holders.h"
#include "local_kernel_result.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

class ProcessorObject : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
        module = vector_avx2_module.pointer.get();
        ASSERT_NE(module, nullptr);
        ASSERT_FALSE(module->failed) << "the stand-in extension did not load and initialise";
        ASSERT_EQ(record.events_of("initialize"), (std::vector<Event>{{"initialize", "0"}}));
    }
    void TearDown() override { kl_polarization_processor_module_terminate(); }

    Event_record record;
    Vector_avx2_polarization_processor_module* module = nullptr;
};

}  // namespace

TEST_F(ProcessorObject, SoundModuleDoesAllTheWorkWhenTheProcessorHasAvx2)
{
    kestrion_ksi_polarization_processor_obj processor(true, &vector_avx2_module);
    Frame frame(10, 6);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, &processor, 0), 0);
    EXPECT_EQ(record.count("transform"), 1u);
    EXPECT_TRUE(frame.untouched());
}

TEST_F(ProcessorObject, ModuleWithFailedFlagLeadsToLocalKernelsEvenWithAvx2)
{
    module->failed = true;
    kestrion_ksi_polarization_processor_obj processor(true, &vector_avx2_module);
    Frame frame(10, 6);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, &processor, 0), 0);
    EXPECT_EQ(record.count("transform"), 0u);
    EXPECT_TRUE(frame.written_everywhere());
    expect_same_outputs(frame, local_kernel_result(frame, processor, 0));
}

TEST_F(ProcessorObject, WithoutAvx2TheLoadedAndInitialisedModuleIsNotCalled)
{
    kestrion_ksi_polarization_processor_obj processor(false, &vector_avx2_module);
    Frame frame(10, 6);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, &processor, 0), 0);
    EXPECT_EQ(record.count("transform"), 0u);
    EXPECT_TRUE(frame.written_everywhere());
    expect_same_outputs(frame, local_kernel_result(frame, processor, 0));
}

TEST_F(ProcessorObject, ObjectTransformWithoutAvx2CallsLocalKernelsDirectly)
{
    kestrion_ksi_polarization_processor_obj processor(false, &vector_avx2_module);
    Frame frame(7, 5);
    Polarization_computation_arguments arguments = {
        5, 7, 0, frame.input.data(), 12, 4095.0f, 4095.0f, 4095, frame.normalized_stokes.data(), frame.s0.data(),
        frame.s1.data(), frame.s2.data(), frame.azimuth.data(), frame.dolp.data()};
    processor.transform(arguments, false);
    EXPECT_EQ(record.count("transform"), 0u);
    EXPECT_TRUE(frame.written_everywhere());
}
