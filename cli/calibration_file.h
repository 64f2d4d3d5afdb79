// Calibration matrices from a small JSON file:
//   {"matrix_0": [16 numbers], "matrix_45": [...], "matrix_90": [...], "matrix_135": [...]}
// Each matrix is 4x4, row-major: rows weigh S0, S1, S2 and an unused fourth;
// columns weigh a pixel's own, horizontal, vertical and diagonal neighbour.
#pragma once

#include <filesystem>
#include <stdexcept>

#include "kestrion_ksi_polarization_processor.hpp"

namespace ksi_cli {

class Calibration_file_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// All four matrices are required, and no other key is accepted, so that a
// misspelt name cannot silently leave a default in force.
kestrion::polarization::Calibration read_calibration_file(const std::filesystem::path& file);

}  // namespace ksi_cli
