// A copy of the shared object in a fresh directory, opened by its path with
// no stand-in on the library path: companion libraries in the same directory
// are found through the object's own run-path.

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "library_copy.h"
#include "module_test_support.h"

using namespace ksi_test;
namespace fs = std::filesystem;

TEST(RunPath, LibraryCarriesTheOriginRunPath)
{
    Library_copy copy(KSI_LIBRARY_FILE, {});
    link_map* map = nullptr;
    ASSERT_EQ(dlinfo(copy.handle(), RTLD_DI_LINKMAP, &map), 0);
    ASSERT_NE(map, nullptr);
    const char* strings = nullptr;
    const ElfW(Dyn)* runpath = nullptr;
    const ElfW(Dyn)* rpath = nullptr;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB)
            strings = reinterpret_cast<const char*>(entry->d_un.d_ptr);  // relocated by the loader
        else if (entry->d_tag == DT_RUNPATH)
            runpath = entry;
        else if (entry->d_tag == DT_RPATH)
            rpath = entry;
    }
    ASSERT_NE(strings, nullptr);
    ASSERT_NE(runpath, nullptr) << "no run-path";
    EXPECT_STREQ(strings + runpath->d_un.d_val, "$ORIGIN");
    EXPECT_EQ(rpath, nullptr) << "an old-style run-path would come before LD_LIBRARY_PATH";
}

TEST(RunPath, CompanionLibrariesBesideTheLibraryAreFoundWithoutAnyPath)
{
    ASSERT_FALSE(library_is_open(logger_file_name));
    ASSERT_FALSE(library_is_open(extension_file_name));
    Event_record record;
    Library_copy copy(KSI_LIBRARY_FILE, {KSI_LOGGER_DOUBLE_FILE, KSI_EXTENSION_DOUBLE_FILE});

    ASSERT_EQ(copy.initialize(), 0);
    EXPECT_EQ(directory_of_open_library(logger_file_name), copy.directory());
    EXPECT_EQ(directory_of_open_library(extension_file_name), copy.directory());
    EXPECT_EQ(record.count("get_log"), 1u);
    EXPECT_EQ(record.events_of("initialize"), (std::vector<Event>{{"initialize", "0"}}));

    Frame frame(4, 4);
    EXPECT_EQ(frame.transform(copy.transform, nullptr, 0), 4);
    EXPECT_EQ(record.count("log"), 2u) << "error and timing line";

    ASSERT_EQ(copy.terminate(), 0);
    EXPECT_EQ(record.count("terminate"), 1u);
    EXPECT_EQ(record.count("free_log"), 1u);
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_FALSE(library_is_open(extension_file_name));
}

TEST(RunPath, NothingBesideTheLibraryMeansSilence)
{
    Event_record record;
    Library_copy copy(KSI_LIBRARY_FILE, {});
    ASSERT_EQ(copy.initialize(), 0);
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_FALSE(library_is_open(extension_file_name));

    void* processor = nullptr;
    ASSERT_EQ(copy.create(&processor), 0);
    Frame frame(6, 4);
    EXPECT_EQ(frame.transform(copy.transform, nullptr, 0), 4);
    EXPECT_EQ(frame.transform(copy.transform, processor, 0), 0);
    EXPECT_TRUE(frame.written_everywhere());
    EXPECT_EQ(copy.destroy(processor), 0);
    EXPECT_EQ(copy.terminate(), 0);
    EXPECT_TRUE(record.events().empty());
}

// ---------------------------------------------------------------------------
// Here the stand-ins come from LD_LIBRARY_PATH, and the copy is closed while
// the module is still initialised.

TEST(LibraryUnload, UnloadWithoutTerminateRunsTheExtensionsTerminateAndReleasesTheLog)
{
    ASSERT_TRUE(__builtin_cpu_supports("avx2"));
    Event_record record;
    {
        Library_copy copy(KSI_LIBRARY_FILE, {});
        ASSERT_EQ(copy.initialize(), 0);
        void* processor = nullptr;
        ASSERT_EQ(copy.create(&processor), 0);
        Frame frame(6, 4);
        ASSERT_EQ(frame.transform(copy.transform, processor, 0), 0);
        ASSERT_EQ(copy.destroy(processor), 0);
        ASSERT_TRUE(library_is_open(logger_file_name));
        ASSERT_TRUE(library_is_open(extension_file_name));
        EXPECT_EQ(record.count("transform"), 1u);
        EXPECT_EQ(record.count("terminate"), 0u);
        EXPECT_EQ(record.count("free_log"), 0u);
    }  // closes the copy without a terminate

    const auto events = record.events();
    EXPECT_EQ(only(events, "terminate").size(), 1u);
    EXPECT_EQ(only(events, "free_log"), (std::vector<Event>{{"free_log", log_name, ""}}));
    EXPECT_LT(first_index_of(events, "terminate"), first_index_of(events, "free_log"));
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_FALSE(library_is_open(extension_file_name));
}
