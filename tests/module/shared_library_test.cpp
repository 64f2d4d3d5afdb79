// load_shared_library, unload_shared_library and get_function_handle with
// the stand-in extension and the stand-in logging library on the path.

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "module/shared_library.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

constexpr char extension_base_name[] = "kestrion_ksi_polarization_processor_vector_avx2";

}  // namespace

TEST(SharedLibraryAccess, AbsentFileGivesNullWithoutThrowingOrLogging)
{
    Event_record record;
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    ASSERT_TRUE(library_is_open(logger_file_name)) << "a log is listening";

    void* handle = reinterpret_cast<void*>(1);
    EXPECT_NO_THROW(handle = load_shared_library("kestrion_no_library_has_this_name"));
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(record.count("log"), 0u);

    kl_polarization_processor_module_terminate();
}

TEST(SharedLibraryAccess, BaseNameOpensLibFileNameDotSo)
{
    void* handle = load_shared_library(extension_base_name);
    ASSERT_NE(handle, nullptr);
    void* same = dlopen(extension_file_name, RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_EQ(same, handle);
    if (same != nullptr)
        dlclose(same);
    unload_shared_library(handle);
}

TEST(SharedLibraryAccess, NameWithItsOwnPrefixOrSuffixIsTakenLiterally)
{
    // "libkestrion...vector_avx2" becomes "liblibkestrion...vector_avx2.so",
    // and the full file name gains a second ".so": neither exists.
    EXPECT_EQ(load_shared_library("libkestrion_ksi_polarization_processor_vector_avx2"), nullptr);
    EXPECT_EQ(load_shared_library(extension_file_name), nullptr);
    EXPECT_FALSE(library_is_open(extension_file_name));
}

TEST(SharedLibraryAccess, UnloadClosesTheLibraryAndClearsTheHandle)
{
    void* handle = load_shared_library(extension_base_name);
    ASSERT_NE(handle, nullptr);
    ASSERT_TRUE(library_is_open(extension_file_name));

    unload_shared_library(handle);
    EXPECT_EQ(handle, nullptr);
    EXPECT_FALSE(library_is_open(extension_file_name));
}

TEST(SharedLibraryAccess, AbsentSymbolGivesNull)
{
    void* handle = load_shared_library(extension_base_name);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(get_function_handle(handle, "kl_no_library_has_this_symbol"), nullptr);
    unload_shared_library(handle);
}

TEST(SharedLibraryAccess, PresentSymbolIsLookedUpInThatLibrary)
{
    Event_record record;
    void* handle = load_shared_library(extension_base_name);
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(get_function_handle(handle, "kl_polarization_processor_vector_avx2_module_terminate"), nullptr);
    EXPECT_EQ(record.events(),
              (std::vector<Event>{{"lookup", "kl_polarization_processor_vector_avx2_module_terminate"}}));
    unload_shared_library(handle);
}
