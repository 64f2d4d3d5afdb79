/*
 * Stand-in for libkestrion_ksi_polarization_processor_vector_avx2.so that
 * writes every call to the record file (see double_record.h) and computes
 * nothing, so that any output pixel the caller finds written was written by
 * someone else.
 *
 * Written in C against the public header alone: it is also the proof that
 * the header's description of the extension is enough to build one.
 *
 * The three functions are indirect functions, so each lookup by name leaves
 * a "lookup" line and the order of the lookups can be checked.
 *
 * Variants, chosen at build time:
 *   EXTENSION_WITHOUT_INITIALIZE   the initialise function is not offered
 *   EXTENSION_WITHOUT_TRANSFORM    the transform function is not offered
 *   EXTENSION_WITHOUT_TERMINATE    the terminate function is not offered
 *   EXTENSION_INITIALIZE_RESULT=n  initialise returns n (0 otherwise)
 *   DOUBLE_UNRESOLVED_REFERENCE    carries a call to a function that exists
 *                                  nowhere, on a path never taken
 *
 * Records:
 *   lookup     <symbol>
 *   initialize <result>
 *   transform  <rows> <columns> <polar_phase> <input> <bit_depth>
 *              <input_maximum bits> <output_maximum bits> <output_maximum_integer>
 *              <normalized_stokes> <s0> <s1> <s2> <azimuth> <dolp>
 *              <4 matrix pointers> <4 x 16 matrix element bits>
 *   terminate
 */
#include "kestrion_ksi_polarization_processor.h"

#include "double_record.h"

#ifndef EXTENSION_INITIALIZE_RESULT
#define EXTENSION_INITIALIZE_RESULT 0
#endif

#ifdef DOUBLE_UNRESOLVED_REFERENCE
extern void kestrion_double_function_that_exists_nowhere(void);
#endif

__attribute__((unused)) static int recorded_initialize(void)
{
    Double_line line = {NULL, 0, 0};
    double_line_field(&line, "initialize");
    double_line_fieldf(&line, "%d", EXTENSION_INITIALIZE_RESULT);
    double_line_commit(&line);
    return EXTENSION_INITIALIZE_RESULT;
}

static void record_matrix_elements(Double_line* line, const float (*matrix)[16])
{
    for (int i = 0; i < 16; ++i)
        double_line_float_bits(line, (*matrix)[i]);
}

__attribute__((unused)) static int recorded_transform(const kl_polarization_computation_arguments* arguments,
                                                      const kl_calibration_matrices* matrices)
{
#ifdef DOUBLE_UNRESOLVED_REFERENCE
    if (arguments == NULL)
        kestrion_double_function_that_exists_nowhere();
#endif
    Double_line line = {NULL, 0, 0};
    double_line_field(&line, "transform");
    double_line_fieldf(&line, "%u", (unsigned)arguments->rows);
    double_line_fieldf(&line, "%u", (unsigned)arguments->columns);
    double_line_fieldf(&line, "%d", (int)arguments->polar_phase);
    double_line_pointer(&line, arguments->input);
    double_line_fieldf(&line, "%u", (unsigned)arguments->bit_depth);
    double_line_float_bits(&line, arguments->input_maximum);
    double_line_float_bits(&line, arguments->output_maximum);
    double_line_fieldf(&line, "%u", (unsigned)arguments->output_maximum_integer);
    double_line_pointer(&line, arguments->normalized_stokes);
    double_line_pointer(&line, arguments->s0_image);
    double_line_pointer(&line, arguments->s1_image);
    double_line_pointer(&line, arguments->s2_image);
    double_line_pointer(&line, arguments->azimuth_image);
    double_line_pointer(&line, arguments->dolp_image);
    double_line_pointer(&line, matrices->even_row_even_column);
    double_line_pointer(&line, matrices->even_row_odd_column);
    double_line_pointer(&line, matrices->odd_row_even_column);
    double_line_pointer(&line, matrices->odd_row_odd_column);
    record_matrix_elements(&line, matrices->even_row_even_column);
    record_matrix_elements(&line, matrices->even_row_odd_column);
    record_matrix_elements(&line, matrices->odd_row_even_column);
    record_matrix_elements(&line, matrices->odd_row_odd_column);
    double_line_commit(&line);
    return 0;
}

__attribute__((unused)) static void recorded_terminate(void)
{
    Double_line line = {NULL, 0, 0};
    double_line_field(&line, "terminate");
    double_line_commit(&line);
}

/* The implementations must have exactly the types the header names. */
__attribute__((unused)) static const kl_vector_avx2_module_initialize_function initialize_type_check =
    &recorded_initialize;
__attribute__((unused)) static const kl_vector_avx2_transform_function transform_type_check = &recorded_transform;
__attribute__((unused)) static const kl_vector_avx2_module_terminate_function terminate_type_check =
    &recorded_terminate;

__attribute__((unused)) static kl_vector_avx2_module_initialize_function resolve_initialize(void)
{
    double_record_lookup("kl_polarization_processor_vector_avx2_module_initialize");
    return &recorded_initialize;
}

__attribute__((unused)) static kl_vector_avx2_transform_function resolve_transform(void)
{
    double_record_lookup("kl_polarization_processor_transform_vector_avx2");
    return &recorded_transform;
}

__attribute__((unused)) static kl_vector_avx2_module_terminate_function resolve_terminate(void)
{
    double_record_lookup("kl_polarization_processor_vector_avx2_module_terminate");
    return &recorded_terminate;
}

#ifndef EXTENSION_WITHOUT_INITIALIZE
DOUBLE_EXPORT int kl_polarization_processor_vector_avx2_module_initialize(void)
    __attribute__((ifunc("resolve_initialize")));
#endif

#ifndef EXTENSION_WITHOUT_TRANSFORM
DOUBLE_EXPORT int kl_polarization_processor_transform_vector_avx2(
    const kl_polarization_computation_arguments* arguments, const kl_calibration_matrices* matrices)
    __attribute__((ifunc("resolve_transform")));
#endif

#ifndef EXTENSION_WITHOUT_TERMINATE
DOUBLE_EXPORT void kl_polarization_processor_vector_avx2_module_terminate(void)
    __attribute__((ifunc("resolve_terminate")));
#endif
