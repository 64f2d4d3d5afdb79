#include "intensity_range.h"

namespace ksi_cli {

void paint_intensity_range(const std::uint16_t* s0, const std::uint16_t* dolp, std::size_t count,
                           std::uint16_t output_maximum, std::uint16_t* minimum, std::uint16_t* maximum)
{
    if (minimum != nullptr)
        for (std::size_t i = 0; i < count; ++i)
            minimum[i] = intensity_minimum(s0[i], dolp[i], output_maximum);
    if (maximum != nullptr)
        for (std::size_t i = 0; i < count; ++i)
            maximum[i] = intensity_maximum(s0[i], dolp[i], output_maximum);
}

}  // namespace ksi_cli
