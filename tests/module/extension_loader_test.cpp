// Vector_avx2_polarization_processor_module against stand-in extensions.
// Each suite runs with one variant of the extension on its library path.

#include <dlfcn.h>

#include <array>
#include <memory>

#include <gtest/gtest.h>

#include "module/vector_polarization_processor_module.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

const Event lookup_initialize = {"lookup", "kl_polarization_processor_vector_avx2_module_initialize"};
const Event lookup_transform = {"lookup", "kl_polarization_processor_transform_vector_avx2"};
const Event lookup_terminate = {"lookup", "kl_polarization_processor_vector_avx2_module_terminate"};
const Event terminate_call = {"terminate"};

using Module = Vector_avx2_polarization_processor_module;

std::vector<Event> events_after(const std::vector<Event>& events, std::size_t first)
{
    return std::vector<Event>(events.begin() + std::ptrdiff_t(std::min(first, events.size())), events.end());
}

// Builds a module, then checks that destroying it calls the extension's
// terminate exactly once and closes the library.
void expect_destruction_terminates_once_then_closes()
{
    Event_record record;
    auto module = std::make_unique<Module>();
    const std::size_t after_construction = record.events().size();
    module.reset();
    EXPECT_EQ(events_after(record.events(), after_construction), (std::vector<Event>{terminate_call}));
    EXPECT_FALSE(library_is_open(extension_file_name));
}

}  // namespace

// ---------------------------------------------------------------------------

TEST(ExtensionLoaderAbsent, ModuleIsFailedAndHoldsNothing)
{
    Event_record record;
    auto module = std::make_unique<Module>();
    EXPECT_TRUE(module->failed);
    EXPECT_EQ(module->library_handle, nullptr);
    EXPECT_EQ(module->initialize_function, nullptr);
    EXPECT_EQ(module->transform_function, nullptr);
    EXPECT_EQ(module->terminate_function, nullptr);
    EXPECT_FALSE(library_is_open(extension_file_name));
    module.reset();
    EXPECT_TRUE(record.events().empty());
}

// ---------------------------------------------------------------------------

TEST(ExtensionLoaderSound, LooksUpTheThreeFunctionsInOrderThenInitialisesOnce)
{
    Event_record record;
    Module module;
    EXPECT_EQ(record.events(), (std::vector<Event>{lookup_initialize, lookup_transform, lookup_terminate,
                                                   Event{"initialize", "0"}}));
    EXPECT_FALSE(module.failed);
    EXPECT_NE(module.library_handle, nullptr);
    EXPECT_NE(module.initialize_function, nullptr);
    EXPECT_NE(module.transform_function, nullptr);
    EXPECT_NE(module.terminate_function, nullptr);
    EXPECT_TRUE(library_is_open(extension_file_name));
}

TEST(ExtensionLoaderSound, HandleIsTheExtensionLibrary)
{
    Module module;
    void* same = dlopen(extension_file_name, RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_EQ(same, module.library_handle);
    if (same != nullptr)
        dlclose(same);
}

TEST(ExtensionLoaderSound, DestructionTerminatesOnceThenClosesTheLibrary)
{
    expect_destruction_terminates_once_then_closes();
}

TEST(ExtensionLoaderSound, TransformFunctionReceivesTheRecordAndTheMatricesByAddress)
{
    Event_record record;
    Module module;
    ASSERT_NE(module.transform_function, nullptr);

    std::array<Calibration_matrix, 4> matrices;
    for (std::size_t m = 0; m < 4; ++m)
        for (std::size_t i = 0; i < 16; ++i)
            matrices[m][i] = float(100 * m + i) + 0.5f;
    const Calibration_matrices set = {&matrices[0], &matrices[1], &matrices[2], &matrices[3]};
    std::uint16_t input[4] = {1, 2, 3, 4};
    float normalized[8];
    std::uint16_t images[5][4];
    const Polarization_computation_arguments arguments = {
        2, 3, -1, input, 11, 2047.0f, 255.0f, 255, normalized, images[0], nullptr, images[2], images[3], images[4]};

    module.transform_function(arguments, set);

    const auto calls = record.events_of("transform");
    ASSERT_EQ(calls.size(), 1u);
    Event expected = {"transform",
                      "2",
                      "3",
                      "-1",
                      pointer_text(input),
                      "11",
                      float_bits_text(2047.0f),
                      float_bits_text(255.0f),
                      "255",
                      pointer_text(normalized),
                      pointer_text(images[0]),
                      pointer_text(nullptr),
                      pointer_text(images[2]),
                      pointer_text(images[3]),
                      pointer_text(images[4])};
    for (const auto& matrix : matrices)
        expected.push_back(pointer_text(&matrix));
    for (const auto& matrix : matrices)
        for (float value : matrix)
            expected.push_back(float_bits_text(value));
    EXPECT_EQ(calls[0], expected);
}

// ---------------------------------------------------------------------------

TEST(ExtensionLoaderRefusing, RefusedInitialiseLeavesTheModuleFailedAndTheLibraryOpen)
{
    Event_record record;
    Module module;
    EXPECT_EQ(record.events(), (std::vector<Event>{lookup_initialize, lookup_transform, lookup_terminate,
                                                   Event{"initialize", "1"}}));
    EXPECT_TRUE(module.failed);
    EXPECT_NE(module.transform_function, nullptr);
    EXPECT_NE(module.terminate_function, nullptr);
    EXPECT_TRUE(library_is_open(extension_file_name));
}

TEST(ExtensionLoaderRefusing, RefusedExtensionIsStillTerminatedOnceAndClosed)
{
    expect_destruction_terminates_once_then_closes();
}

// ---------------------------------------------------------------------------

TEST(ExtensionLoaderWithoutInitialize, StopsAtTheMissingInitialiseFunction)
{
    Event_record record;
    Module module;
    EXPECT_TRUE(module.failed);
    EXPECT_NE(module.library_handle, nullptr);
    EXPECT_EQ(module.initialize_function, nullptr);
    EXPECT_EQ(module.transform_function, nullptr);
    EXPECT_EQ(module.terminate_function, nullptr);
    EXPECT_TRUE(record.events().empty()) << "later functions were looked up";
    EXPECT_TRUE(library_is_open(extension_file_name));
}

TEST(ExtensionLoaderWithoutInitialize, DestructionOnlyClosesTheLibrary)
{
    Event_record record;
    auto module = std::make_unique<Module>();
    module.reset();
    EXPECT_TRUE(record.events().empty());
    EXPECT_FALSE(library_is_open(extension_file_name));
}

// ---------------------------------------------------------------------------

TEST(ExtensionLoaderWithoutTransform, StopsAtTheMissingTransformFunctionKeepingWhatItFound)
{
    Event_record record;
    Module module;
    EXPECT_TRUE(module.failed);
    EXPECT_NE(module.initialize_function, nullptr);
    EXPECT_EQ(module.transform_function, nullptr);
    EXPECT_EQ(module.terminate_function, nullptr);
    EXPECT_EQ(record.events(), (std::vector<Event>{lookup_initialize}));
    EXPECT_TRUE(library_is_open(extension_file_name));
}

TEST(ExtensionLoaderWithoutTransform, DestructionOnlyClosesTheLibrary)
{
    Event_record record;
    auto module = std::make_unique<Module>();
    const std::size_t after_construction = record.events().size();
    module.reset();
    EXPECT_EQ(record.events().size(), after_construction);
    EXPECT_FALSE(library_is_open(extension_file_name));
}

// ---------------------------------------------------------------------------

TEST(ExtensionLoaderWithoutTerminate, InitialiseIsNeverCalled)
{
    Event_record record;
    Module module;
    EXPECT_TRUE(module.failed);
    EXPECT_NE(module.initialize_function, nullptr);
    EXPECT_NE(module.transform_function, nullptr);
    EXPECT_EQ(module.terminate_function, nullptr);
    EXPECT_EQ(record.events(), (std::vector<Event>{lookup_initialize, lookup_transform}));
}

TEST(ExtensionLoaderWithoutTerminate, DestructionOnlyClosesTheLibrary)
{
    Event_record record;
    auto module = std::make_unique<Module>();
    const std::size_t after_construction = record.events().size();
    module.reset();
    EXPECT_EQ(record.events().size(), after_construction);
    EXPECT_FALSE(library_is_open(extension_file_name));
}

// ---------------------------------------------------------------------------

TEST(ExtensionLoaderLazy, LibraryIsOpenedWithLazyBinding)
{
    auto module = std::make_unique<Module>();
    EXPECT_FALSE(module->failed);
    module.reset();
    ASSERT_FALSE(library_is_open(extension_file_name));

    void* immediately_bound = dlopen(extension_file_name, RTLD_NOW);
    EXPECT_EQ(immediately_bound, nullptr) << "the stand-in does not need lazy binding";
    if (immediately_bound != nullptr)
        dlclose(immediately_bound);
}
