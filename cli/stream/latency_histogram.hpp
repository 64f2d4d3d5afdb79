// Median and maximum of latencies over a stream of any length, in fixed
// memory: bins of about 3% relative width over microseconds.
#ifndef KSI_STREAM_LATENCY_HISTOGRAM_HPP
#define KSI_STREAM_LATENCY_HISTOGRAM_HPP

#include <array>
#include <cstdint>

namespace ksi_cli {

class Latency_histogram {
public:
    void add(std::uint64_t microseconds);
    std::uint64_t count() const noexcept { return count_; }
    std::uint64_t maximum() const noexcept { return maximum_; }
    // The middle of the bin that holds the median; 0 when empty.
    double median() const;

private:
    // Below 32 one bin per microsecond; above, 32 bins per doubling.
    static constexpr unsigned exact_bins = 32;
    static constexpr unsigned bins_per_octave = 32;
    static constexpr unsigned bin_count = exact_bins + bins_per_octave * 59;

    static unsigned bin_of(std::uint64_t microseconds);
    static double bin_low(unsigned bin);

    std::array<std::uint64_t, bin_count> counts_{};
    std::uint64_t count_ = 0;
    std::uint64_t maximum_ = 0;
};

}  // namespace ksi_cli

#endif
