// Thin wrappers over the dynamic loader that speak of base names: "name"
// opens "libname.so" through the loader's own search rules.
#pragma once

void* load_shared_library(const char* base_name);
// Closes the library and clears the caller's handle. The handle must not be null.
void unload_shared_library(void*& library_handle);
void* get_function_handle(void* library_handle, const char* symbol_name);
