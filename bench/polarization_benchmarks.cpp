// Mpixel/s of the kernel family on 2448 x 2048 frames of random 12-bit pixels
// with output maximum 65535 (so S0, S1 and S2 are rescaled), single thread.
//
//   sse41/<slots>              the exported transform (SSE4.1 block form), with
//                              no AVX2 extension loaded
//   extension_8_lanes/<slots>  the AVX2 extension's transform in eight lanes
//   extension_16_lanes/<slots> the same in sixteen lanes (AVX-512 processors)
//   memory_reference/<slots>   one read of the frame and one write of every
//                              present output, with memcpy: the floor that
//                              memory bandwidth sets
//   baseline/<slots>           generate_polarization_output_data(..., false)
//   scalar_only/<slots>        generate_polarization_output_data_scalar_only
//
// Slot sets: s0; s0_s1_s2; azimuth_dolp; all_six.
//
// The "Mpixel" counter is a rate: the console shows it as Mpixel per second
// with a unit prefix (Mpixel=2.2k/s is 2200 Mpixel/s); items_per_second
// carries the same rate in pixels.
#include <benchmark/benchmark.h>

#include <cpuid.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kernels/generate_polarization_output_data.h"
#include "kernels/polarization_computation_arguments.h"
#include "kernels/scalar_only_sweep.h"
#include "kestrion_ksi_polarization_processor.h"
#include "module_holders.h"
#include "vector_avx2_module.h"

namespace {

constexpr unsigned frame_columns = 2448;
constexpr unsigned frame_rows = 2048;
constexpr std::size_t frame_pixels = std::size_t(frame_columns) * frame_rows;
constexpr std::uint32_t frame_bit_depth = 12;
constexpr std::uint16_t frame_output_maximum = 65535;

// Bit i: slot i (0 normalized pair, 1 S0, 2 S1, 3 S2, 4 azimuth, 5 DoLP).
struct Slot_set {
    const char* name;
    unsigned slots;
};
constexpr Slot_set slot_sets[] = {
    {"s0", 0x02u},
    {"s0_s1_s2", 0x0Eu},
    {"azimuth_dolp", 0x30u},
    {"all_six", 0x3Fu},
};

struct Frame_buffers {
    std::vector<std::uint16_t> input;
    std::vector<float> normalized;
    std::array<std::vector<std::uint16_t>, 6> images;  // slots 1 to 5

    Frame_buffers() : input(frame_pixels), normalized(2 * frame_pixels)
    {
        std::mt19937 random(12u);
        std::uniform_int_distribution<int> pixel(0, (1 << frame_bit_depth) - 1);
        for (std::uint16_t& p : input)
            p = std::uint16_t(pixel(random));
        for (unsigned slot = 1; slot < 6; ++slot)
            images[slot].assign(frame_pixels, 0);
    }

    float* normalized_for(unsigned slots) { return (slots & 1u) ? normalized.data() : nullptr; }
    std::uint16_t* image_for(unsigned slots, unsigned slot) { return (slots >> slot) & 1u ? images[slot].data() : nullptr; }

    Polarization_computation_arguments arguments(unsigned slots)
    {
        Polarization_computation_arguments a{};
        a.rows = frame_rows;
        a.columns = frame_columns;
        a.polar_phase = 0;
        a.input = input.data();
        a.bit_depth = frame_bit_depth;
        a.input_maximum = float((1u << frame_bit_depth) - 1u);
        a.output_maximum = float(frame_output_maximum);
        a.output_maximum_integer = frame_output_maximum;
        a.normalized_stokes = normalized_for(slots);
        a.s0_image = image_for(slots, 1);
        a.s1_image = image_for(slots, 2);
        a.s2_image = image_for(slots, 3);
        a.azimuth_image = image_for(slots, 4);
        a.dolp_image = image_for(slots, 5);
        return a;
    }
};

Frame_buffers& buffers()
{
    static Frame_buffers b;
    return b;
}

// The default calibration of phase 0, by pixel parity.
const Calibration_matrix matrix_0 = {1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0, 0, 0, 0, 0};
const Calibration_matrix matrix_45 = {1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1, 0, 0, 0, 0};
const Calibration_matrix matrix_90 = {1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0, 0, 0, 0, 0};
const Calibration_matrix matrix_135 = {1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1, 0, 0, 0, 0};
const Calibration_matrices phase_0_matrices = {&matrix_0, &matrix_135, &matrix_45, &matrix_90};

void report_pixels(benchmark::State& state)
{
    const double pixels = double(state.iterations()) * double(frame_pixels);
    state.SetItemsProcessed(std::int64_t(pixels));
    state.counters["Mpixel"] = benchmark::Counter(pixels / 1e6, benchmark::Counter::kIsRate);
}

bool has_sse41()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid(1, &eax, &ebx, &ecx, &edx) && (ecx & (1u << 19)) != 0;
}

void* processor();

void through_transform(benchmark::State& state, unsigned slots)
{
    if (!has_sse41()) {
        state.SkipWithError("no SSE4.1 on this processor: the transform would not run the SSE4.1 form");
        return;
    }
    Frame_buffers& b = buffers();
    void* const handle = processor();
    for (auto _ : state) {
        const int status = kl_polarization_processor_transform(
            handle, 0, b.input.data(), 0, 0, int32_t(frame_columns), int32_t(frame_rows), frame_bit_depth,
            frame_output_maximum, b.normalized_for(slots), b.image_for(slots, 1), b.image_for(slots, 2),
            b.image_for(slots, 3), b.image_for(slots, 4), b.image_for(slots, 5));
        if (status != 0) {
            state.SkipWithError("transform failed");
            return;
        }
        benchmark::ClobberMemory();
    }
    report_pixels(state);
}

void through_extension(benchmark::State& state, unsigned slots, unsigned lane_width)
{
    if (vector_avx2::supported_lane_width() < lane_width) {
        state.SkipWithError("this processor cannot run the extension in this width");
        return;
    }
    const Polarization_computation_arguments arguments = buffers().arguments(slots);
    for (auto _ : state) {
        vector_avx2::transform_in_lanes(lane_width, arguments, phase_0_matrices);
        benchmark::ClobberMemory();
    }
    report_pixels(state);
}

// Row by row: one copy of the source row into a buffer that stays in the
// first-level cache, then one copy of that buffer into each present output
// row (four into the row of float pairs, which is four times as long).
void memory_reference(benchmark::State& state, unsigned slots)
{
    const Polarization_computation_arguments a = buffers().arguments(slots);
    std::uint16_t* const images[] = {a.s0_image, a.s1_image, a.s2_image, a.azimuth_image, a.dolp_image};
    constexpr std::size_t row_bytes = frame_columns * sizeof(std::uint16_t);
    std::vector<std::uint16_t> row_buffer(frame_columns);
    for (auto _ : state) {
        for (std::size_t row = 0; row < frame_rows; ++row) {
            const std::size_t first = row * frame_columns;
            std::memcpy(row_buffer.data(), a.input + first, row_bytes);
            if (a.normalized_stokes != nullptr) {
                char* pairs = reinterpret_cast<char*>(a.normalized_stokes + 2 * first);
                for (int quarter = 0; quarter < 4; ++quarter)
                    std::memcpy(pairs + quarter * row_bytes, row_buffer.data(), row_bytes);
            }
            for (std::uint16_t* image : images)
                if (image != nullptr)
                    std::memcpy(image + first, row_buffer.data(), row_bytes);
        }
        benchmark::ClobberMemory();
    }
    report_pixels(state);
}

void through_baseline(benchmark::State& state, unsigned slots)
{
    const Polarization_computation_arguments arguments = buffers().arguments(slots);
    for (auto _ : state) {
        generate_polarization_output_data(arguments, phase_0_matrices, false);
        benchmark::ClobberMemory();
    }
    report_pixels(state);
}

void through_scalar_only(benchmark::State& state, unsigned slots)
{
    const Polarization_computation_arguments arguments = buffers().arguments(slots);
    for (auto _ : state) {
        generate_polarization_output_data_scalar_only(arguments, phase_0_matrices);
        benchmark::ClobberMemory();
    }
    report_pixels(state);
}

// One processor for the whole run, created on first use (after every static
// object of the library is initialised) and released at exit.
struct Processor {
    void* handle = nullptr;

    Processor()
    {
        kl_polarization_processor_module_initialize();
        if (kl_polarization_processor_create_polarization_processor(&handle) != 0) {
            std::fprintf(stderr, "cannot create a processor\n");
            std::exit(1);
        }
        // The sse41 column measures the library's own kernels.
        if (!vector_avx2_module.pointer->failed) {
            std::fprintf(stderr, "an AVX2 extension was loaded, so the exported transform would not run the "
                                 "local SSE4.1 form; run without a library path that names one\n");
            std::exit(1);
        }
    }

    ~Processor()
    {
        kl_polarization_processor_destroy_polarization_processor(handle);
        kl_polarization_processor_module_terminate();
    }
};

void* processor()
{
    static Processor p;
    return p.handle;
}

// Registers every benchmark before the benchmark library's own main runs.
struct Registration {
    Registration()
    {
        for (const Slot_set& set : slot_sets)
            benchmark::RegisterBenchmark((std::string("sse41/") + set.name).c_str(), through_transform, set.slots)
                ->Unit(benchmark::kMillisecond);
        for (const Slot_set& set : slot_sets)
            benchmark::RegisterBenchmark((std::string("extension_8_lanes/") + set.name).c_str(), through_extension,
                                         set.slots, 8u)
                ->Unit(benchmark::kMillisecond);
        for (const Slot_set& set : slot_sets)
            benchmark::RegisterBenchmark((std::string("extension_16_lanes/") + set.name).c_str(), through_extension,
                                         set.slots, 16u)
                ->Unit(benchmark::kMillisecond);
        for (const Slot_set& set : slot_sets)
            benchmark::RegisterBenchmark((std::string("memory_reference/") + set.name).c_str(), memory_reference,
                                         set.slots)
                ->Unit(benchmark::kMillisecond);
        for (const Slot_set& set : slot_sets)
            benchmark::RegisterBenchmark((std::string("baseline/") + set.name).c_str(), through_baseline, set.slots)
                ->Unit(benchmark::kMillisecond);
        for (const Slot_set& set : slot_sets)
            benchmark::RegisterBenchmark((std::string("scalar_only/") + set.name).c_str(), through_scalar_only,
                                         set.slots)
                ->Unit(benchmark::kMillisecond);
    }
};

const Registration registration;

}  // namespace

BENCHMARK_MAIN();
