#include "module/ksi_log_object.h"

#include <cstdarg>
#include <cstdio>

#include <dlfcn.h>

namespace {

using Get_log_function = void* (*)(const char* log_name, const char* log_subname);
using Free_log_function = void (*)(const char* log_name, const char* log_subname);

}  // namespace

Ksi_log_object::Ksi_log_object() : log_name("KESTRION_KSI_POLARIZATION_PROCESSOR"), log_subname()
{
    library_handle = dlopen("libkestrion_ksi_logger.so", RTLD_LAZY);
    if (library_handle == nullptr)
        return;
    auto get_log = reinterpret_cast<Get_log_function>(dlsym(library_handle, "ksi_get_log"));
    if (get_log == nullptr)
        return;
    log_handle = get_log(log_name.c_str(), log_subname.c_str());
    if (log_handle == nullptr)
        return;
    log_function = reinterpret_cast<Log_function>(dlsym(library_handle, "ksi_log"));
    if (log_function == nullptr)
        return;
    enabled = true;
}

Ksi_log_object::~Ksi_log_object()
{
    if (library_handle == nullptr)
        return;
    try {
        auto free_log = reinterpret_cast<Free_log_function>(dlsym(library_handle, "ksi_free_log"));
        if (free_log != nullptr)
            free_log(log_name.c_str(), log_subname.c_str());
        dlclose(library_handle);
    } catch (...) {
        // There is nowhere to report a failure of the logging library itself.
    }
}

bool Ksi_log_object::log(KSI_LOG_PRIORITY priority, const char* source_file, int line, const char* function_name,
                         const char* format, ...)
{
    if (!enabled)
        return false;

    va_list arguments;
    va_start(arguments, format);
    va_list measuring_arguments;
    va_copy(measuring_arguments, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measuring_arguments);
    va_end(measuring_arguments);
    if (length < 0) {
        va_end(arguments);
        return false;
    }

    std::string message;
    try {
        message.resize(std::size_t(length));
    } catch (...) {
        va_end(arguments);
        throw;
    }
    // resize() leaves room for the terminating zero behind the last character.
    std::vsprintf(&message[0], format, arguments);
    va_end(arguments);

    return log_function(log_handle, priority, source_file, line, function_name, message.c_str()) == 0;
}
