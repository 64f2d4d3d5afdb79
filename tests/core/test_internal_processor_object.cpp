// The processor object and the global holders, seen from inside: what create
// writes, the choice between the extension module and the local kernels, the
// record a transform builds, and the reference counts.
#include <cpuid.h>

#include <limits>

#include "core_internal_support.h"
#include "kestrion_ksi_polarization_processor_obj.h"
#include "module_holders.h"

namespace core_test {
namespace {

kestrion_ksi_polarization_processor_obj& object_of(const Processor& processor)
{
    return *static_cast<kestrion_ksi_polarization_processor_obj*>(processor.handle());
}

// The gate of create: leaf 1 EAX read as signed above 6, then leaf 7 EBX
// bit 5; no query of the operating system's support.
bool avx2_by_the_create_gate()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    __cpuid(1, eax, ebx, ecx, edx);
    if (std::int32_t(eax) <= 6)
        return false;
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    return (ebx & (1u << 5)) != 0;
}

TEST(ProcessorInternals, CreateSetsHasAvx2AsTheCpuReportsIt)
{
    Module_session session;
    Processor processor;
    EXPECT_EQ(object_of(processor).has_avx2, avx2_by_the_create_gate());
}

TEST(ProcessorInternals, CreateStoresTheGlobalExtensionHolderNotTheModule)
{
    Module_session session;
    Processor processor;
    EXPECT_EQ(object_of(processor).vector_module, &vector_avx2_module);
}

TEST(ProcessorInternals, PhaseSetsPointAtTheObjectsOwnMatrices)
{
    Module_session session;
    Processor processor;
    auto& object = object_of(processor);
    const Calibration_matrix* by_polarizer[4] = {&object.matrix_0, &object.matrix_45, &object.matrix_90,
                                                 &object.matrix_135};
    const int sets[4][4] = {{0, 3, 1, 2}, {1, 2, 0, 3}, {2, 1, 3, 0}, {3, 0, 2, 1}};
    for (int phase = 0; phase < 4; ++phase) {
        const Calibration_matrices& set = object.phase_matrices[phase];
        EXPECT_EQ(set.even_row_even_column, by_polarizer[sets[phase][0]]) << "phase " << phase;
        EXPECT_EQ(set.even_row_odd_column, by_polarizer[sets[phase][1]]) << "phase " << phase;
        EXPECT_EQ(set.odd_row_even_column, by_polarizer[sets[phase][2]]) << "phase " << phase;
        EXPECT_EQ(set.odd_row_odd_column, by_polarizer[sets[phase][3]]) << "phase " << phase;
    }
}

// ---------------------------------------------------------------------------
// An in-process stand-in for the extension's transform, installed in the
// module the holder owns.

struct Spy {
    int calls = 0;
    Polarization_computation_arguments record{};
    Calibration_matrices matrices{};
};
Spy spy;

int spy_transform(const Polarization_computation_arguments& record, const Calibration_matrices& matrices)
{
    ++spy.calls;
    spy.record = record;
    spy.matrices = matrices;
    return 0;
}

// Makes the holder's module look loaded and sound, and undoes it on exit.
class Sound_module {
public:
    Sound_module()
    {
        module_ = vector_avx2_module.pointer.get();
        if (module_ == nullptr)
            return;
        failed_ = module_->failed;
        transform_ = module_->transform_function;
        module_->failed = false;
        module_->transform_function = &spy_transform;
        spy = Spy{};
    }
    ~Sound_module()
    {
        if (module_ == nullptr)
            return;
        module_->failed = failed_;
        module_->transform_function = transform_;
    }
    bool installed() const { return module_ != nullptr; }

private:
    Vector_avx2_polarization_processor_module* module_ = nullptr;
    bool failed_ = true;
    Vector_polarization_processor_module::Transform_function transform_ = nullptr;
};

TEST(ProcessorInternals, TheExtensionIsAbsentHereSoTheModuleIsFailed)
{
    Module_session session;
    ASSERT_NE(vector_avx2_module.pointer, nullptr);
    EXPECT_TRUE(vector_avx2_module.pointer->failed);
    EXPECT_NE(logger.pointer, nullptr);
}

// A failed module leads to the local kernels even when has_avx2 is true.
TEST(ProcessorInternals, AFailedModuleLeadsToTheLocalKernelsEvenWithAvx2)
{
    Module_session session;
    Processor processor;
    ASSERT_TRUE(vector_avx2_module.pointer->failed) << "this test needs the extension to be absent";
    object_of(processor).has_avx2 = true;
    std::mt19937_64 rng(11001);
    for (int i = 0; i < 10; ++i) {
        Frame_case frame = random_frame(rng, 3 + unsigned(i), 4 + unsigned(3 * i));
        frame.slots = all_slots;
        EXPECT_EQ(check_exported_frame(processor, frame, "failed module, has_avx2 true"), 0u);
    }
}

// With has_avx2 false the module is not called, even when it loaded well.
TEST(ProcessorInternals, WithoutAvx2ASoundModuleIsNotCalled)
{
    Module_session session;
    Processor processor;
    Sound_module sound;
    ASSERT_TRUE(sound.installed());
    object_of(processor).has_avx2 = false;
    std::mt19937_64 rng(11101);
    Frame_case frame = random_frame(rng, 6, 11);
    frame.slots = all_slots;
    EXPECT_EQ(check_exported_frame(processor, frame, "sound module, has_avx2 false"), 0u);
    EXPECT_EQ(spy.calls, 0);
}

// With has_avx2 true and a sound module the module does all the work: it
// receives the record the transform built and the phase's matrix set, and
// the local kernels write nothing.
TEST(ProcessorInternals, WithAvx2ASoundModuleReceivesTheRecordAndThePhaseSet)
{
    Module_session session;
    Processor processor;
    Sound_module sound;
    ASSERT_TRUE(sound.installed());
    auto& object = object_of(processor);
    object.has_avx2 = true;

    std::mt19937_64 rng(11201);
    Frame_case frame = random_frame(rng, 7, 10, 1);
    frame.origin_x = -3;  // re-bases phase 1 to 3
    frame.origin_y = 2;
    frame.bit_depth = 12;
    frame.output_maximum = 1000;
    frame.slots = slot_bit(0) | slot_bit(2) | slot_bit(5);
    Output_arena arena(frame.pixels(), frame.slots, 0xA5);
    ASSERT_EQ(transform_frame(processor.handle(), frame, arena), status_success);
    ASSERT_EQ(spy.calls, 1);
    EXPECT_TRUE(check_untouched(arena, frame, "module transform"));
    for (std::size_t i = 0; i < frame.pixels(); ++i) {
        ASSERT_EQ(arena.slot_at(2, i), 0xA5A5) << "the local kernels must not run";
        ASSERT_EQ(arena.slot_at(5, i), 0xA5A5) << "the local kernels must not run";
    }

    const Polarization_computation_arguments& r = spy.record;
    EXPECT_EQ(r.rows, 7u);
    EXPECT_EQ(r.columns, 10u);
    EXPECT_EQ(r.polar_phase, 3);
    EXPECT_EQ(r.input, frame.input.data());
    EXPECT_EQ(r.bit_depth, 12u);
    EXPECT_EQ(r.input_maximum, 4095.0f);
    EXPECT_EQ(r.output_maximum, 1000.0f);
    EXPECT_EQ(r.output_maximum_integer, 1000u);
    EXPECT_EQ(r.normalized_stokes, arena.normalized());
    EXPECT_EQ(r.s0_image, nullptr);
    EXPECT_EQ(r.s1_image, arena.slot(2));
    EXPECT_EQ(r.s2_image, nullptr);
    EXPECT_EQ(r.azimuth_image, nullptr);
    EXPECT_EQ(r.dolp_image, arena.slot(5));
    EXPECT_EQ(spy.matrices.even_row_even_column, &object.matrix_135);
    EXPECT_EQ(spy.matrices.even_row_odd_column, &object.matrix_0);
    EXPECT_EQ(spy.matrices.odd_row_even_column, &object.matrix_90);
    EXPECT_EQ(spy.matrices.odd_row_odd_column, &object.matrix_45);
}

TEST(ProcessorInternals, TheRecordHasTheBitDepthsInputMaximum)
{
    Module_session session;
    Processor processor;
    Sound_module sound;
    ASSERT_TRUE(sound.installed());
    object_of(processor).has_avx2 = true;
    std::vector<std::uint16_t> input(6, 1), out(6);
    for (std::uint32_t bit_depth = 0; bit_depth <= 16; ++bit_depth) {
        ASSERT_EQ(kl_polarization_processor_transform(processor.handle(), 2, input.data(), 0, 0, 3, 2, bit_depth,
                                                      65535, nullptr, out.data(), nullptr, nullptr, nullptr, nullptr),
                  status_success);
        EXPECT_EQ(spy.record.input_maximum, float((1u << bit_depth) - 1u)) << "bit depth " << bit_depth;
        EXPECT_EQ(spy.record.bit_depth, bit_depth);
        EXPECT_EQ(spy.record.rows, 2u);
        EXPECT_EQ(spy.record.columns, 3u);
        EXPECT_EQ(spy.record.polar_phase, 2);
    }
    EXPECT_EQ(spy.record.input_maximum, 65535.0f);
}

// Phases outside 1 to 3 take set 0 in the object's transform.
TEST(ProcessorInternals, PhasesOutside1To3TakeSet0)
{
    Module_session session;
    Processor processor;
    Sound_module sound;
    ASSERT_TRUE(sound.installed());
    auto& object = object_of(processor);
    object.has_avx2 = true;
    std::vector<std::uint16_t> input(16, 3), out(16);
    Polarization_computation_arguments record{};
    record.rows = 4;
    record.columns = 4;
    record.input = input.data();
    record.bit_depth = 16;
    record.input_maximum = 65535.0f;
    record.output_maximum = 65535.0f;
    record.output_maximum_integer = 65535;
    record.s0_image = out.data();
    for (std::int32_t phase : {0, -1, -3, 4, 7, std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max()}) {
        record.polar_phase = phase;
        spy = Spy{};
        object.transform(record, true);
        ASSERT_EQ(spy.calls, 1);
        EXPECT_EQ(spy.matrices.even_row_even_column, &object.matrix_0) << "phase " << phase;
        EXPECT_EQ(spy.matrices.even_row_odd_column, &object.matrix_135) << "phase " << phase;
        EXPECT_EQ(spy.matrices.odd_row_even_column, &object.matrix_45) << "phase " << phase;
        EXPECT_EQ(spy.matrices.odd_row_odd_column, &object.matrix_90) << "phase " << phase;
    }
    for (std::int32_t phase : {1, 2, 3}) {
        record.polar_phase = phase;
        object.transform(record, false);
        EXPECT_EQ(spy.matrices.even_row_even_column, object.phase_matrices[phase].even_row_even_column);
        EXPECT_EQ(spy.matrices.odd_row_odd_column, object.phase_matrices[phase].odd_row_odd_column);
    }
}

// The same with the local kernels: marked matrices show set 0 at work.
TEST(ProcessorInternals, PhasesOutside1To3UseSet0InTheLocalKernels)
{
    Module_session session;
    Processor processor;
    auto& object = object_of(processor);
    object.has_avx2 = false;
    for (int polarizer = 0; polarizer < 4; ++polarizer) {
        const Matrix m = matrix_rows({2.0f * float(polarizer + 1), 0, 0, 0}, {}, {});
        Calibration_matrix* target[4] = {&object.matrix_0, &object.matrix_45, &object.matrix_90, &object.matrix_135};
        *target[polarizer] = m;
    }
    std::vector<std::uint16_t> input(4, 10), out(4);
    Polarization_computation_arguments record{};
    record.rows = 2;
    record.columns = 2;
    record.input = input.data();
    record.bit_depth = 16;
    record.input_maximum = 65535.0f;
    record.output_maximum = 65535.0f;
    record.output_maximum_integer = 65535;
    record.s0_image = out.data();
    for (std::int32_t phase : {-1, 4, 99, std::numeric_limits<std::int32_t>::min()}) {
        for (bool sse41 : {false, true}) {
            record.polar_phase = phase;
            std::fill(out.begin(), out.end(), 0);
            object.transform(record, sse41);
            // Set 0: 0, 135, 45, 90 degrees -> marks 1, 4, 2, 3.
            EXPECT_EQ(out[0], 10) << "phase " << phase;
            EXPECT_EQ(out[1], 40) << "phase " << phase;
            EXPECT_EQ(out[2], 20) << "phase " << phase;
            EXPECT_EQ(out[3], 30) << "phase " << phase;
        }
    }
}

// Set and get copy with a move that tolerates overlap, even with the
// object's own storage.
TEST(ProcessorInternals, SetAndGetTolerateOverlapWithTheObjectsOwnMatrices)
{
    Module_session session;
    Processor processor;
    auto& object = object_of(processor);
    for (int i = 0; i < 16; ++i) {
        object.matrix_0[i] = float(i);
        object.matrix_45[i] = float(100 + i);
    }
    static_assert(sizeof(Calibration_matrix) == 16 * sizeof(float), "matrices are plain floats");
    ASSERT_EQ(reinterpret_cast<char*>(&object.matrix_45) - reinterpret_cast<char*>(&object.matrix_0),
              std::ptrdiff_t(sizeof(Calibration_matrix)))
        << "the matrices lie back to back";

    // Set matrix_0 from a window one float further on: elements 1..15 of
    // matrix_0 and element 0 of matrix_45.
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(),
                                                                            object.matrix_0.data() + 1, nullptr,
                                                                            nullptr, nullptr),
              status_success);
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(object.matrix_0[i], float(i + 1)) << i;
    EXPECT_EQ(object.matrix_0[15], 100.0f);

    // Get matrix_45 into a window that starts one float before it.
    ASSERT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(
                  processor.handle(), nullptr, object.matrix_0.data() + 15, nullptr, nullptr),
              status_success);
    EXPECT_EQ(object.matrix_0[15], 100.0f);
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(object.matrix_45[i], float(101 + i)) << i;
    EXPECT_EQ(object.matrix_45[15], 115.0f);
}

// ---------------------------------------------------------------------------
// Holders.

TEST(ModuleHolders, InitializeCountsBothHoldersAndTerminateCountsThemDown)
{
    EXPECT_EQ(logger.count, 0u);
    EXPECT_EQ(vector_avx2_module.count, 0u);
    EXPECT_EQ(logger.pointer, nullptr);
    EXPECT_EQ(vector_avx2_module.pointer, nullptr);

    kl_polarization_processor_module_initialize();
    Ksi_log_object* first_log = logger.pointer.get();
    EXPECT_NE(first_log, nullptr);
    EXPECT_NE(vector_avx2_module.pointer, nullptr);
    kl_polarization_processor_module_initialize();
    EXPECT_EQ(logger.count, 2u);
    EXPECT_EQ(vector_avx2_module.count, 2u);
    EXPECT_EQ(logger.pointer.get(), first_log) << "later initialises only count";

    kl_polarization_processor_module_terminate();
    EXPECT_EQ(logger.count, 1u);
    EXPECT_EQ(vector_avx2_module.count, 1u);
    EXPECT_NE(logger.pointer, nullptr);
    kl_polarization_processor_module_terminate();
    EXPECT_EQ(logger.count, 0u);
    EXPECT_EQ(vector_avx2_module.count, 0u);
    EXPECT_EQ(logger.pointer, nullptr);
    EXPECT_EQ(vector_avx2_module.pointer, nullptr);

    kl_polarization_processor_module_terminate();
    EXPECT_EQ(logger.count, 0u) << "an unmatched terminate changes nothing";
    EXPECT_EQ(vector_avx2_module.count, 0u);

    kl_polarization_processor_module_initialize();
    EXPECT_NE(logger.pointer, nullptr) << "a new initialise builds afresh";
    EXPECT_NE(vector_avx2_module.pointer, nullptr);
    EXPECT_EQ(logger.count, 1u);
    kl_polarization_processor_module_terminate();
}

}  // namespace
}  // namespace core_test
