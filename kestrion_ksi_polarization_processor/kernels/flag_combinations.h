// KSI_EACH_FLAG_N(M, fixed...) expands to M(fixed..., b1, ..., bN) once for
// every combination of N booleans. The explicit instantiations of the kernel
// family and of the scalar stages are spelled with it.
#pragma once

#define KSI_EACH_FLAG_1(M, ...) M(__VA_ARGS__, false) M(__VA_ARGS__, true)
#define KSI_EACH_FLAG_2(M, ...) KSI_EACH_FLAG_1(M, __VA_ARGS__, false) KSI_EACH_FLAG_1(M, __VA_ARGS__, true)
#define KSI_EACH_FLAG_3(M, ...) KSI_EACH_FLAG_2(M, __VA_ARGS__, false) KSI_EACH_FLAG_2(M, __VA_ARGS__, true)
#define KSI_EACH_FLAG_4(M, ...) KSI_EACH_FLAG_3(M, __VA_ARGS__, false) KSI_EACH_FLAG_3(M, __VA_ARGS__, true)
#define KSI_EACH_FLAG_5(M, ...) KSI_EACH_FLAG_4(M, __VA_ARGS__, false) KSI_EACH_FLAG_4(M, __VA_ARGS__, true)
#define KSI_EACH_FLAG_6(M, ...) KSI_EACH_FLAG_5(M, __VA_ARGS__, false) KSI_EACH_FLAG_5(M, __VA_ARGS__, true)
#define KSI_EACH_FLAG_7(M, ...) KSI_EACH_FLAG_6(M, __VA_ARGS__, false) KSI_EACH_FLAG_6(M, __VA_ARGS__, true)
#define KSI_EACH_FLAG_8(M, ...) KSI_EACH_FLAG_7(M, __VA_ARGS__, false) KSI_EACH_FLAG_7(M, __VA_ARGS__, true)
#define KSI_EACH_FLAG_9(M, ...) KSI_EACH_FLAG_8(M, __VA_ARGS__, false) KSI_EACH_FLAG_8(M, __VA_ARGS__, true)
