// What the exported functions log, byte for byte, through the recording
// stand-in logging library; no extension is on the path.

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

constexpr char transform_name[] = "kl_polarization_processor_transform";
constexpr char create_name[] = "kl_polarization_processor_create_polarization_processor";
constexpr char destroy_name[] = "kl_polarization_processor_destroy_polarization_processor";
constexpr char set_name[] = "kl_polarization_processor_set_custom_calibration_coefficients";
constexpr char get_name[] = "kl_polarization_processor_get_custom_calibration_coefficients";
constexpr char null_handle_message[] = "ERROR:  The specified polarization processor handle is NULL!";
constexpr char null_color_handle_message[] = "ERROR:  The specified color processor handle is NULL!";

// The handle ksi_get_log gave out, as recorded.
std::string given_handle(const Event_record& record)
{
    const auto get_log = record.events_of("get_log");
    return get_log.size() == 1 && get_log[0].size() == 4 ? get_log[0][3] : std::string("<none>");
}

// Checks one "log" event apart from its line number, which must be positive.
void expect_line(const Event& event, const std::string& handle, const char* priority, const char* function,
                 const std::string& message)
{
    ASSERT_EQ(event.size(), 7u);
    EXPECT_EQ(event[0], "log");
    EXPECT_EQ(event[1], handle);
    EXPECT_EQ(event[2], priority);
    EXPECT_EQ(event[3], source_path);
    EXPECT_GT(std::stoi(event[4]), 0);
    EXPECT_EQ(event[5], function);
    EXPECT_EQ(event[6], message);
}

void expect_timing_line(const Event& event, const std::string& handle)
{
    ASSERT_EQ(event.size(), 7u);
    EXPECT_EQ(event[1], handle);
    EXPECT_EQ(event[2], "2");
    EXPECT_EQ(event[3], source_path);
    EXPECT_GT(std::stoi(event[4]), 0);
    EXPECT_EQ(event[5], transform_name);
    EXPECT_TRUE(is_timing_message(event[6])) << event[6];
}

class ExportedLogging : public ::testing::Test {
protected:
    void initialise()
    {
        ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
        ASSERT_TRUE(library_is_open(logger_file_name));
        ASSERT_FALSE(library_is_open(extension_file_name)) << "an extension was found where none should be";
        handle = given_handle(record);
    }

    Event_record record;
    std::string handle;
};

}  // namespace

TEST_F(ExportedLogging, NothingIsLoggedBeforeInitialise)
{
    void* processor = reinterpret_cast<void*>(0x10);
    Frame frame(4, 4);
    float matrix[16] = {};
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 2);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(nullptr), 2);
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(nullptr, matrix, nullptr, nullptr, nullptr),
              2);
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(nullptr, matrix, nullptr, nullptr, nullptr),
              2);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, nullptr, 0), 2);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, nullptr, 9), 2);
    EXPECT_TRUE(record.events().empty());
    EXPECT_FALSE(library_is_open(logger_file_name));
}

TEST_F(ExportedLogging, InitialiseOpensTheLogUnderItsNames)
{
    initialise();
    EXPECT_EQ(record.events(), (std::vector<Event>{{"lookup", "ksi_get_log"},
                                                   {"get_log", log_name, "", handle},
                                                   {"lookup", "ksi_log"}}));
    EXPECT_NE(handle, pointer_text(nullptr));

    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    EXPECT_EQ(record.events().size(), 3u) << "a second initialise only counts";
    kl_polarization_processor_module_terminate();
    kl_polarization_processor_module_terminate();
}

TEST_F(ExportedLogging, LastTerminateFreesTheLogUnderTheSameNamesAndClosesIt)
{
    initialise();
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    const std::size_t after_initialise = record.events().size();

    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
    EXPECT_EQ(record.events().size(), after_initialise);
    EXPECT_TRUE(library_is_open(logger_file_name));

    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
    const auto events = record.events();
    ASSERT_EQ(events.size(), after_initialise + 2);
    EXPECT_EQ(events[after_initialise], (Event{"lookup", "ksi_free_log"}));
    EXPECT_EQ(events[after_initialise + 1], (Event{"free_log", log_name, ""}));
    EXPECT_FALSE(library_is_open(logger_file_name));
}

TEST_F(ExportedLogging, NothingIsLoggedAfterTheLastTerminate)
{
    initialise();
    kl_polarization_processor_module_terminate();
    const std::size_t after_terminate = record.events().size();

    Frame frame(4, 4);
    void* processor = nullptr;
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, nullptr, 0), 2);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(nullptr), 2);
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 2);
    EXPECT_EQ(record.events().size(), after_terminate);
}

TEST_F(ExportedLogging, NullHandleTransformLogsTheErrorThenTheTimingLine)
{
    initialise();
    Frame frame(4, 4);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, nullptr, 0), 4);
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 2u);
    expect_line(lines[0], handle, "0", transform_name, null_handle_message);
    expect_timing_line(lines[1], handle);
    EXPECT_NE(lines[0][4], lines[1][4]) << "two call sites, two lines";
    kl_polarization_processor_module_terminate();
}

TEST_F(ExportedLogging, NullHandleSetLogsTheError)
{
    initialise();
    const float matrix[16] = {};
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(nullptr, matrix, matrix, matrix, matrix), 4);
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    expect_line(lines[0], handle, "0", set_name, null_handle_message);
    kl_polarization_processor_module_terminate();
}

TEST_F(ExportedLogging, NullHandleGetLogsTheError)
{
    initialise();
    float matrix[16] = {};
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(nullptr, matrix, nullptr, nullptr, nullptr),
              4);
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    expect_line(lines[0], handle, "0", get_name, null_handle_message);
    kl_polarization_processor_module_terminate();
}

TEST_F(ExportedLogging, NullHandleDestroyLogsTheColorProcessorError)
{
    initialise();
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(nullptr), 4);
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    expect_line(lines[0], handle, "0", destroy_name, null_color_handle_message);
    kl_polarization_processor_module_terminate();
}

TEST_F(ExportedLogging, RefusedTransformStillLogsOneTimingLineWithoutItsCode)
{
    initialise();
    void* processor = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    Frame frame(9, 7);
    const auto& scenarios = transform_scenarios();
    std::size_t seen = 0;
    for (std::size_t i = 0; i < scenarios.size(); ++i) {
        SCOPED_TRACE(scenarios[i].description);
        ASSERT_EQ(run_transform_scenario(i, &kl_polarization_processor_transform, processor, frame),
                  scenarios[i].expected_status);
        const auto lines = record.events_of("log");
        const bool null_handle = scenarios[i].expected_status == 4;
        ASSERT_EQ(lines.size(), seen + (null_handle ? 2 : 1));
        if (null_handle)
            expect_line(lines[seen], handle, "0", transform_name, null_handle_message);
        // The line has its fixed form whatever the outcome; the form leaves
        // no room for a status.
        expect_timing_line(lines.back(), handle);
        seen = lines.size();
    }
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
    EXPECT_EQ(record.count("log"), seen);
    kl_polarization_processor_module_terminate();
}

TEST_F(ExportedLogging, SuccessfulTransformLogsOneTimingLineInWholeMicroseconds)
{
    initialise();
    void* processor = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    Frame frame(512, 512);
    ASSERT_EQ(frame.transform(&kl_polarization_processor_transform, processor, 0), 0);
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    expect_timing_line(lines[0], handle);
    long long microseconds = -1;
    ASSERT_TRUE(is_timing_message(lines[0][6], &microseconds));
    EXPECT_GE(microseconds, 1) << "a quarter of a million pixels take longer than a microsecond";
    kl_polarization_processor_destroy_polarization_processor(processor);
    kl_polarization_processor_module_terminate();
}

TEST_F(ExportedLogging, SuccessfulCallsOtherThanTransformLogNothing)
{
    initialise();
    void* processor = nullptr;
    float matrices[4][16] = {};
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    ASSERT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(processor, matrices[0], matrices[1],
                                                                           matrices[2], matrices[3]),
              0);
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor, matrices[0], matrices[1],
                                                                           matrices[2], matrices[3]),
              0);
    ASSERT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
    EXPECT_EQ(record.count("log"), 0u);
    kl_polarization_processor_module_terminate();
}

// ---------------------------------------------------------------------------
// ksi_log returns 1 for every line.

TEST(ExportedLoggingRejecting, RejectedLinesChangeNoResult)
{
    Event_record record;
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    ASSERT_TRUE(library_is_open(logger_file_name));
    Frame frame(6, 4);
    void* processor = nullptr;
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, nullptr, 0), 4);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(nullptr), 4);
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    EXPECT_EQ(frame.transform(&kl_polarization_processor_transform, processor, 0), 0);
    EXPECT_TRUE(frame.written_everywhere());
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
    EXPECT_EQ(record.count("log"), 4u) << "error, timing, error, timing";
    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
}
