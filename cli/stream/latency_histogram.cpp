#include "latency_histogram.hpp"

#include <algorithm>
#include <cmath>

namespace ksi_cli {

unsigned Latency_histogram::bin_of(std::uint64_t microseconds)
{
    if (microseconds < exact_bins)
        return static_cast<unsigned>(microseconds);
    const unsigned octave = 63 - static_cast<unsigned>(__builtin_clzll(microseconds));  // 5 or more
    const unsigned step = octave - 5;
    const unsigned within = static_cast<unsigned>(microseconds >> step) & (bins_per_octave - 1);
    return exact_bins + step * bins_per_octave + within;
}

double Latency_histogram::bin_low(unsigned bin)
{
    if (bin < exact_bins)
        return bin;
    const unsigned step = (bin - exact_bins) / bins_per_octave;
    const unsigned within = (bin - exact_bins) % bins_per_octave;
    return std::ldexp(static_cast<double>(bins_per_octave + within), static_cast<int>(step));
}

void Latency_histogram::add(std::uint64_t microseconds)
{
    ++counts_[bin_of(microseconds)];
    ++count_;
    maximum_ = std::max(maximum_, microseconds);
}

double Latency_histogram::median() const
{
    if (count_ == 0)
        return 0;
    const std::uint64_t middle = (count_ + 1) / 2;
    std::uint64_t seen = 0;
    for (unsigned bin = 0; bin < bin_count; ++bin) {
        seen += counts_[bin];
        if (seen >= middle)
            return std::min((bin_low(bin) + bin_low(bin + 1)) / 2, static_cast<double>(maximum_));
    }
    return static_cast<double>(maximum_);
}

}  // namespace ksi_cli
