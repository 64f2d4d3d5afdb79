// ksi-polarization info: the version, the processor's instruction sets, the
// companion libraries beside the library, and which code computes frames.
#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include "cpu_features.h"
#include "kestrion_ksi_polarization_processor.hpp"
#include "subcommands.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

constexpr const char* extension_file = "libkestrion_ksi_polarization_processor_vector_avx2.so";
constexpr const char* logger_file = "libkestrion_ksi_logger.so";

std::filesystem::path library_path()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&kl_polarization_processor_transform), &info) == 0 ||
        info.dli_fname == nullptr)
        return {};
    // The loader reports the path as the run-path spelt it, e.g. bin/../lib.
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::filesystem::absolute(info.dli_fname) : path;
}

// Where the library's own dlopen of `file_name` led, if the object is in
// this process now: the loader matches the bare name that the library used.
std::optional<std::string> loaded_from(const char* file_name, const char* symbol)
{
    void* handle = dlopen(file_name, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr)
        return std::nullopt;
    std::string path = "(path unknown)";
    Dl_info info{};
    if (void* function = dlsym(handle, symbol); function != nullptr && dladdr(function, &info) != 0)
        path = info.dli_fname;
    dlclose(handle);
    return path;
}

const char* yes_no(bool value) { return value ? "yes" : "no"; }

void print_companion(const char* title, const std::filesystem::path& directory, const char* file_name,
                     const std::optional<std::string>& loaded)
{
    std::error_code error;
    const std::filesystem::path beside = directory / file_name;
    const bool present = std::filesystem::exists(beside, error);
    std::printf("%-18s %s beside the library (%s)", title, present ? "found" : "not found", beside.c_str());
    if (loaded)
        std::printf(", loaded from %s", loaded->c_str());
    else
        std::printf(", not loaded");
    std::printf("\n");
}

int run_info()
{
    const Cpu_features cpu = detect_cpu_features();
    const std::filesystem::path library = library_path();
    kp::Module module;  // loads the companion libraries, as any client does
    const auto extension = loaded_from(extension_file, "kl_polarization_processor_transform_vector_avx2");
    const auto logger = loaded_from(logger_file, "ksi_log");

    std::printf("ksi-polarization %s\n", KSI_VERSION);
    std::printf("%-18s %s\n", "library:", library.c_str());
    std::printf("%-18s SSE4.1 %s, AVX2 %s, AVX-512 F %s, BW %s, DQ %s, VL %s\n", "instruction sets:",
                yes_no(cpu.sse41), yes_no(cpu.avx2), yes_no(cpu.avx512f), yes_no(cpu.avx512bw), yes_no(cpu.avx512dq),
                yes_no(cpu.avx512vl));
    std::printf("%-18s AVX %s, AVX-512 %s\n", "enabled by the OS:", yes_no(cpu.os_saves_avx),
                yes_no(cpu.os_saves_avx512));
    print_companion("AVX2 extension:", library.parent_path(), extension_file, extension);
    print_companion("logging library:", library.parent_path(), logger_file, logger);

    // The library hands frames to the extension when it loaded and the
    // processor has AVX2; the extension itself refuses to start where the
    // operating system does not enable AVX.
    const char* path = "the library's baseline (SSE2) kernels";
    if (extension && cpu.avx2 && cpu.os_saves_avx)
        path = "the AVX2 extension";
    else if (cpu.sse41)
        path = "the library's SSE4.1 kernels";
    std::printf("%-18s %s\n", "frames computed by:", path);
    return exit_success;
}

}  // namespace

void add_info_subcommand(CLI::App& application, Subcommand_action& action)
{
    CLI::App* command = application.add_subcommand(
        "info", "Show the version, the processor's instruction sets and which code computes frames");
    command->callback([&action] { action = run_info; });
}

}  // namespace ksi_cli
