// Ksi_log_object against stand-in logging libraries. Each suite runs with
// one variant of libkestrion_ksi_logger.so on its library path.

#include <dlfcn.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "module/ksi_log_object.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

constexpr char some_source[] = "some/source/file";
constexpr char some_function[] = "some_function_name";

const Event lookup_get_log = {"lookup", "ksi_get_log"};
const Event lookup_log = {"lookup", "ksi_log"};
const Event lookup_free_log = {"lookup", "ksi_free_log"};
const Event free_log = {"free_log", log_name, ""};

// The handle that ksi_get_log gave out, as recorded.
std::string given_handle(const Event_record& record)
{
    const auto get_log = record.events_of("get_log");
    return get_log.size() == 1 && get_log[0].size() == 4 ? get_log[0][3] : std::string("<none>");
}

std::vector<Event> events_after(const std::vector<Event>& events, std::size_t first)
{
    return std::vector<Event>(events.begin() + std::ptrdiff_t(std::min(first, events.size())), events.end());
}

}  // namespace

static_assert(KSI_LOG_PRIORITY_ERROR == 0, "error lines go out at priority 0");
static_assert(KSI_LOG_PRIORITY_TIMING == 2, "timing lines go out at priority 2");

// ---------------------------------------------------------------------------
// No logging library at all.

TEST(LogBridgeAbsent, LogReturnsFalseAndFormatsNothing)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    EXPECT_FALSE(library_is_open(logger_file_name));

    int characters_before_n = -1;
    EXPECT_FALSE(log->log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "abc%n", &characters_before_n));
    EXPECT_EQ(characters_before_n, -1) << "the message was formatted";

    log.reset();
    EXPECT_TRUE(record.events().empty());
}

// ---------------------------------------------------------------------------
// A complete logging library that accepts every line.

TEST(LogBridgeRecording, ConstructionLooksUpGetLogCallsItThenLooksUpLog)
{
    Event_record record;
    Ksi_log_object log;
    const auto events = record.events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0], lookup_get_log);
    EXPECT_EQ(events[1], (Event{"get_log", log_name, "", given_handle(record)}));
    EXPECT_NE(given_handle(record), pointer_text(nullptr));
    EXPECT_EQ(events[2], lookup_log);
    EXPECT_TRUE(library_is_open(logger_file_name));
}

TEST(LogBridgeRecording, DestructionLooksUpFreeLogCallsItWithTheNamesThenCloses)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    const std::size_t after_construction = record.events().size();
    ASSERT_TRUE(library_is_open(logger_file_name));

    log.reset();
    EXPECT_EQ(events_after(record.events(), after_construction), (std::vector<Event>{lookup_free_log, free_log}));
    EXPECT_FALSE(library_is_open(logger_file_name));
}

TEST(LogBridgeRecording, LogDeliversEveryArgumentAndTheFormattedText)
{
    Event_record record;
    Ksi_log_object log;
    EXPECT_TRUE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 4321, some_function, "%s The value is %d!", "ERROR: ",
                        42));
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (Event{"log", given_handle(record), "0", some_source, "4321", some_function,
                               "ERROR:  The value is 42!"}));
}

TEST(LogBridgeRecording, TimingPriorityReachesTheLibraryAsTwo)
{
    Event_record record;
    Ksi_log_object log;
    EXPECT_TRUE(log.log(KSI_LOG_PRIORITY_TIMING, some_source, 7, some_function, "%s takes %f microseconds.",
                        "transform", 12.0));
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (Event{"log", given_handle(record), "2", some_source, "7", some_function,
                               "transform takes 12.000000 microseconds."}));
}

TEST(LogBridgeRecording, LongMessageArrivesWhole)
{
    Event_record record;
    Ksi_log_object log;
    std::string long_text(100000, ' ');
    for (std::size_t i = 0; i < long_text.size(); ++i)
        long_text[i] = char('a' + i % 26);
    EXPECT_TRUE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "%s|%d", long_text.c_str(), 12345));
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    ASSERT_EQ(lines[0].size(), 7u);
    EXPECT_EQ(lines[0][6].size(), 100006u);
    EXPECT_TRUE(lines[0][6] == long_text + "|12345");
}

TEST(LogBridgeRecording, EmptyMessageArrivesAsEmptyText)
{
    Event_record record;
    Ksi_log_object log;
    EXPECT_TRUE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 3, some_function, "%s", ""));
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (Event{"log", given_handle(record), "0", some_source, "3", some_function, ""}));
}

TEST(LogBridgeRecording, MessageIsFormattedWhenTheLibraryIsThere)
{
    // The counterpart of LogBridgeAbsent.LogReturnsFalseAndFormatsNothing:
    // the same probe does show formatting when it takes place.
    Event_record record;
    Ksi_log_object log;
    int characters_before_n = -1;
    EXPECT_TRUE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "abc%n", &characters_before_n));
    EXPECT_EQ(characters_before_n, 3);
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].back(), "abc");
}

// ---------------------------------------------------------------------------
// ksi_get_log refuses with a null handle.

TEST(LogBridgeNullLog, LogFunctionIsNotLookedUp)
{
    Event_record record;
    Ksi_log_object log;
    EXPECT_EQ(record.events(),
              (std::vector<Event>{lookup_get_log, Event{"get_log", log_name, "", pointer_text(nullptr)}}));
    EXPECT_TRUE(library_is_open(logger_file_name)) << "the library stays open until destruction";
}

TEST(LogBridgeNullLog, LogStaysSilent)
{
    Event_record record;
    Ksi_log_object log;
    int characters_before_n = -1;
    EXPECT_FALSE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "abc%n", &characters_before_n));
    EXPECT_EQ(characters_before_n, -1);
    EXPECT_EQ(record.count("log"), 0u);
}

TEST(LogBridgeNullLog, DestructionStillFreesTheLogAndClosesTheLibrary)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    const std::size_t after_construction = record.events().size();
    log.reset();
    EXPECT_EQ(events_after(record.events(), after_construction), (std::vector<Event>{lookup_free_log, free_log}));
    EXPECT_FALSE(library_is_open(logger_file_name));
}

// ---------------------------------------------------------------------------
// The library offers no ksi_get_log.

TEST(LogBridgeWithoutGetLog, LogStaysSilentAndNothingElseIsLookedUp)
{
    Event_record record;
    Ksi_log_object log;
    EXPECT_TRUE(library_is_open(logger_file_name));
    EXPECT_FALSE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "%s", "text"));
    EXPECT_TRUE(record.events().empty());
}

TEST(LogBridgeWithoutGetLog, DestructionStillFreesTheLogAndClosesTheLibrary)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    log.reset();
    EXPECT_EQ(record.events(), (std::vector<Event>{lookup_free_log, free_log}));
    EXPECT_FALSE(library_is_open(logger_file_name));
}

// ---------------------------------------------------------------------------
// The library offers no ksi_log.

TEST(LogBridgeWithoutLog, LogStaysSilent)
{
    Event_record record;
    Ksi_log_object log;
    const auto events = record.events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0], lookup_get_log);
    EXPECT_EQ(events[1][0], "get_log");
    EXPECT_FALSE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "%s", "text"));
    EXPECT_EQ(record.count("log"), 0u);
}

TEST(LogBridgeWithoutLog, DestructionStillFreesTheLogAndClosesTheLibrary)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    const std::size_t after_construction = record.events().size();
    log.reset();
    EXPECT_EQ(events_after(record.events(), after_construction), (std::vector<Event>{lookup_free_log, free_log}));
    EXPECT_FALSE(library_is_open(logger_file_name));
}

// ---------------------------------------------------------------------------
// The library offers no ksi_free_log.

TEST(LogBridgeWithoutFreeLog, LoggingWorksAndTheLibraryIsClosedAtDestruction)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    EXPECT_TRUE(log->log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "%s", "text"));
    EXPECT_EQ(record.count("log"), 1u);
    ASSERT_TRUE(library_is_open(logger_file_name));

    log.reset();
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_EQ(record.count("free_log"), 0u);
}

// ---------------------------------------------------------------------------
// ksi_log returns 1.

TEST(LogBridgeRejecting, LogReturnsFalseWhenTheLibraryRejectsTheLine)
{
    Event_record record;
    Ksi_log_object log;
    EXPECT_FALSE(log.log(KSI_LOG_PRIORITY_ERROR, some_source, 5, some_function, "%s", "rejected"));
    const auto lines = record.events_of("log");
    ASSERT_EQ(lines.size(), 1u) << "the line was handed over before it was rejected";
    EXPECT_EQ(lines[0].back(), "rejected");
}

// ---------------------------------------------------------------------------
// ksi_free_log throws.

TEST(LogBridgeThrowingFreeLog, ExceptionIsSwallowedAndTheLibraryIsNotClosed)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    EXPECT_NO_THROW(log.reset());
    EXPECT_EQ(record.count("free_log"), 1u);
    EXPECT_TRUE(library_is_open(logger_file_name));
}

// ---------------------------------------------------------------------------
// A library with a reference that only lazy binding tolerates.

TEST(LogBridgeLazy, LibraryIsOpenedWithLazyBinding)
{
    Event_record record;
    auto log = std::make_unique<Ksi_log_object>();
    EXPECT_TRUE(log->log(KSI_LOG_PRIORITY_ERROR, some_source, 1, some_function, "%s", "text"));
    log.reset();
    ASSERT_FALSE(library_is_open(logger_file_name));

    // The same file refuses to open when every reference must bind at once,
    // so the success above was due to lazy binding.
    void* immediately_bound = dlopen(logger_file_name, RTLD_NOW);
    EXPECT_EQ(immediately_bound, nullptr);
    if (immediately_bound != nullptr)
        dlclose(immediately_bound);
}
