#include "calibration_file.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace ksi_cli {

kestrion::polarization::Calibration read_calibration_file(const std::filesystem::path& file)
{
    static const char* const keys[4] = {"matrix_0", "matrix_45", "matrix_90", "matrix_135"};
    const std::string name = "calibration file " + file.string();
    std::ifstream stream(file);
    if (!stream)
        throw Calibration_file_error(name + ": cannot be opened");
    nlohmann::json document;
    try {
        stream >> document;
    } catch (const nlohmann::json::exception& error) {
        throw Calibration_file_error(name + ": not valid JSON (" + error.what() + ")");
    }
    if (!document.is_object())
        throw Calibration_file_error(name + ": needs a JSON object with matrix_0, matrix_45, matrix_90, matrix_135");
    for (const auto& item : document.items())
        if (std::find(std::begin(keys), std::end(keys), item.key()) == std::end(keys))
            throw Calibration_file_error(name + ": unknown key \"" + item.key() +
                                         "\" (expected matrix_0, matrix_45, matrix_90, matrix_135)");
    kestrion::polarization::Calibration matrices{};
    for (int m = 0; m < 4; ++m) {
        const auto found = document.find(keys[m]);
        if (found == document.end())
            throw Calibration_file_error(name + ": " + keys[m] + " is missing");
        if (!found->is_array() || found->size() != 16)
            throw Calibration_file_error(name + ": " + keys[m] + " must be an array of 16 numbers");
        for (std::size_t i = 0; i < 16; ++i) {
            const auto& value = (*found)[i];
            if (!value.is_number())
                throw Calibration_file_error(name + ": " + keys[m] + "[" + std::to_string(i) + "] is not a number");
            matrices[m][i] = value.get<float>();
        }
    }
    return matrices;
}

}  // namespace ksi_cli
