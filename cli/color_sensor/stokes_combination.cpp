#include "stokes_combination.h"

#include <array>
#include <cmath>

namespace ksi_cli {
namespace {

constexpr double pi = 3.141592653589793;
constexpr double half_pi = pi / 2;
constexpr double quarter_pi = pi / 4;
constexpr double two_pi = 2 * pi;
const double tan_pi_8 = std::sqrt(2.0) - 1.0;

// (-1)^k / (2k + 1), each the correctly rounded quotient.
constexpr int series_terms = 13;
constexpr std::array<double, series_terms> series = [] {
    std::array<double, series_terms> coefficients{};
    for (int k = 0; k < series_terms; ++k)
        coefficients[k] = (k % 2 == 0 ? 1.0 : -1.0) / (2 * k + 1);
    return coefficients;
}();

std::uint16_t rounded_element(double scaled, std::uint16_t output_maximum)
{
    double value = std::floor(scaled + 0.5);
    value = value > output_maximum ? output_maximum : value;
    value = value < 0 ? 0 : value;
    return static_cast<std::uint16_t>(value);
}

}  // namespace

double polarization_arctangent(double y, double x)
{
    const double a = std::fabs(x), b = std::fabs(y);
    if (a == 0 && b == 0)
        return 0;
    const bool steep = b > a;
    const double t = steep ? a / b : b / a;
    const bool upper = t > tan_pi_8;
    const double u = upper ? (t - 1) / (t + 1) : t;
    const double z = u * u;
    double p = series[series_terms - 1];
    for (int k = series_terms - 2; k >= 0; --k)
        p = p * z + series[k];
    double r = u * p;
    r = upper ? quarter_pi + r : r;
    r = steep ? half_pi - r : r;
    r = x < 0 ? pi - r : r;
    return y < 0 ? -r : r;
}

void Stokes_sum::add(std::uint16_t s0, float normalized_s1, float normalized_s2)
{
    const double weight = s0;
    const bool valid = s0 > 0 && std::isfinite(normalized_s1) && std::isfinite(normalized_s2);
    s0_ = s0_ + weight;
    s1_ = s1_ + (valid ? weight * static_cast<double>(normalized_s1) : 0.0);
    s2_ = s2_ + (valid ? weight * static_cast<double>(normalized_s2) : 0.0);
}

std::uint16_t Stokes_sum::aolp_element(std::uint16_t output_maximum) const
{
    return rounded_element((polarization_arctangent(s2_, s1_) + pi) / two_pi * output_maximum, output_maximum);
}

std::uint16_t Stokes_sum::dolp_element(std::uint16_t output_maximum) const
{
    if (s0_ == 0)
        return 0;
    return rounded_element(std::sqrt(s1_ * s1_ + s2_ * s2_) / s0_ * output_maximum, output_maximum);
}

}  // namespace ksi_cli
