#include "module_test_support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <dlfcn.h>
#include <unistd.h>

namespace ksi_test {

namespace {

constexpr char record_variable[] = "KSI_DOUBLE_RECORD_FILE";

std::string unescape(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            result += text[i];
            continue;
        }
        const char next = text[++i];
        result += next == 't' ? '\t' : next == 'n' ? '\n' : next;
    }
    return result;
}

Event split_line(const std::string& line)
{
    Event fields;
    std::size_t start = 0;
    for (;;) {
        const std::size_t tab = line.find('\t', start);
        fields.push_back(unescape(line.substr(start, tab == std::string::npos ? std::string::npos : tab - start)));
        if (tab == std::string::npos)
            return fields;
        start = tab + 1;
    }
}

template <class T>
bool all_equal(const std::vector<T>& values, T value)
{
    for (const T& v : values)
        if (v != value)
            return false;
    return true;
}

template <class T>
bool none_equal(const std::vector<T>& values, T value)
{
    for (const T& v : values)
        if (v == value)
            return false;
    return true;
}

std::vector<std::uint32_t> float_bits(const std::vector<float>& values)
{
    std::vector<std::uint32_t> bits(values.size());
    std::memcpy(bits.data(), values.data(), values.size() * sizeof(float));
    return bits;
}

}  // namespace

Event_record::Event_record()
{
    const char* directory = std::getenv("TMPDIR");
    std::string pattern = std::string(directory != nullptr && directory[0] != '\0' ? directory : "/tmp") +
                          "/ksi_module_record_XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int file = mkstemp(name.data());
    if (file < 0)
        throw std::runtime_error("cannot create a record file");
    close(file);
    file_path = name.data();
    setenv(record_variable, file_path.c_str(), 1);
}

Event_record::~Event_record()
{
    unsetenv(record_variable);
    std::remove(file_path.c_str());
}

std::vector<Event> Event_record::events() const
{
    std::ifstream file(file_path, std::ios::binary);
    std::vector<Event> result;
    std::string line;
    while (std::getline(file, line))
        result.push_back(split_line(line));
    return result;
}

std::vector<Event> Event_record::events_of(const std::string& kind) const { return only(events(), kind); }

std::size_t Event_record::lookups_of(const std::string& symbol) const
{
    std::size_t n = 0;
    for (const Event& event : events_of("lookup"))
        if (event.size() == 2 && event[1] == symbol)
            ++n;
    return n;
}

std::vector<Event> only(const std::vector<Event>& events, const std::string& kind)
{
    std::vector<Event> result;
    for (const Event& event : events)
        if (!event.empty() && event[0] == kind)
            result.push_back(event);
    return result;
}

std::size_t first_index_of(const std::vector<Event>& events, const std::string& kind)
{
    for (std::size_t i = 0; i < events.size(); ++i)
        if (!events[i].empty() && events[i][0] == kind)
            return i;
    return events.size();
}

std::string pointer_text(const void* pointer)
{
    char text[64];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

std::string float_bits_text(float value)
{
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    char text[16];
    std::snprintf(text, sizeof text, "%08x", unsigned(bits));
    return text;
}

bool library_is_open(const char* file_name)
{
    void* handle = dlopen(file_name, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr)
        return false;
    dlclose(handle);  // only drops the reference RTLD_NOLOAD just took
    return true;
}

bool is_timing_message(const std::string& message, long long* microseconds)
{
    static const std::string head = "transform takes ";
    static const std::string tail = ".000000 microseconds.";
    if (message.size() <= head.size() + tail.size() || message.compare(0, head.size(), head) != 0 ||
        message.compare(message.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    const std::string digits = message.substr(head.size(), message.size() - head.size() - tail.size());
    for (char c : digits)
        if (c < '0' || c > '9')
            return false;
    if (microseconds != nullptr)
        *microseconds = std::stoll(digits);
    return true;
}

Frame::Frame(std::int32_t width, std::int32_t height)
    : width(width),
      height(height),
      input(std::size_t(width) * std::size_t(height)),
      normalized_stokes(2 * input.size()),
      s0(input.size()),
      s1(input.size()),
      s2(input.size()),
      azimuth(input.size()),
      dolp(input.size())
{
    std::uint32_t state = 12345;
    for (auto& pixel : input) {
        state = state * 1664525u + 1013904223u;
        pixel = std::uint16_t(1 + (state >> 8) % 4000);
    }
    poison();
}

void Frame::poison()
{
    std::vector<std::uint32_t> bits(normalized_stokes.size(), poison_float_bits);
    std::memcpy(normalized_stokes.data(), bits.data(), bits.size() * sizeof(float));
    for (auto* image : {&s0, &s1, &s2, &azimuth, &dolp})
        image->assign(image->size(), poison_16);
}

bool Frame::untouched() const
{
    if (!all_equal(float_bits(normalized_stokes), poison_float_bits))
        return false;
    for (const auto* image : {&s0, &s1, &s2, &azimuth, &dolp})
        if (!all_equal(*image, poison_16))
            return false;
    return true;
}

bool Frame::written_everywhere() const
{
    if (!none_equal(float_bits(normalized_stokes), poison_float_bits))
        return false;
    for (const auto* image : {&s0, &s1, &s2, &azimuth, &dolp})
        if (!none_equal(*image, poison_16))
            return false;
    return true;
}

int Frame::transform(Transform_function function, void* processor, std::int32_t polar_phase, std::int32_t origin_x,
                     std::int32_t origin_y)
{
    return function(processor, polar_phase, input.data(), origin_x, origin_y, width, height, bit_depth,
                    output_maximum, normalized_stokes.data(), s0.data(), s1.data(), s2.data(), azimuth.data(),
                    dolp.data());
}

const std::vector<Transform_scenario>& transform_scenarios()
{
    static const std::vector<Transform_scenario> scenarios = {
        {"null handle", 4},
        {"phase 4", 9},
        {"phase 9 and null input", 9},
        {"null input", 5},
        {"no output", 6},
        {"slot 2 is the input", 7},
        {"slot 1 equals slot 5", 8},
        {"width 1", 11},
        {"height 1", 12},
        {"output maximum 0", 10},
        {"bit depth 17", 13},
        {"valid call", 0},
    };
    return scenarios;
}

int run_transform_scenario(std::size_t index, Transform_function function, void* processor, Frame& frame)
{
    void* handle = processor;
    std::int32_t phase = 1;
    const std::uint16_t* input = frame.input.data();
    std::int32_t width = frame.width;
    std::int32_t height = frame.height;
    std::uint32_t bit_depth = frame.bit_depth;
    std::uint16_t output_maximum = frame.output_maximum;
    float* normalized = frame.normalized_stokes.data();
    std::uint16_t* outputs[5] = {frame.s0.data(), frame.s1.data(), frame.s2.data(), frame.azimuth.data(),
                                 frame.dolp.data()};
    switch (index) {
    case 0: handle = nullptr; break;
    case 1: phase = 4; break;
    case 2: phase = 9; input = nullptr; break;
    case 3: input = nullptr; break;
    case 4:
        normalized = nullptr;
        for (auto& output : outputs)
            output = nullptr;
        break;
    case 5: outputs[1] = const_cast<std::uint16_t*>(input); break;
    case 6: outputs[4] = outputs[0]; break;
    case 7: width = 1; break;
    case 8: height = 1; break;
    case 9: output_maximum = 0; break;
    case 10: bit_depth = 17; break;
    case 11: break;
    default: throw std::out_of_range("no such transform scenario");
    }
    return function(handle, phase, input, 0, 0, width, height, bit_depth, output_maximum, normalized, outputs[0],
                    outputs[1], outputs[2], outputs[3], outputs[4]);
}

}  // namespace ksi_test
