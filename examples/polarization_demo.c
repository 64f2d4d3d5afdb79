/* Renders a synthetic polarization scene, transforms it with all six outputs
 * and writes the images into a directory: 16-bit PGM for the input and slots
 * 1 to 5, raw little-endian float pairs for slot 0.
 *
 * The scene: a disc of strongly polarized light whose angle of polarization
 * turns from -90 to +90 degrees across the frame, on a weakly polarized
 * background, seen through the 0/45/90/135 degree mosaic with sensor noise. */

/* clock_gettime and mkdir are POSIX, beyond standard C. */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "kestrion_ksi_polarization_processor.h"

enum { width = 1224, height = 1024, bit_depth = 12, output_maximum = 4095 };

static const double pi = 3.14159265358979323846;

/* Polarizer angle in degrees over each pixel of a phase-0 mosaic. */
static double polarizer_angle(int row, int column)
{
    static const double angles[2][2] = {{0.0, 135.0}, {45.0, 90.0}};
    return angles[row & 1][column & 1];
}

static uint32_t random_state = 12345u;

static double uniform(void)
{
    random_state = random_state * 1664525u + 1013904223u;
    return ((random_state >> 8) + 0.5) / 16777216.0;
}

static double gaussian(void)
{
    return sqrt(-2.0 * log(uniform())) * cos(2.0 * pi * uniform());
}

static void render_scene(uint16_t* frame)
{
    const double input_maximum = (1 << bit_depth) - 1;
    for (int row = 0; row < height; ++row) {
        for (int column = 0; column < width; ++column) {
            const double dx = column - width / 2.0, dy = row - height / 2.0;
            const int in_disc = dx * dx + dy * dy < (0.35 * height) * (0.35 * height);
            const double intensity = in_disc ? 3000.0 : 1200.0;
            const double degree = in_disc ? 0.8 : 0.1;
            const double angle = in_disc ? -90.0 + 180.0 * column / (width - 1) : 30.0;
            const double analyser = (angle - polarizer_angle(row, column)) * pi / 180.0;
            double value = intensity / 2.0 * (1.0 + degree * cos(2.0 * analyser)) + 12.0 * gaussian();
            value = value < 0.0 ? 0.0 : value > input_maximum ? input_maximum : value;
            frame[(size_t)row * width + column] = (uint16_t)lround(value);
        }
    }
}

static FILE* create_file(const char* directory, const char* name)
{
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", directory, name);
    return fopen(path, "wb");
}

static int write_pgm(const char* directory, const char* name, const uint16_t* image, unsigned maximum)
{
    FILE* file = create_file(directory, name);
    if (file == NULL)
        return -1;
    fprintf(file, "P5\n%d %d\n%u\n", width, height, maximum);
    for (size_t i = 0; i < (size_t)width * height; ++i) {
        const unsigned char big_endian[2] = {(unsigned char)(image[i] >> 8), (unsigned char)(image[i] & 0xFF)};
        fwrite(big_endian, 1, 2, file);
    }
    return fclose(file);
}

static int write_floats(const char* directory, const char* name, const float* values, size_t count)
{
    FILE* file = create_file(directory, name);
    if (file == NULL)
        return -1;
    const size_t written = fwrite(values, sizeof *values, count, file);
    return fclose(file) != 0 || written != count ? -1 : 0;
}

int main(int argc, char** argv)
{
    const char* directory = argc > 1 ? argv[1] : "demo_output";
    if (mkdir(directory, 0755) != 0 && errno != EEXIST) {
        fprintf(stderr, "cannot create %s: %s\n", directory, strerror(errno));
        return 1;
    }

    const size_t pixels = (size_t)width * height;
    uint16_t* frame = malloc(pixels * sizeof *frame);
    float* normalized = malloc(2 * pixels * sizeof *normalized);
    uint16_t* images[5];
    for (int i = 0; i < 5; ++i)
        images[i] = malloc(pixels * sizeof **images);
    if (frame == NULL || normalized == NULL || !images[0] || !images[1] || !images[2] || !images[3] || !images[4]) {
        fprintf(stderr, "out of memory\n");
        return 1;
    }
    render_scene(frame);

    void* processor = NULL;
    kl_polarization_processor_module_initialize();
    int status = kl_polarization_processor_create_polarization_processor(&processor);
    /* The second run is the one timed: the first also pays for the operating
     * system's first touch of the fresh output buffers. */
    struct timespec start, end;
    for (int run = 0; run < 2 && status == status_success; ++run) {
        clock_gettime(CLOCK_MONOTONIC, &start);
        status = kl_polarization_processor_transform(processor, polar_phase_0, frame, 0, 0, width, height, bit_depth,
                                                     output_maximum, normalized, images[0], images[1], images[2],
                                                     images[3], images[4]);
        clock_gettime(CLOCK_MONOTONIC, &end);
    }
    kl_polarization_processor_destroy_polarization_processor(processor);
    kl_polarization_processor_module_terminate();
    if (status != status_success) {
        fprintf(stderr, "transform failed with status %d\n", status);
        return 1;
    }

    static const char* const names[5] = {"s0.pgm", "s1.pgm", "s2.pgm", "azimuth.pgm", "dolp.pgm"};
    int failed = write_pgm(directory, "input.pgm", frame, (1u << bit_depth) - 1) != 0;
    for (int i = 0; i < 5; ++i)
        failed |= write_pgm(directory, names[i], images[i], output_maximum) != 0;
    failed |= write_floats(directory, "normalized_stokes.f32", normalized, 2 * pixels) != 0;
    if (failed) {
        fprintf(stderr, "cannot write the images into %s\n", directory);
        return 1;
    }

    const double milliseconds = (end.tv_sec - start.tv_sec) * 1e3 + (end.tv_nsec - start.tv_nsec) / 1e6;
    printf("polarization demo: %dx%d frame, 6 outputs in %.2f ms (%.0f Mpixel/s), images in %s/\n", width, height,
           milliseconds, pixels / milliseconds / 1e3, directory);

    free(frame);
    free(normalized);
    for (int i = 0; i < 5; ++i)
        free(images[i]);
    return 0;
}
