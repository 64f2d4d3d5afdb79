// Which of S0, S1 and S2 a set of present slots needs, in either kind of
// evaluation: S0 feeds slots 0, 1 and 5; S1 slots 0, 2, 4 and 5; S2 slots
// 0, 3, 4 and 5. A quantity no slot needs is not computed.
#pragma once

template <bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth, bool Has_dolp>
struct Stokes_needs {
    static constexpr bool s0 = Has_normalized_pair || Has_s0 || Has_dolp;
    static constexpr bool s1 = Has_normalized_pair || Has_s1 || Has_azimuth || Has_dolp;
    static constexpr bool s2 = Has_normalized_pair || Has_s2 || Has_azimuth || Has_dolp;
};
