#include "guarded_frames.h"

#include <cstring>
#include <memory>
#include <random>
#include <sstream>

namespace safety {

namespace {

// Outputs keep these only if nothing was stored: 16-bit outputs never exceed
// the output maximum, which stays below 0xFFFF in every sweep, and arithmetic
// produces quiet not-a-numbers only, never this signalling one.
constexpr std::uint16_t image_sentinel = 0xFFFF;
constexpr std::uint32_t normalized_sentinel_bits = 0x7FA5A5A5u;

constexpr std::size_t max_failures_described = 8;

struct Scale {
    std::uint32_t bit_depth;
    std::uint16_t output_maximum;
};

// Native: the output maximum equals the input maximum (bit depths 1 to 15,
// so it stays below the sentinel). Rescaled: any bit depth 0 to 16 with
// output maximum 65534.
Scale scale_for(bool native, unsigned slots, std::int32_t phase)
{
    const unsigned variety = slots + unsigned(phase);
    if (native) {
        const std::uint32_t bit_depth = 1 + variety % 15;
        return {bit_depth, std::uint16_t((1u << bit_depth) - 1u)};
    }
    return {variety % 17, 65534};
}

struct Guarded_frame {
    Guarded_buffer input;
    Guarded_buffer normalized;
    std::vector<Guarded_buffer> images;  // index 0 unused (slot 0 is `normalized`)

    Guarded_frame(const Frame_size& size, Placement placement, std::mt19937& random)
        : input(pixels(size) * 2, placement), normalized(pixels(size) * 8, placement)
    {
        for (unsigned slot = 0; slot < 6; ++slot)
            images.emplace_back(pixels(size) * 2, placement);
        std::uniform_int_distribution<unsigned> value(0, 0xFFFF);
        std::uint16_t* pixel = input.as<std::uint16_t>();
        for (std::size_t i = 0; i < pixels(size); ++i)
            pixel[i] = std::uint16_t(value(random));
        input.make_read_only();
    }

    static std::size_t pixels(const Frame_size& size) { return std::size_t(size.rows) * size.columns; }
};

void set_normalized(float* element, std::uint32_t bits) { std::memcpy(element, &bits, sizeof bits); }
std::uint32_t normalized_bits(const float* element)
{
    std::uint32_t bits;
    std::memcpy(&bits, element, sizeof bits);
    return bits;
}

// Marks both ends of every present output and reports which stayed marked.
class End_marks {
public:
    explicit End_marks(const Guarded_call& call) : call_(call), last_(std::size_t(call.rows) * call.columns - 1)
    {
        if (call_.normalized_stokes != nullptr) {
            set_normalized(call_.normalized_stokes, normalized_sentinel_bits);
            set_normalized(call_.normalized_stokes + 2 * last_ + 1, normalized_sentinel_bits);
        }
        for (unsigned slot = 1; slot < 6; ++slot)
            if (call_.images[slot] != nullptr)
                call_.images[slot][0] = call_.images[slot][last_] = image_sentinel;
    }

    std::string unwritten() const
    {
        std::string ends;
        if (call_.normalized_stokes != nullptr &&
            (normalized_bits(call_.normalized_stokes) == normalized_sentinel_bits ||
             normalized_bits(call_.normalized_stokes + 2 * last_ + 1) == normalized_sentinel_bits))
            ends += " slot 0";
        for (unsigned slot = 1; slot < 6; ++slot)
            if (call_.images[slot] != nullptr &&
                (call_.images[slot][0] == image_sentinel || call_.images[slot][last_] == image_sentinel))
                ends += " slot " + std::to_string(slot);
        return ends;
    }

private:
    const Guarded_call& call_;
    std::size_t last_;
};

}  // namespace

std::vector<Frame_size> small_sizes()
{
    std::vector<Frame_size> sizes;
    for (unsigned rows = 2; rows <= 40; ++rows)
        for (unsigned columns = 2; columns <= 40; ++columns)
            sizes.push_back({rows, columns});
    return sizes;
}

std::vector<Frame_size> camera_sizes() { return {{2048, 2448}, {1024, 1224}, {2045, 2447}}; }

std::vector<unsigned> every_slot_set()
{
    std::vector<unsigned> sets;
    for (unsigned slots = 1; slots <= all_slots; ++slots)
        sets.push_back(slots);
    return sets;
}

std::vector<unsigned> representative_slot_sets() { return {all_slots, 0x02u, 0x30u, 0x01u}; }

Sweep_result sweep_guarded_frames(const Sweep_plan& plan, const Guarded_runner& run)
{
    Sweep_result result;
    std::mt19937 random(20261122u);
    const std::size_t phase_count = plan.phases.size();
    for (std::size_t size_index = 0; size_index < plan.sizes.size(); ++size_index) {
        const Frame_size& size = plan.sizes[size_index];
        for (Placement placement : plan.placements) {
            Guarded_frame frame(size, placement, random);
            for (unsigned slots : plan.slot_sets) {
                for (std::size_t p = 0; p < phase_count; ++p) {
                    const std::size_t turn = size_index + slots;
                    if (plan.coverage == Coverage::one_phase_one_scale && p != turn % phase_count)
                        continue;
                    const std::int32_t phase = plan.phases[p];
                    const std::size_t scale_turn =
                        plan.coverage == Coverage::one_phase_one_scale ? turn / phase_count : turn + p;
                    for (bool native : {true, false}) {
                        if (plan.coverage != Coverage::every_phase_both_scales && native != (scale_turn % 2 == 0))
                            continue;
                        const Scale scale = scale_for(native, slots, phase);
                        Guarded_call call{};
                        call.rows = size.rows;
                        call.columns = size.columns;
                        call.polar_phase = phase;
                        call.bit_depth = scale.bit_depth;
                        call.output_maximum = scale.output_maximum;
                        call.input = frame.input.as<const std::uint16_t>();
                        call.normalized_stokes = (slots & 1u) ? frame.normalized.as<float>() : nullptr;
                        for (unsigned slot = 1; slot < 6; ++slot)
                            call.images[slot] =
                                (slots & (1u << slot)) ? frame.images[slot].as<std::uint16_t>() : nullptr;

                        const End_marks marks(call);
                        const int status = run(call);
                        const std::string unwritten = marks.unwritten();
                        ++result.calls;
                        result.pixels += Guarded_frame::pixels(size);
                        if (status == 0 && unwritten.empty())
                            continue;
                        if (++result.failure_count <= max_failures_described) {
                            std::ostringstream text;
                            text << size.rows << "x" << size.columns << ", " << placement_name(placement)
                                 << ", slots 0x" << std::hex << slots << std::dec << ", phase " << phase
                                 << ", bit depth " << scale.bit_depth << ", output maximum " << scale.output_maximum
                                 << ": status " << status;
                            if (!unwritten.empty())
                                text << ", an end element not written in" << unwritten;
                            result.failures.push_back(text.str());
                        }
                    }
                }
            }
        }
    }
    return result;
}

Sweep_plan small_size_plan(Coverage coverage)
{
    Sweep_plan plan{small_sizes(), every_slot_set()};
    plan.coverage = sanitized_build ? Coverage::one_phase_one_scale : coverage;
    return plan;
}

std::string describe(const Sweep_result& result)
{
    std::ostringstream text;
    text << result.calls << " calls, " << result.pixels << " pixels, " << result.failure_count << " failed";
    for (const std::string& failure : result.failures)
        text << "\n  " << failure;
    if (result.failure_count > result.failures.size())
        text << "\n  ...";
    return text.str();
}

}  // namespace safety
