// Whole sweeps of transforms on guarded buffers: every frame size of a list,
// both placements against the guard pages, every slot set and phase of a
// plan, both kinds of scale. The caller says how one call reaches the
// library (exported transform, internal dispatcher, extension); the sweep
// owns the buffers and checks that every call succeeded and wrote its
// buffers up to both ends.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "guarded_buffer.h"

namespace safety {

struct Frame_size {
    unsigned rows;
    unsigned columns;
};

// Every size from 2x2 to 40x40.
std::vector<Frame_size> small_sizes();
// Sensor sizes of real cameras, full and binned, and an odd crop.
std::vector<Frame_size> camera_sizes();

constexpr unsigned all_slots = 0x3Fu;
// Every non-empty subset of the six slots.
std::vector<unsigned> every_slot_set();
// A few subsets that reach every kind of output: all six, S0 alone, the
// derived pair, the normalized pair alone.
std::vector<unsigned> representative_slot_sets();

// One transform on guarded buffers. The phase is that of the region's first
// pixel (the origin is (0, 0)). images[0] is unused; absent slots are null.
struct Guarded_call {
    unsigned rows;
    unsigned columns;
    std::int32_t polar_phase;
    std::uint32_t bit_depth;
    std::uint16_t output_maximum;
    const std::uint16_t* input;
    float* normalized_stokes;
    std::uint16_t* images[6];
};

// Runs one call and returns the library's status.
using Guarded_runner = std::function<int(const Guarded_call&)>;

// Which phases and scales each slot set meets at one size. Whatever turns
// turns with the size, so that over the sizes each slot set still meets
// every phase with both scales.
enum class Coverage {
    every_phase_both_scales,
    every_phase_one_scale,
    one_phase_one_scale,  // slow (emulated, instrumented) runs
};

struct Sweep_plan {
    std::vector<Frame_size> sizes;
    std::vector<unsigned> slot_sets;
    std::vector<std::int32_t> phases{0, 1, 2, 3};
    std::vector<Placement> placements{Placement::ends_at_guard, Placement::starts_after_guard};
    Coverage coverage = Coverage::every_phase_both_scales;
};

struct Sweep_result {
    std::size_t calls = 0;
    std::size_t pixels = 0;
    std::vector<std::string> failures;  // the first few, described
    std::size_t failure_count = 0;
};

// For every size and placement: an input and six outputs on guarded
// buffers, the input read-only. For every slot set, phase and scale (native,
// then rescaled): one call. A call fails when its status is not 0 or when
// the first or last element of a present output keeps the value it had
// before, a value the library never stores there. A stray access outside a
// buffer ends the process with a fault.
Sweep_result sweep_guarded_frames(const Sweep_plan& plan, const Guarded_runner& run);

std::string describe(const Sweep_result& result);

// Instrumented builds run several times slower; AddressSanitizer already
// watches the ordinary allocations of every other test there.
#ifdef KSI_SAFETY_SANITIZED
constexpr bool sanitized_build = true;
#else
constexpr bool sanitized_build = false;
#endif

// Every size from 2x2 to 40x40 with every slot set; at each size every phase
// and both scales unless asked otherwise. Instrumented runs take one phase
// and scale at each size whatever is asked.
Sweep_plan small_size_plan(Coverage coverage = Coverage::every_phase_both_scales);

}  // namespace safety
