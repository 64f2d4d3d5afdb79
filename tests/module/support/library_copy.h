// A copy of the shared object in a fresh directory, with exactly the
// companion libraries a test wants beside it, opened by path and reached
// through its exported functions alone. Which companion is beside the copy
// decides which path computes the frames: the local kernels when there is
// none, the extension when it is there.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "module_test_support.h"

namespace ksi_test {

using Status_function = int (*)();
using Create_function = int (*)(void**);
using Destroy_function = int (*)(void*);

class Library_copy {
public:
    // library: the built shared object; companions: files copied beside it
    // under their own names.
    Library_copy(const std::string& library, const std::vector<std::string>& companions);
    ~Library_copy();
    Library_copy(const Library_copy&) = delete;
    Library_copy& operator=(const Library_copy&) = delete;

    const std::filesystem::path& directory() const { return directory_; }
    void* handle() const { return handle_; }

    Status_function initialize = nullptr;
    Status_function terminate = nullptr;
    Create_function create = nullptr;
    Destroy_function destroy = nullptr;
    Transform_function transform = nullptr;

private:
    std::filesystem::path directory_;
    void* handle_ = nullptr;
};

// The directory from which an open library was loaded, or empty.
std::filesystem::path directory_of_open_library(const char* file_name);

}  // namespace ksi_test
