#include "library_copy.h"

#include <dlfcn.h>
#include <link.h>
#include <stdlib.h>

#include <stdexcept>

namespace fs = std::filesystem;

namespace ksi_test {

namespace {

template <class Function>
Function look_up(void* handle, const char* name)
{
    void* symbol = dlsym(handle, name);
    if (symbol == nullptr)
        throw std::runtime_error(std::string("the library copy lacks ") + name);
    return reinterpret_cast<Function>(symbol);
}

}  // namespace

Library_copy::Library_copy(const std::string& library, const std::vector<std::string>& companions)
{
    std::string pattern = (fs::temp_directory_path() / "ksi_library_copy_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot create a directory from " + pattern);
    directory_ = pattern;
    const fs::path copy = directory_ / fs::path(library).filename();
    fs::copy_file(library, copy);
    for (const std::string& companion : companions)
        fs::copy_file(companion, directory_ / fs::path(companion).filename());
    handle_ = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr)
        throw std::runtime_error(std::string("cannot open ") + copy.string() + ": " + dlerror());
    initialize = look_up<Status_function>(handle_, "kl_polarization_processor_module_initialize");
    terminate = look_up<Status_function>(handle_, "kl_polarization_processor_module_terminate");
    create = look_up<Create_function>(handle_, "kl_polarization_processor_create_polarization_processor");
    destroy = look_up<Destroy_function>(handle_, "kl_polarization_processor_destroy_polarization_processor");
    transform = look_up<Transform_function>(handle_, "kl_polarization_processor_transform");
}

Library_copy::~Library_copy()
{
    if (handle_ != nullptr)
        dlclose(handle_);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

fs::path directory_of_open_library(const char* file_name)
{
    void* handle = dlopen(file_name, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr)
        return {};
    link_map* map = nullptr;
    fs::path result;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr)
        result = fs::path(map->l_name).parent_path();
    dlclose(handle);
    return result;
}

}  // namespace ksi_test
