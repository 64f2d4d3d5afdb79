#include "module/shared_library.h"

#include <string>

#include <dlfcn.h>

void* load_shared_library(const char* base_name)
{
    const std::string file_name = std::string("lib") + base_name + ".so";
    return dlopen(file_name.c_str(), RTLD_LAZY);
}

void unload_shared_library(void*& library_handle)
{
    dlclose(library_handle);
    library_handle = nullptr;
}

void* get_function_handle(void* library_handle, const char* symbol_name)
{
    return dlsym(library_handle, symbol_name);
}
