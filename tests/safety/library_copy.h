// A copy of the shared object in a fresh directory, with exactly the
// companion libraries a test wants beside it, opened by path and reached
// through its exported functions alone. Which companion is beside the copy
// decides which path computes the frames: the local kernels when there is
// none, the extension when it is there.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace safety {

using Status_function = int (*)();
using Create_function = int (*)(void**);
using Destroy_function = int (*)(void*);
using Transform_function = int (*)(void*, std::int32_t, const std::uint16_t*, std::int32_t, std::int32_t,
                                   std::int32_t, std::int32_t, std::uint32_t, std::uint16_t, float*,
                                   std::uint16_t*, std::uint16_t*, std::uint16_t*, std::uint16_t*,
                                   std::uint16_t*);

constexpr char extension_file_name[] = "libkestrion_ksi_polarization_processor_vector_avx2.so";

class Library_copy {
public:
    // library: the built shared object; companions: files copied beside it
    // under their own names.
    Library_copy(const std::string& library, const std::vector<std::string>& companions);
    ~Library_copy();
    Library_copy(const Library_copy&) = delete;
    Library_copy& operator=(const Library_copy&) = delete;

    const std::filesystem::path& directory() const { return directory_; }

    Status_function initialize = nullptr;
    Status_function terminate = nullptr;
    Create_function create = nullptr;
    Destroy_function destroy = nullptr;
    Transform_function transform = nullptr;

private:
    std::filesystem::path directory_;
    void* handle_ = nullptr;
};

// True when a library of that file name is open in this process (asks the
// loader with RTLD_NOLOAD, so it never opens anything itself).
bool library_is_open(const char* file_name);

// The directory from which an open library was loaded, or empty.
std::filesystem::path directory_of_open_library(const char* file_name);

}  // namespace safety
