/* Started with no library path against an installed library: initialises the
 * module and reports where the AVX2 extension came from. The extension is
 * opened by file name alone, so it is found beside the library only through
 * the library's run-path.
 *
 *   extension_beside_library 1   the extension must be open, from the
 *                                directory the library was loaded from;
 *   extension_beside_library 0   no extension is built in this tree: only
 *                                the module's initialise is checked. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <libgen.h>
#include <limits.h>
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kestrion_ksi_polarization_processor.h"

static const char library_soname[] = "libkestrion_ksi_polarization_processor.so.0";
static const char extension_file_name[] = "libkestrion_ksi_polarization_processor_vector_avx2.so";

/* The real directory of an open shared object, or an empty string. */
static void directory_of_open(const char* file_name, char directory[PATH_MAX])
{
    directory[0] = '\0';
    void* handle = dlopen(file_name, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == NULL)
        return;
    struct link_map* map = NULL;
    char resolved[PATH_MAX];
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != NULL && realpath(map->l_name, resolved) != NULL)
        strcpy(directory, dirname(resolved));
    dlclose(handle);
}

int main(int argc, char** argv)
{
    if (argc != 2 || (strcmp(argv[1], "0") != 0 && strcmp(argv[1], "1") != 0)) {
        fprintf(stderr, "usage: %s 0|1 (whether an extension is installed)\n", argv[0]);
        return 2;
    }
    const int extension_expected = argv[1][0] == '1';
    if (getenv("LD_LIBRARY_PATH") != NULL) {
        fprintf(stderr, "LD_LIBRARY_PATH is set: run this with no library path\n");
        return 2;
    }
    const int status = kl_polarization_processor_module_initialize();
    if (status != status_success) {
        fprintf(stderr, "kl_polarization_processor_module_initialize returned %d\n", status);
        return 1;
    }
    char library_directory[PATH_MAX], extension_directory[PATH_MAX];
    directory_of_open(library_soname, library_directory);
    directory_of_open(extension_file_name, extension_directory);
    kl_polarization_processor_module_terminate();

    printf("library loaded from %s\n", library_directory[0] ? library_directory : "(not found)");
    if (!extension_expected) {
        printf("no AVX2 extension is built in this tree, so none is installed to be found\n");
        return library_directory[0] ? 0 : 1;
    }
    if (extension_directory[0] == '\0') {
        fprintf(stderr, "%s was not loaded beside %s\n", extension_file_name, library_soname);
        return 1;
    }
    printf("extension loaded from %s\n", extension_directory);
    if (strcmp(extension_directory, library_directory) != 0) {
        fprintf(stderr, "the extension came from %s, not from the library's directory %s\n",
                extension_directory, library_directory);
        return 1;
    }
    return 0;
}
