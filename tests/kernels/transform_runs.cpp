#include "transform_runs.h"

#include "kestrion_ksi_polarization_processor.h"

namespace kernel_test_support {

Processor_session::Processor_session()
{
    kl_polarization_processor_module_initialize();
    create_status_ = kl_polarization_processor_create_polarization_processor(&handle_);
}

Processor_session::~Processor_session()
{
    if (handle_ != nullptr)
        kl_polarization_processor_destroy_polarization_processor(handle_);
    kl_polarization_processor_module_terminate();
}

int Processor_session::set_coefficients(const Angle_matrices& matrices)
{
    return kl_polarization_processor_set_custom_calibration_coefficients(
        handle_, matrices.matrix_0.data(), matrices.matrix_45.data(), matrices.matrix_90.data(),
        matrices.matrix_135.data());
}

Transform_result run_transform(const Processor_session& session, const Frame& frame, Slot_set slots,
                               std::int32_t sensor_phase, std::int32_t origin_x, std::int32_t origin_y,
                               std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    Transform_result result{-1, Frame_outputs(frame.rows, frame.columns, slots)};
    Frame_outputs& o = result.outputs;
    result.status = kl_polarization_processor_transform(
        session.handle(), sensor_phase, frame.pixels.data(), origin_x, origin_y, std::int32_t(frame.columns),
        std::int32_t(frame.rows), bit_depth, output_maximum, o.normalized(), o.image(1), o.image(2), o.image(3),
        o.image(4), o.image(5));
    return result;
}

}  // namespace kernel_test_support
