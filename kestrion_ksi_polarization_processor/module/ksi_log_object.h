// Bridge to the optional logging library "libkestrion_ksi_logger.so". When
// the library or one of its functions is missing, logging is silent and
// nothing else changes.
#pragma once

#include <string>

enum KSI_LOG_PRIORITY : int {
    KSI_LOG_PRIORITY_ERROR = 0,
    KSI_LOG_PRIORITY_TIMING = 2,
};

class Ksi_log_object {
public:
    Ksi_log_object();
    ~Ksi_log_object();
    Ksi_log_object(const Ksi_log_object&) = delete;
    Ksi_log_object& operator=(const Ksi_log_object&) = delete;

    // Formats the message in full, whatever its length, and hands it to the
    // logging library. True when it was delivered and accepted.
    bool log(KSI_LOG_PRIORITY priority, const char* source_file, int line, const char* function_name,
             const char* format, ...) __attribute__((format(printf, 6, 7)));

private:
    using Log_function = int (*)(void* log_handle, int priority, const char* source_file, int line,
                                 const char* function_name, const char* message);

    void* library_handle = nullptr;
    void* log_handle = nullptr;
    Log_function log_function = nullptr;
    bool enabled = false;
    std::string log_name;
    std::string log_subname;
};
