// Stand-in for libkestrion_ksi_logger.so that writes every call, with all
// its arguments, to the record file (see double_record.h).
//
// The three functions are indirect functions: their resolvers run whenever
// the dynamic loader looks one of them up by name, so every dlsym of
// ksi_get_log, ksi_log or ksi_free_log leaves a "lookup" line. That makes
// visible which functions the caller asked for, and when.
//
// Variants, chosen at build time:
//   LOGGER_WITHOUT_GET_LOG        ksi_get_log is not offered
//   LOGGER_WITHOUT_LOG            ksi_log is not offered
//   LOGGER_WITHOUT_FREE_LOG       ksi_free_log is not offered
//   LOGGER_GET_LOG_RETURNS_NULL   ksi_get_log refuses with a null handle
//   LOGGER_LOG_RESULT=n           ksi_log returns n (0 otherwise)
//   LOGGER_FREE_LOG_THROWS        ksi_free_log throws after recording
//   DOUBLE_UNRESOLVED_REFERENCE   carries a call to a function that exists
//                                 nowhere, on a path never taken; such a
//                                 library only opens with lazy binding
//
// Records:
//   lookup    <symbol>
//   get_log   <log_name> <log_subname> <returned handle>
//   log       <handle> <priority> <source_file> <line> <function_name> <message>
//   free_log  <log_name> <log_subname>

#include <stdexcept>
#include <type_traits>

#include "double_record.h"
#include "kestrion_ksi_polarization_processor.h"

#ifndef LOGGER_LOG_RESULT
#define LOGGER_LOG_RESULT 0
#endif

namespace {

__attribute__((unused)) int log_object;  // its address is the handle given out

}  // namespace

#ifdef DOUBLE_UNRESOLVED_REFERENCE
extern "C" void kestrion_double_function_that_exists_nowhere(void);
#endif

extern "C" {

typedef void* (*Get_log_function)(const char*, const char*);
typedef int (*Log_function)(void*, int, const char*, int, const char*, const char*);
typedef void (*Free_log_function)(const char*, const char*);

__attribute__((unused)) static void* recorded_get_log(const char* log_name, const char* log_subname)
{
#ifdef DOUBLE_UNRESOLVED_REFERENCE
    if (log_name == NULL)
        kestrion_double_function_that_exists_nowhere();
#endif
#ifdef LOGGER_GET_LOG_RETURNS_NULL
    void* handle = NULL;
#else
    void* handle = &log_object;
#endif
    Double_line line = {NULL, 0, 0};
    double_line_field(&line, "get_log");
    double_line_field(&line, log_name);
    double_line_field(&line, log_subname);
    double_line_pointer(&line, handle);
    double_line_commit(&line);
    return handle;
}

__attribute__((unused)) static int recorded_log(void* log, int priority, const char* source_file, int line_number,
                                                const char* function_name, const char* message)
{
    Double_line line = {NULL, 0, 0};
    double_line_field(&line, "log");
    double_line_pointer(&line, log);
    double_line_fieldf(&line, "%d", priority);
    double_line_field(&line, source_file);
    double_line_fieldf(&line, "%d", line_number);
    double_line_field(&line, function_name);
    double_line_field(&line, message);
    double_line_commit(&line);
    return LOGGER_LOG_RESULT;
}

__attribute__((unused)) static void recorded_free_log(const char* log_name, const char* log_subname)
{
    Double_line line = {NULL, 0, 0};
    double_line_field(&line, "free_log");
    double_line_field(&line, log_name);
    double_line_field(&line, log_subname);
    double_line_commit(&line);
#ifdef LOGGER_FREE_LOG_THROWS
    throw std::runtime_error("ksi_free_log failed");
#endif
}

// The implementations have exactly the types the public header describes.
static_assert(std::is_same<Get_log_function, kl_ksi_get_log_function>::value, "ksi_get_log type");
static_assert(std::is_same<Log_function, kl_ksi_log_function>::value, "ksi_log type");
static_assert(std::is_same<Free_log_function, kl_ksi_free_log_function>::value, "ksi_free_log type");

__attribute__((visibility("hidden"))) Get_log_function resolve_get_log(void)
{
    double_record_lookup("ksi_get_log");
    return &recorded_get_log;
}

__attribute__((visibility("hidden"))) Log_function resolve_log(void)
{
    double_record_lookup("ksi_log");
    return &recorded_log;
}

__attribute__((visibility("hidden"))) Free_log_function resolve_free_log(void)
{
    double_record_lookup("ksi_free_log");
    return &recorded_free_log;
}

#ifndef LOGGER_WITHOUT_GET_LOG
DOUBLE_EXPORT void* ksi_get_log(const char* log_name, const char* log_subname)
    __attribute__((ifunc("resolve_get_log")));
#endif

#ifndef LOGGER_WITHOUT_LOG
DOUBLE_EXPORT int ksi_log(void* log, int priority, const char* source_file, int line, const char* function_name,
                          const char* message) __attribute__((ifunc("resolve_log")));
#endif

#ifndef LOGGER_WITHOUT_FREE_LOG
DOUBLE_EXPORT void ksi_free_log(const char* log_name, const char* log_subname)
    __attribute__((ifunc("resolve_free_log")));
#endif

}  // extern "C"
