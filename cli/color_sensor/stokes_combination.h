// The Stokes vector summed over colour planes, and its angle and degree as
// 16-bit elements.
//
// Every step is a basic IEEE double operation (+ - * / sqrt, comparisons,
// floor) in a fixed order, and the arctangent is our own, so that the Python
// package, which evaluates the same steps in the same order with numpy,
// gets the same elements bit for bit (numpy's arctan2 may differ from the C
// library's in the last bit, and a last bit can move a rounded element).
//
// With M the output maximum, for the planes of a sum (R, G1, G2, B for the
// combined outputs; R; G1, G2; B for the channels), each with its library
// S0 element s (an integer) and normalized pair (n1, n2) (float32 widened to
// double), in that order, from S0 = S1 = S2 = 0:
//   S0 = S0 + s
//   S1 = S1 + (valid ? s * n1 : 0),  S2 = S2 + (valid ? s * n2 : 0)
// where valid means s > 0 and n1, n2 finite (a plane whose S0 element is 0
// carries no light; a pair that is not finite carries no direction). Then
//   aolp = clamp(floor((atan2(S2, S1) + pi) / (2 pi) * M + 0.5), 0, M)
//   dolp = S0 == 0 ? 0 : clamp(floor(sqrt(S1 S1 + S2 S2) / S0 * M + 0.5), 0, M)
// with atan2 as polarization_arctangent below.
#pragma once

#include <cstdint>

namespace ksi_cli {

// atan2(y, x) in (-pi, pi], 0 for (0, 0), within 2e-12 of the exact value:
//   a = |x|, b = |y|; steep = b > a; t = steep ? a / b : b / a   (0 <= t <= 1)
//   upper = t > sqrt(2) - 1 (tan pi/8, as the double sqrt(2.0) - 1.0)
//   u = upper ? (t - 1) / (t + 1) : t                    (|u| <= tan pi/8)
//   r = u * p(u u), p(z) = c0 + z (c1 + z (c2 + ... + z c12)), ck = (-1)^k / (2k + 1)
//       (the first 13 terms of the arctangent's series; the first left out,
//       u^27 / 27, is below 2e-12 for |u| <= tan pi/8)
//   r = upper ? pi/4 + r : r;  r = steep ? pi/2 - r : r
//   r = x < 0 ? pi - r : r;    r = y < 0 ? -r : r
// pi is the double nearest pi; pi/2 and pi/4 are it halved.
double polarization_arctangent(double y, double x);

class Stokes_sum {
public:
    void add(std::uint16_t s0, float normalized_s1, float normalized_s2);

    std::uint16_t aolp_element(std::uint16_t output_maximum) const;
    std::uint16_t dolp_element(std::uint16_t output_maximum) const;

    double s0() const { return s0_; }
    double s1() const { return s1_; }
    double s2() const { return s2_; }

private:
    double s0_ = 0;
    double s1_ = 0;
    double s2_ = 0;
};

}  // namespace ksi_cli
