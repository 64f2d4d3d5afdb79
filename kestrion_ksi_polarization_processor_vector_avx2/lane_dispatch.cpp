// The extension's dispatchers: the library's choice of kernel, with the form
// in place of the SSE4.1 flag. Built without any vector extension; the kernels
// they call live in the translation units of their form.
#include "lane_widths.h"

#include "kernels/kernel_choice.h"
#include "kernels/kernel_family.h"

namespace {

template <class Form>
struct Kernel_in_form_callback {
    template <class... Parameters>
    void operator()(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices) const
    {
        generate_polarization_output_data_in_form<Form, Parameters...>(arguments, matrices);
    }
};

}  // namespace

template <class Form>
void generate_polarization_output_data_in_lanes(const Polarization_computation_arguments& arguments,
                                                const Calibration_matrices& matrices)
{
    choose_kernel<Kernel_in_form_callback<Form>>(arguments, matrices);
}

template void generate_polarization_output_data_in_lanes<Avx2_form>(const Polarization_computation_arguments&,
                                                                    const Calibration_matrices&);
template void generate_polarization_output_data_in_lanes<Avx512_form>(const Polarization_computation_arguments&,
                                                                      const Calibration_matrices&);
