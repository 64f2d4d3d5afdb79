// What the processor offers and the operating system enables.
#pragma once

namespace ksi_cli {

struct Cpu_features {
    bool sse41 = false;
    bool avx2 = false;
    bool avx512f = false;
    bool avx512bw = false;
    bool avx512dq = false;
    bool avx512vl = false;
    // The operating system saves the 256-bit registers (XCR0 bits 1 and 2),
    // and the 512-bit ones with their masks (bits 5 to 7), on a task switch;
    // without it the instructions fault.
    bool os_saves_avx = false;
    bool os_saves_avx512 = false;
};

Cpu_features detect_cpu_features();

}  // namespace ksi_cli
