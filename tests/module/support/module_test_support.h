// Helpers shared by the module tests: reading what the stand-in libraries
// recorded, asking the dynamic loader what is open, and frames whose output
// buffers are poisoned so that any written pixel shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ksi_test {

constexpr char logger_file_name[] = "libkestrion_ksi_logger.so";
constexpr char extension_file_name[] = "libkestrion_ksi_polarization_processor_vector_avx2.so";
constexpr char log_name[] = "KESTRION_KSI_POLARIZATION_PROCESSOR";
constexpr char source_path[] = "kestrion_ksi_polarization_processor/kestrion_ksi_polarization_processor";

// One recorded call: the kind ("lookup", "get_log", "log", "free_log",
// "initialize", "transform", "terminate") followed by its fields.
using Event = std::vector<std::string>;

// A fresh, empty record file, announced to the stand-in libraries through
// KSI_DOUBLE_RECORD_FILE for as long as the object lives.
class Event_record {
public:
    Event_record();
    ~Event_record();
    Event_record(const Event_record&) = delete;
    Event_record& operator=(const Event_record&) = delete;

    const std::string& path() const { return file_path; }
    std::vector<Event> events() const;
    std::vector<Event> events_of(const std::string& kind) const;
    std::size_t count(const std::string& kind) const { return events_of(kind).size(); }
    // Number of "lookup" events for one symbol.
    std::size_t lookups_of(const std::string& symbol) const;

private:
    std::string file_path;
};

// Events of one kind out of a list.
std::vector<Event> only(const std::vector<Event>& events, const std::string& kind);
// Position of the first event of the kind, or events.size().
std::size_t first_index_of(const std::vector<Event>& events, const std::string& kind);

// How the stand-ins write pointers and floats.
std::string pointer_text(const void* pointer);
std::string float_bits_text(float value);

// True when a library of that file name is open in this process. Asks the
// loader with RTLD_NOLOAD, so it never opens anything itself.
bool library_is_open(const char* file_name);

// Whether the timing line of a transform has exactly its fixed form,
// "transform takes <digits>.000000 microseconds.", and if so its number.
bool is_timing_message(const std::string& message, long long* microseconds = nullptr);

using Transform_function = int (*)(void*, std::int32_t, const std::uint16_t*, std::int32_t, std::int32_t,
                                   std::int32_t, std::int32_t, std::uint32_t, std::uint16_t, float*,
                                   std::uint16_t*, std::uint16_t*, std::uint16_t*, std::uint16_t*, std::uint16_t*);

// A 12-bit frame with all six outputs, every output element poisoned.
struct Frame {
    static constexpr std::uint16_t poison_16 = 0xBEEF;  // above any output maximum used here
    static constexpr std::uint32_t poison_float_bits = 0x7FBADBADu;  // a NaN no computation yields

    Frame(std::int32_t width, std::int32_t height);

    void poison();
    // No output element has been written.
    bool untouched() const;
    // Every element of every output has been written.
    bool written_everywhere() const;

    int transform(Transform_function function, void* processor, std::int32_t polar_phase, std::int32_t origin_x = 0,
                  std::int32_t origin_y = 0);

    std::int32_t width;
    std::int32_t height;
    std::uint32_t bit_depth = 12;
    std::uint16_t output_maximum = 4095;
    std::vector<std::uint16_t> input;
    std::vector<float> normalized_stokes;
    std::vector<std::uint16_t> s0, s1, s2, azimuth, dolp;
};

// The transform's refusals, one per check, in the order the checks run,
// followed by one call that succeeds. Each scenario changes a single
// argument of a call that would otherwise succeed.
struct Transform_scenario {
    const char* description;
    int expected_status;
};
const std::vector<Transform_scenario>& transform_scenarios();
int run_transform_scenario(std::size_t index, Transform_function function, void* processor, Frame& frame);

}  // namespace ksi_test
