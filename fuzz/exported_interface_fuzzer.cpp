// The exported C interface under arbitrary arguments and call sequences.
//
// The input is read as a program of calls: initialise, terminate, create,
// destroy, set, get and transform, in any order, with handles, matrices,
// pointers and numbers taken from the input. A model kept here, written from
// the interface's documented check order alone, predicts every return code.
// Every buffer is an exact-size heap allocation, so AddressSanitizer stops
// any access outside what a call describes; refused calls must leave every
// buffer as it was, and accepted ones must not touch the input, the output
// buffers left out of the call, or anything else.

#include <dlfcn.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kestrion_ksi_polarization_processor.h"
#include "scalar_reference.h"

namespace {

using Matrix = ksi_reference::Matrix;
using Matrix_set = std::array<Matrix, 4>;

[[noreturn]] void fail(const char* what, int expected, int actual)
{
    std::fprintf(stderr, "%s: expected status %d, the library returned %d\n", what, expected, actual);
    std::abort();
}

void check_status(const char* what, int expected, int actual)
{
    if (expected != actual)
        fail(what, expected, actual);
}

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// What the library must hold, as the caller sees it.
struct Model {
    unsigned initialised = 0;  // initialise calls not yet matched by a terminate
    struct Handle {
        void* pointer;
        Matrix_set matrices;  // by polarizer 0, 45, 90, 135
    };
    std::vector<Handle> handles;
};

Matrix_set default_matrices()
{
    Matrix_set set;
    for (int polarizer = 0; polarizer < 4; ++polarizer)
        set[polarizer] = ksi_reference::default_matrix(polarizer);
    return set;
}

// The documented order of the transform's checks; the first that fails
// decides.
struct Transform_call {
    void* processor;
    std::int32_t polar_phase;
    const std::uint16_t* input;
    std::int32_t origin_x, origin_y, width, height;
    std::uint32_t bit_depth;
    std::uint16_t output_maximum;
    std::array<const void*, 6> outputs;  // slot 0 to 5
};

int expected_transform_status(const Model& model, const Transform_call& call)
{
    if (model.initialised == 0)
        return status_module_not_initialized;
    if (call.processor == nullptr)
        return status_null_handle;
    if (call.polar_phase > 3)
        return status_invalid_phase;
    if (call.input == nullptr)
        return status_null_input;
    if (std::all_of(call.outputs.begin(), call.outputs.end(), [](const void* p) { return p == nullptr; }))
        return status_no_output;
    for (const void* output : call.outputs)
        if (output != nullptr && output == static_cast<const void*>(call.input))
            return status_output_is_input;
    for (int a = 0; a < 6; ++a)
        for (int b = a + 1; b < 6; ++b)
            if (call.outputs[a] != nullptr && call.outputs[a] == call.outputs[b])
                return status_duplicate_output;
    if (call.width <= 1)
        return status_invalid_width;
    if (call.height <= 1)
        return status_invalid_height;
    if (call.output_maximum == 0)
        return status_zero_output_maximum;
    if (call.bit_depth > 16)
        return status_invalid_bit_depth;
    return status_success;
}

// Numbers where checks change their minds, or anything at all.
std::int32_t pick_int(FuzzedDataProvider& data, std::initializer_list<std::int32_t> interesting)
{
    const std::size_t choice = data.ConsumeIntegralInRange<std::size_t>(0, interesting.size());
    if (choice == interesting.size())
        return data.ConsumeIntegral<std::int32_t>();
    return *(interesting.begin() + choice);
}

std::int32_t pick_size(FuzzedDataProvider& data)
{
    if (data.ConsumeBool())
        return data.ConsumeIntegralInRange<std::int32_t>(2, 64);
    return pick_int(data, {INT_MIN, -2, -1, 0, 1, 65, INT_MAX});
}

// Handle choice: null, or one of the live handles.
void* pick_handle(FuzzedDataProvider& data, const Model& model, std::size_t* index)
{
    const std::size_t choice = data.ConsumeIntegralInRange<std::size_t>(0, model.handles.size());
    *index = choice;
    return choice == model.handles.size() ? nullptr : model.handles[choice].pointer;
}

Matrix consume_matrix(FuzzedDataProvider& data)
{
    Matrix matrix{};
    for (float& entry : matrix) {
        switch (data.ConsumeIntegralInRange(0, 4)) {
        case 0: entry = float(data.ConsumeIntegralInRange(-2, 2)); break;
        case 1: entry = data.ConsumeFloatingPoint<float>(); break;
        default: {
            const std::uint32_t bits = data.ConsumeIntegral<std::uint32_t>();  // NaNs and infinities too
            std::memcpy(&entry, &bits, sizeof entry);
        }
        }
    }
    return matrix;
}

bool same_bits(const Matrix& a, const Matrix& b) { return std::memcmp(a.data(), b.data(), sizeof(Matrix)) == 0; }

void run_initialize(Model& model)
{
    check_status("initialise", status_success, kl_polarization_processor_module_initialize());
    ++model.initialised;
}

void run_terminate(Model& model)
{
    check_status("terminate", status_success, kl_polarization_processor_module_terminate());
    if (model.initialised > 0)
        --model.initialised;
}

void run_create(Model& model)
{
    void* const untouched = reinterpret_cast<void*>(std::uintptr_t(0x5A5A5A50));
    void* handle = untouched;
    const int status = kl_polarization_processor_create_polarization_processor(&handle);
    if (model.initialised == 0) {
        check_status("create before initialise", status_module_not_initialized, status);
        if (handle != untouched)
            fail("create wrote the handle place although it refused");
        return;
    }
    check_status("create", status_success, status);
    if (handle == nullptr || handle == untouched)
        fail("create succeeded without a handle");
    model.handles.push_back({handle, default_matrices()});
}

void run_destroy(FuzzedDataProvider& data, Model& model)
{
    std::size_t index;
    void* handle = pick_handle(data, model, &index);
    const int status = kl_polarization_processor_destroy_polarization_processor(handle);
    if (model.initialised == 0)
        return check_status("destroy before initialise", status_module_not_initialized, status);
    if (handle == nullptr)
        return check_status("destroy of a null handle", status_null_handle, status);
    check_status("destroy", status_success, status);
    model.handles.erase(model.handles.begin() + std::ptrdiff_t(index));
}

int expected_handle_status(const Model& model, const void* handle)
{
    if (model.initialised == 0)
        return status_module_not_initialized;
    return handle == nullptr ? status_null_handle : status_success;
}

void run_set(FuzzedDataProvider& data, Model& model)
{
    std::size_t index;
    void* handle = pick_handle(data, model, &index);
    std::array<bool, 4> given{};
    Matrix_set matrices{};
    for (int polarizer = 0; polarizer < 4; ++polarizer)
        if ((given[polarizer] = data.ConsumeBool()))
            matrices[polarizer] = consume_matrix(data);
    const Matrix_set before = matrices;
    const int status = kl_polarization_processor_set_custom_calibration_coefficients(
        handle, given[0] ? matrices[0].data() : nullptr, given[1] ? matrices[1].data() : nullptr,
        given[2] ? matrices[2].data() : nullptr, given[3] ? matrices[3].data() : nullptr);
    const int expected = expected_handle_status(model, handle);
    check_status("set", expected, status);
    for (int polarizer = 0; polarizer < 4; ++polarizer)
        if (!same_bits(before[polarizer], matrices[polarizer]))
            fail("set wrote into its source matrices");
    if (expected != status_success)
        return;
    for (int polarizer = 0; polarizer < 4; ++polarizer)
        if (given[polarizer])
            model.handles[index].matrices[polarizer] = matrices[polarizer];
}

void run_get(FuzzedDataProvider& data, Model& model)
{
    std::size_t index;
    void* handle = pick_handle(data, model, &index);
    std::array<bool, 4> wanted{};
    Matrix_set destinations;
    Matrix fill;
    fill.fill(-1234.5f);
    for (int polarizer = 0; polarizer < 4; ++polarizer) {
        wanted[polarizer] = data.ConsumeBool();
        destinations[polarizer] = fill;
    }
    const int status = kl_polarization_processor_get_custom_calibration_coefficients(
        handle, wanted[0] ? destinations[0].data() : nullptr, wanted[1] ? destinations[1].data() : nullptr,
        wanted[2] ? destinations[2].data() : nullptr, wanted[3] ? destinations[3].data() : nullptr);
    const int expected = expected_handle_status(model, handle);
    check_status("get", expected, status);
    for (int polarizer = 0; polarizer < 4; ++polarizer) {
        const bool written = expected == status_success && wanted[polarizer];
        const Matrix& should = written ? model.handles[index].matrices[polarizer] : fill;
        if (!same_bits(destinations[polarizer], should))
            fail(written ? "get returned other matrices than were set" : "a refused or skipped get wrote a matrix");
    }
}

// Exact-size heap buffers: input, and one of its own for every slot.
struct Transform_buffers {
    std::vector<std::uint16_t> input;
    std::vector<float> normalized;
    std::array<std::vector<std::uint16_t>, 6> images;  // index 1 to 5

    const void* own(int slot) const
    {
        return slot == 0 ? static_cast<const void*>(normalized.data()) : images[slot].data();
    }
};

void run_transform(FuzzedDataProvider& data, Model& model)
{
    Transform_call call{};
    std::size_t index;
    call.processor = pick_handle(data, model, &index);
    call.polar_phase = pick_int(data, {INT_MIN, -5, -1, 0, 1, 2, 3, 4, 5, INT_MAX});
    call.origin_x = pick_int(data, {INT_MIN, INT_MIN + 1, -3, -2, -1, 0, 1, 2, 3, INT_MAX - 1, INT_MAX});
    call.origin_y = pick_int(data, {INT_MIN, INT_MIN + 1, -3, -2, -1, 0, 1, 2, 3, INT_MAX - 1, INT_MAX});
    call.width = pick_size(data);
    call.height = pick_size(data);
    call.bit_depth = data.ConsumeBool() ? data.ConsumeIntegralInRange<std::uint32_t>(0, 17)
                                        : std::uint32_t(pick_int(data, {-1, 18, 32, INT_MAX}));
    call.output_maximum = data.ConsumeBool() ? data.ConsumeIntegral<std::uint16_t>()
                                             : std::uint16_t(pick_int(data, {0, 1, 255, 4095, 65535}));
    const bool input_given = data.ConsumeIntegralInRange(0, 15) != 0;

    // Each slot: absent, its own buffer, the input, or another slot's buffer.
    // Slot 0 holds two floats per pixel, so it never takes a 16-bit slot's
    // smaller buffer: that would be the caller's overflow, not the library's.
    std::array<int, 6> source{};  // -1 absent, 6 input, else the slot whose buffer it takes
    for (int slot = 0; slot < 6; ++slot) {
        const int choice = data.ConsumeIntegralInRange(0, 9);
        source[slot] = choice < 4 ? -1 : choice < 8 ? slot : choice == 8 ? 6 : data.ConsumeIntegralInRange(0, 5);
        if (slot == 0 && source[slot] >= 1 && source[slot] <= 5)
            source[slot] = 0;
    }

    Transform_buffers buffers;
    auto assign_outputs = [&] {
        // A size the library may use gets buffers of exactly that size; any
        // other size is refused before a buffer is touched.
        const bool usable = call.width >= 2 && call.width <= 64 && call.height >= 2 && call.height <= 64;
        const std::size_t pixels = usable ? std::size_t(call.width) * std::size_t(call.height) : 4;
        buffers.input.assign(pixels, 0);
        buffers.normalized.assign(2 * pixels, -7.25f);
        for (int slot = 1; slot < 6; ++slot)
            buffers.images[slot].assign(pixels, 0xC35A);
        call.input = input_given ? buffers.input.data() : nullptr;
        for (int slot = 0; slot < 6; ++slot)
            call.outputs[slot] = source[slot] < 0   ? nullptr
                                 : source[slot] == 6 ? static_cast<const void*>(buffers.input.data())
                                                     : buffers.own(source[slot]);
    };
    assign_outputs();
    int expected = expected_transform_status(model, call);
    if (expected == status_success && (call.width > 64 || call.height > 64)) {
        // Accepted calls stay within 64x64 buffers.
        call.width = 2 + int(unsigned(call.width) % 63u);
        call.height = 2 + int(unsigned(call.height) % 63u);
        assign_outputs();
        expected = expected_transform_status(model, call);
    }
    for (std::uint16_t& pixel : buffers.input)
        pixel = data.ConsumeIntegral<std::uint16_t>();

    const Transform_buffers before = buffers;
    const int status = kl_polarization_processor_transform(
        call.processor, call.polar_phase, call.input, call.origin_x, call.origin_y, call.width, call.height,
        call.bit_depth, call.output_maximum, static_cast<float*>(const_cast<void*>(call.outputs[0])),
        static_cast<std::uint16_t*>(const_cast<void*>(call.outputs[1])),
        static_cast<std::uint16_t*>(const_cast<void*>(call.outputs[2])),
        static_cast<std::uint16_t*>(const_cast<void*>(call.outputs[3])),
        static_cast<std::uint16_t*>(const_cast<void*>(call.outputs[4])),
        static_cast<std::uint16_t*>(const_cast<void*>(call.outputs[5])));
    check_status("transform", expected, status);

    if (buffers.input != before.input)
        fail("the transform wrote into its input");
    for (int slot = 0; slot < 6; ++slot) {
        const bool passed = expected == status_success &&
                            std::find(call.outputs.begin(), call.outputs.end(), buffers.own(slot)) != call.outputs.end();
        if (passed)
            continue;
        const bool same = slot == 0 ? std::memcmp(buffers.normalized.data(), before.normalized.data(),
                                                  buffers.normalized.size() * sizeof(float)) == 0
                                    : buffers.images[slot] == before.images[slot];
        if (!same)
            fail(expected == status_success ? "the transform wrote into a buffer it was not given"
                                            : "a refused transform wrote into a buffer");
    }
}

// Back to a module that is not initialised and holds no processor, so that
// every input starts from the same state and nothing leaks.
void clean_up(Model& model)
{
    if (model.initialised == 0)
        run_initialize(model);
    for (const Model::Handle& handle : model.handles)
        check_status("destroy at clean-up", status_success,
                     kl_polarization_processor_destroy_polarization_processor(handle.pointer));
    model.handles.clear();
    while (model.initialised > 0)
        run_terminate(model);
    void* handle = nullptr;
    check_status("create after the last terminate", status_module_not_initialized,
                 kl_polarization_processor_create_polarization_processor(&handle));
}

}  // namespace

// Says once which path the accepted transforms of this run take. An
// extension found is kept loaded for the whole run (this reference is never
// dropped): libFuzzer clears the coverage counters of every instrumented
// module it saw loaded before each input, so they must stay mapped. The
// library still opens and releases it at each initialise and terminate.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kl_polarization_processor_module_initialize();
    void* extension = dlopen("libkestrion_ksi_polarization_processor_vector_avx2.so", RTLD_LAZY | RTLD_NOLOAD);
    std::printf("transforms run through %s\n", extension != nullptr ? "the AVX2 extension (where the processor has AVX2)"
                                                                     : "the library's own kernels");
    kl_polarization_processor_module_terminate();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    Model model;
    for (int calls = 0; calls < 32 && data.remaining_bytes() > 0; ++calls) {
        switch (data.ConsumeIntegralInRange(0, 9)) {
        case 0: run_initialize(model); break;
        case 1: run_terminate(model); break;
        case 2: run_create(model); break;
        case 3: run_destroy(data, model); break;
        case 4: run_set(data, model); break;
        case 5: run_get(data, model); break;
        default: run_transform(data, model); break;
        }
    }
    clean_up(model);
    return 0;
}
