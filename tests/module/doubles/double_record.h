/*
 * Event recording shared by the stand-in logging and extension libraries.
 *
 * Every event becomes one line appended to the file named by the environment
 * variable KSI_DOUBLE_RECORD_FILE: fields separated by tabs, with backslash,
 * tab and newline inside a field escaped as \\, \t and \n. The file is opened
 * for each event and written with a single append, so events from several
 * threads and from a process that is exiting all arrive, and the record
 * survives the library being closed. Without the variable nothing is written.
 *
 * Compiles as C and as C++.
 */
#ifndef KSI_DOUBLE_RECORD_H
#define KSI_DOUBLE_RECORD_H

#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define DOUBLE_EXPORT __attribute__((visibility("default")))

typedef struct Double_line {
    char* text;
    size_t length;
    size_t capacity;
} Double_line;

static inline void double_line_reserve(Double_line* line, size_t extra)
{
    if (line->length + extra + 1 <= line->capacity)
        return;
    size_t capacity = line->capacity == 0 ? 256 : line->capacity;
    while (line->length + extra + 1 > capacity)
        capacity *= 2;
    char* text = (char*)realloc(line->text, capacity);
    if (text == NULL)
        abort();
    line->text = text;
    line->capacity = capacity;
}

static inline void double_line_append_raw(Double_line* line, const char* text, size_t length)
{
    double_line_reserve(line, length);
    memcpy(line->text + line->length, text, length);
    line->length += length;
    line->text[line->length] = '\0';
}

/* Starts a new field (a tab unless it is the first) holding the escaped text. */
static inline void double_line_field(Double_line* line, const char* text)
{
    if (line->length != 0)
        double_line_append_raw(line, "\t", 1);
    if (text == NULL) {
        double_line_append_raw(line, "<null>", 6);
        return;
    }
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == '\\')
            double_line_append_raw(line, "\\\\", 2);
        else if (*c == '\t')
            double_line_append_raw(line, "\\t", 2);
        else if (*c == '\n')
            double_line_append_raw(line, "\\n", 2);
        else
            double_line_append_raw(line, c, 1);
    }
}

static inline void double_line_fieldf(Double_line* line, const char* format, ...) __attribute__((format(printf, 2, 3)));
static inline void double_line_fieldf(Double_line* line, const char* format, ...)
{
    char buffer[128];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    double_line_field(line, buffer);
}

static inline void double_line_pointer(Double_line* line, const void* pointer)
{
    double_line_fieldf(line, "%p", pointer);
}

static inline void double_line_float_bits(Double_line* line, float value)
{
    uint32_t bits;
    memcpy(&bits, &value, sizeof bits);
    double_line_fieldf(line, "%08x", (unsigned)bits);
}

/* Appends the line and a newline to the record file in one write, then frees it. */
static inline void double_line_commit(Double_line* line)
{
    const char* path = getenv("KSI_DOUBLE_RECORD_FILE");
    if (path != NULL && path[0] != '\0') {
        double_line_append_raw(line, "\n", 1);
        int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (file >= 0) {
            size_t written = 0;
            while (written < line->length) {
                ssize_t result = write(file, line->text + written, line->length - written);
                if (result <= 0)
                    break;
                written += (size_t)result;
            }
            close(file);
        }
    }
    free(line->text);
    line->text = NULL;
    line->length = line->capacity = 0;
}

/* A symbol lookup seen by an indirect-function resolver: "lookup <symbol>". */
static inline void double_record_lookup(const char* symbol)
{
    Double_line line = {NULL, 0, 0};
    double_line_field(&line, "lookup");
    double_line_field(&line, symbol);
    double_line_commit(&line);
}

#endif
