/* Times kl_polarization_processor_transform from C on random frames, with
 * the arguments python/benchmarks/binding_overhead.py uses, and prints the
 * median of the repetitions in milliseconds of processor time, as that
 * script measures.
 *   c_transform_timing WIDTH HEIGHT BIT_DEPTH OUTPUT_MAXIMUM REPETITIONS */
#include <kestrion_ksi_polarization_processor.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static int compare_doubles(const void* a, const void* b)
{
    double left = *(const double*)a, right = *(const double*)b;
    return (left > right) - (left < right);
}

static double processor_milliseconds(void)
{
    struct timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

int main(int argc, char** argv)
{
    if (argc != 6) {
        fprintf(stderr, "usage: %s WIDTH HEIGHT BIT_DEPTH OUTPUT_MAXIMUM REPETITIONS\n", argv[0]);
        return 2;
    }
    int width = atoi(argv[1]), height = atoi(argv[2]), repetitions = atoi(argv[5]);
    unsigned bit_depth = (unsigned)atoi(argv[3]);
    uint16_t output_maximum = (uint16_t)atoi(argv[4]);
    if (width < 2 || height < 2 || bit_depth < 1 || bit_depth > 16 || repetitions < 1) {
        fprintf(stderr, "%s: bad arguments\n", argv[0]);
        return 2;
    }
    size_t pixels = (size_t)width * (size_t)height;
    uint16_t* frame = malloc(pixels * sizeof *frame);
    float* normalized = malloc(2 * pixels * sizeof *normalized);
    uint16_t* images = malloc(5 * pixels * sizeof *images);
    double* milliseconds = malloc((size_t)repetitions * sizeof *milliseconds);
    if (!frame || !normalized || !images || !milliseconds) {
        fprintf(stderr, "%s: out of memory\n", argv[0]);
        return 1;
    }
    srand(1);
    for (size_t i = 0; i < pixels; ++i)
        frame[i] = (uint16_t)(rand() & ((1u << bit_depth) - 1u));

    void* processor = NULL;
    kl_polarization_processor_module_initialize();
    if (kl_polarization_processor_create_polarization_processor(&processor) != status_success) {
        fprintf(stderr, "%s: cannot create a processor\n", argv[0]);
        return 1;
    }
    for (int run = 0; run < repetitions; ++run) {
        double start = processor_milliseconds();
        int status = kl_polarization_processor_transform(
            processor, polar_phase_0, frame, 0, 0, width, height, bit_depth, output_maximum, normalized,
            images, images + pixels, images + 2 * pixels, images + 3 * pixels, images + 4 * pixels);
        milliseconds[run] = processor_milliseconds() - start;
        if (status != status_success) {
            fprintf(stderr, "%s: transform returned %d\n", argv[0], status);
            return 1;
        }
    }
    qsort(milliseconds, (size_t)repetitions, sizeof *milliseconds, compare_doubles);
    printf("%.6f\n", milliseconds[repetitions / 2]);

    kl_polarization_processor_destroy_polarization_processor(processor);
    kl_polarization_processor_module_terminate();
    free(milliseconds);
    free(images);
    free(normalized);
    free(frame);
    return 0;
}
