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

#endif
