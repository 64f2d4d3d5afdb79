#include "kernels/generate_polarization_output_data.h"

#include "kernels/kernel_choice.h"
#include "kernels/kernel_family.h"

struct Polarization_process_callback {
    template <class... Parameters>
    void operator()(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices) const
    {
        generate_polarization_output_data_impl<Parameters...>(arguments, matrices);
    }
};

void generate_polarization_output_data(const Polarization_computation_arguments& arguments,
                                       const Calibration_matrices& matrices, bool has_sse41)
{
    choose_kernel<Polarization_process_callback>(arguments, matrices, has_sse41);
}
