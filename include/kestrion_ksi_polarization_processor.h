/*
 * Kestrion KSI polarization processor: public C interface.
 *
 * The sensor carries a repeating 2x2 quartet of 0, 45, 90 and 135 degree
 * linear polarizers. From one raw frame of unsigned 16-bit pixels the library
 * computes, per pixel, any subset of six outputs ("slots"):
 *
 *   slot 0  normalized_stokes  two floats per pixel: S1/S0, then S2/S0
 *   slot 1  s0_image           S0, unsigned 16-bit
 *   slot 2  s1_image           S1, unsigned 16-bit (negative values store 0)
 *   slot 3  s2_image           S2, unsigned 16-bit (negative values store 0)
 *   slot 4  azimuth_image      -90..+90 degrees mapped to 0..output_maximum
 *   slot 5  dolp_image         degree of linear polarization, 0..1 mapped to
 *                              0..output_maximum
 *
 * All buffers belong to the caller. They are row-major with no gap between
 * rows and hold width x height elements (slot 0: 2 x width x height floats).
 * No buffer size is ever checked.
 *
 * Calling order:
 *   kl_polarization_processor_module_initialize()
 *   kl_polarization_processor_create_polarization_processor(&handle)
 *   kl_polarization_processor_set_custom_calibration_coefficients(...)  (optional)
 *   kl_polarization_processor_transform(...)                            (per frame)
 *   kl_polarization_processor_destroy_polarization_processor(handle)
 *   kl_polarization_processor_module_terminate()
 *
 * Initialise and terminate are reference counted, so several clients in one
 * process may share the library. Every other function returns
 * status_module_not_initialized (2) while the module is not initialised.
 * Transforms may run concurrently on any threads, on one handle or several;
 * do not terminate the module, or set coefficients on a handle, while a
 * transform is running.
 *
 * This header compiles as C and as C++.
 */
#ifndef KESTRION_KSI_POLARIZATION_PROCESSOR_H
#define KESTRION_KSI_POLARIZATION_PROCESSOR_H

#include <stdint.h>

#if defined(__GNUC__)
#define KL_POLARIZATION_PROCESSOR_API __attribute__((visibility("default")))
#else
#define KL_POLARIZATION_PROCESSOR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Return codes of every exported function. The numbers are part of the
 * interface; they do not follow the order in which the checks run. */
typedef enum Processor_status {
    status_success = 0,
    status_failure = 1,                /* create: no SSE, or an unexpected error */
    status_module_not_initialized = 2, /* the module is not initialised */
    status_out_of_memory = 3,          /* create: allocation failed */
    status_null_handle = 4,
    status_null_input = 5,
    status_no_output = 6,              /* all six output pointers are null */
    status_output_is_input = 7,        /* an output pointer equals the input pointer */
    status_duplicate_output = 8,       /* two non-null output pointers are equal */
    status_invalid_phase = 9,          /* polar_phase greater than 3 */
    status_zero_output_maximum = 10,
    status_invalid_width = 11,         /* width of 1 or less */
    status_invalid_height = 12,        /* height of 1 or less */
    status_invalid_bit_depth = 13      /* bit_depth greater than 16 */
} Processor_status;

/* Which polarizer covers the sensor pixel at row 0, column 0. The quartet
 * repeats with period 2 in both directions:
 *
 *   value  enumerator        top left  top right  bottom left  bottom right
 *   0      polar_phase_0         0        135         45           90
 *   1      polar_phase_45       45         90          0          135
 *   2      polar_phase_90       90         45        135            0
 *   3      polar_phase_135     135          0         90           45
 */
typedef enum Polar_phase {
    polar_phase_0 = 0,
    polar_phase_45 = 1,
    polar_phase_90 = 2,
    polar_phase_135 = 3
} Polar_phase;

/* Counts the module up. The first call loads the optional logging library
 * and the optional AVX2 extension; later calls only count. Neither being
 * absent is an error. Always returns status_success. */
KL_POLARIZATION_PROCESSOR_API int kl_polarization_processor_module_initialize(void);

/* Counts the module down; the call that brings the count to 0 unloads the
 * extension, then the logging library. A terminate without a matching
 * initialise changes nothing. Always returns status_success. */
KL_POLARIZATION_PROCESSOR_API int kl_polarization_processor_module_terminate(void);

/* Creates a processor with the default calibration matrices and stores its
 * handle in *processor (written only on success; processor itself must not
 * be null). Checks, in order:
 *   2  the module is not initialised
 *   1  the CPU lacks SSE
 *   3  the allocation failed
 *   1  any other error during the allocation
 *   0  success */
KL_POLARIZATION_PROCESSOR_API int kl_polarization_processor_create_polarization_processor(void** processor);

/* Frees a processor. The caller's copy of the handle is left as it is.
 * Checks, in order: 2 not initialised (nothing is freed), 4 null handle,
 * 0 success. */
KL_POLARIZATION_PROCESSOR_API int kl_polarization_processor_destroy_polarization_processor(void* processor);

/* Calibration coefficients: four row-major 4x4 float matrices, one per
 * polarizer angle (0, 45, 90, 135 degrees). Row 0 weighs S0, row 1 S1,
 * row 2 S2; row 3 is stored and returned but used by no computation. The
 * columns weigh the four pixels of the quartet that a pixel is computed
 * from: its own, its horizontal neighbour, its vertical neighbour and the
 * diagonal one. S0 is half the weighted sum.
 *
 * The defaults (own, horizontal, vertical, diagonal):
 *   matrix_0:   S0 1 1 1 1   S1  1  0  0 -1   S2  0 -1  1  0
 *   matrix_45:  S0 1 1 1 1   S1  0 -1  1  0   S2  1  0  0 -1
 *   matrix_90:  S0 1 1 1 1   S1 -1  0  0  1   S2  0  1 -1  0
 *   matrix_135: S0 1 1 1 1   S1  0  1 -1  0   S2 -1  0  0  1
 *
 * The matrices act on the pixels of the frame's edge columns and last rows;
 * the interior of a frame is computed with the default weights built into
 * the four-lane kernel, whatever is set here.
 *
 * Set copies all 16 floats of every non-null matrix into the processor; get
 * copies them out. A null matrix pointer is skipped. Values are not
 * inspected. Checks, in order: 2 not initialised, 4 null handle, 0 success. */
KL_POLARIZATION_PROCESSOR_API int kl_polarization_processor_set_custom_calibration_coefficients(
    void* processor, const float* matrix_0, const float* matrix_45, const float* matrix_90,
    const float* matrix_135);
KL_POLARIZATION_PROCESSOR_API int kl_polarization_processor_get_custom_calibration_coefficients(
    void* processor, float* matrix_0, float* matrix_45, float* matrix_90, float* matrix_135);

/* Computes the requested outputs of one frame region.
 *
 *   processor       handle from create
 *   polar_phase     Polar_phase of the sensor pixel (0, 0)
 *   input           first pixel of the region (not moved by the origin)
 *   origin_x/_y     sensor column and row of the region's first pixel; only
 *                   their parity is used, to re-base the phase
 *   width, height   size of the region, each at least 2
 *   bit_depth       significant bits of an input pixel, 0 to 16; the input
 *                   maximum is 2^bit_depth - 1
 *   output_maximum  largest value of the 16-bit outputs, not 0. When it
 *                   differs from the input maximum, slots 1 to 3 are rescaled
 *                   by output_maximum / input maximum
 *   normalized_stokes .. dolp_image   slots 0 to 5, each may be null
 *
 * Checks, in this order; the first that fails gives the result:
 *   2  the module is not initialised
 *   4  processor is null
 *   9  polar_phase is greater than 3 (a negative phase counts as phase 0)
 *   5  input is null
 *   6  all six outputs are null
 *   7  an output pointer equals input
 *   8  two non-null outputs are equal
 *   11 width is 1 or less
 *   12 height is 1 or less
 *   10 output_maximum is 0
 *   13 bit_depth is greater than 16
 *   0  success: every pixel of every non-null slot has been written
 *
 * Frames of 2 or 3 columns are accepted at any height: their edge stages
 * write every pixel and nothing outside the buffers is read or written.
 * Buffers that overlap without equal start pointers are not detected. */
KL_POLARIZATION_PROCESSOR_API int kl_polarization_processor_transform(
    void* processor, int32_t polar_phase, const uint16_t* input, int32_t origin_x, int32_t origin_y,
    int32_t width, int32_t height, uint32_t bit_depth, uint16_t output_maximum, float* normalized_stokes,
    uint16_t* s0_image, uint16_t* s1_image, uint16_t* s2_image, uint16_t* azimuth_image,
    uint16_t* dolp_image);

#ifdef __cplusplus
}
#endif

/* ------------------------------------------------------------------------
 * Optional companion libraries
 *
 * Two further shared objects are looked for at run time. Neither is needed:
 * when one is missing, or lacks one of its functions, the library carries on
 * without it and says nothing. Both are opened with dlopen(RTLD_LAZY) under a
 * bare file name, so the dynamic loader's usual search decides where they
 * come from: LD_LIBRARY_PATH, then the run-path of this library, then the
 * loader cache and the default directories. The run-path is $ORIGIN, so a
 * logging library or extension installed in the same directory as
 * libkestrion_ksi_polarization_processor.so is found without any
 * environment variable.
 *
 * 1. Logging: libkestrion_ksi_logger.so
 *
 * Opened by the first kl_polarization_processor_module_initialize and closed
 * by the last kl_polarization_processor_module_terminate, or, if the module
 * is still initialised then, when this library is unloaded or the process
 * exits. It must offer these C functions:
 *
 *   void* ksi_get_log(const char* log_name, const char* log_subname);
 *       Looked up and called once, when the library is opened, with
 *       log_name "KESTRION_KSI_POLARIZATION_PROCESSOR" and log_subname "".
 *       Returns the handle passed to every ksi_log call; null refuses, and
 *       the library then logs nothing (ksi_log is not even looked up).
 *
 *   int ksi_log(void* log, int priority, const char* source_file, int line,
 *               const char* function_name, const char* message);
 *       Looked up right after a successful ksi_get_log and called for every
 *       line, possibly from several threads at once. priority is
 *       KL_KSI_LOG_PRIORITY_ERROR (0) for errors and KL_KSI_LOG_PRIORITY_TIMING
 *       (2) for the duration of a transform. source_file is
 *       "kestrion_ksi_polarization_processor/kestrion_ksi_polarization_processor",
 *       line the line of the call, function_name the full name of the
 *       exported function, e.g. "kl_polarization_processor_transform".
 *       message is the complete formatted text, never cut, possibly empty.
 *       0 means success; the library does not act on any other result.
 *
 *   void ksi_free_log(const char* log_name, const char* log_subname);
 *       Looked up and called only when the library is closed, with the same
 *       two names as ksi_get_log (not the handle). It is called whenever the
 *       library was opened, even if ksi_get_log was missing or refused. If
 *       it is missing the library is closed all the same.
 *
 * What is logged:
 *   priority 0, from create:
 *     "SSE is required for this component but is not supported on this CPU."
 *     "Memory allocation failure when trying to create a polar processor instance!"
 *     "An unknown error occurred when trying to create a polar_processor instance!"
 *   priority 0, for a null handle (two blanks after the colon):
 *     "ERROR:  The specified polarization processor handle is NULL!"  (set, get, transform)
 *     "ERROR:  The specified color processor handle is NULL!"         (destroy)
 *   priority 2, on every return of kl_polarization_processor_transform once
 *   the module is initialised, refusals included and after the null-handle
 *   error line:
 *     "transform takes <whole microseconds>.000000 microseconds."
 * Nothing else is logged, and nothing at all while the module is not
 * initialised.
 *
 * 2. AVX2 extension: libkestrion_ksi_polarization_processor_vector_avx2.so
 *
 * Opened by the first kl_polarization_processor_module_initialize, whatever
 * the processor, and closed at the same moments as the logging library, just
 * before it. It must offer three C functions; the loader looks them up in
 * this order and stops at the first that is missing:
 *
 *   int kl_polarization_processor_vector_avx2_module_initialize(void);
 *       Called once, after all three were found. 0 accepts; any other
 *       result keeps the extension out of use (its terminate still runs).
 *
 *   int kl_polarization_processor_transform_vector_avx2(
 *       const kl_polarization_computation_arguments* arguments,
 *       const kl_calibration_matrices* matrices);
 *       Called on the caller's thread, possibly on several threads at once,
 *       for every transform that passed validation, when the extension
 *       initialised with 0 and the processor supports AVX2. It must do the
 *       whole work of the transform: the library writes no output after it.
 *       arguments carries the phase already re-based to the region's first
 *       pixel; matrices is the calibration set of that phase. Both live only
 *       for the call. The result is ignored.
 *
 *   void kl_polarization_processor_vector_avx2_module_terminate(void);
 *       Called once when the library closes, if all three functions were
 *       found, whatever initialise returned.
 *
 * If the file, a function or a successful initialise is missing, every
 * frame is computed by the library itself.
 * ------------------------------------------------------------------------ */

/* Priorities passed to ksi_log. */
enum {
    KL_KSI_LOG_PRIORITY_ERROR = 0,
    KL_KSI_LOG_PRIORITY_TIMING = 2
};

/* The frame description handed to the extension's transform, field by field
 * as the library lays it out (88 bytes on x86-64). */
typedef struct kl_polarization_computation_arguments {
    uint32_t rows;                   /* height of the region */
    uint32_t columns;                /* width of the region; also the row stride */
    int32_t polar_phase;             /* Polar_phase of the region's first pixel; any value
                                        other than 1, 2 and 3 means polar_phase_0 */
    const uint16_t* input;           /* the raw region */
    uint32_t bit_depth;              /* 0 to 16 */
    float input_maximum;             /* 2^bit_depth - 1 */
    float output_maximum;            /* output_maximum as a float */
    uint32_t output_maximum_integer; /* output_maximum, zero-extended */
    float* normalized_stokes;        /* slot 0, or NULL */
    uint16_t* s0_image;              /* slot 1, or NULL */
    uint16_t* s1_image;              /* slot 2, or NULL */
    uint16_t* s2_image;              /* slot 3, or NULL */
    uint16_t* azimuth_image;         /* slot 4, or NULL */
    uint16_t* dolp_image;            /* slot 5, or NULL */
} kl_polarization_computation_arguments;

/* The four calibration matrices of one phase, chosen by the parity of a
 * pixel's row and column within the region. Each points at 16 floats,
 * row-major: row 0 weighs S0, row 1 S1, row 2 S2, row 3 is unused; the
 * columns weigh the own, horizontal, vertical and diagonal pixel. */
typedef struct kl_calibration_matrices {
    const float (*even_row_even_column)[16];
    const float (*even_row_odd_column)[16];
    const float (*odd_row_even_column)[16];
    const float (*odd_row_odd_column)[16];
} kl_calibration_matrices;

/* Types of the functions the companion libraries offer. */
typedef void* (*kl_ksi_get_log_function)(const char* log_name, const char* log_subname);
typedef int (*kl_ksi_log_function)(void* log, int priority, const char* source_file, int line,
                                   const char* function_name, const char* message);
typedef void (*kl_ksi_free_log_function)(const char* log_name, const char* log_subname);
typedef int (*kl_vector_avx2_module_initialize_function)(void);
typedef int (*kl_vector_avx2_transform_function)(const kl_polarization_computation_arguments* arguments,
                                                 const kl_calibration_matrices* matrices);
typedef void (*kl_vector_avx2_module_terminate_function)(void);

#endif
