// Runs of the exported C interface: a processor for the lifetime of a test
// and one transform call into fresh output buffers. Works the same against
// the shared object and against the internal library.
#pragma once

#include <cstdint>

#include "kernel_test_support.h"

namespace kernel_test_support {

// Initialises the module, creates a processor, and undoes both at the end.
class Processor_session {
public:
    Processor_session();
    ~Processor_session();
    Processor_session(const Processor_session&) = delete;
    Processor_session& operator=(const Processor_session&) = delete;

    void* handle() const { return handle_; }
    int create_status() const { return create_status_; }
    int set_coefficients(const Angle_matrices& matrices);

private:
    void* handle_ = nullptr;
    int create_status_ = -1;
};

struct Transform_result {
    int status;
    Frame_outputs outputs;
};

// One kl_polarization_processor_transform call with the sensor phase and the
// origin as the caller gives them.
Transform_result run_transform(const Processor_session& session, const Frame& frame, Slot_set slots,
                               std::int32_t sensor_phase, std::int32_t origin_x, std::int32_t origin_y,
                               std::uint32_t bit_depth, std::uint16_t output_maximum);

}  // namespace kernel_test_support
