#ifndef TAV_TOOLS_HISTOGRAM_H
#define TAV_TOOLS_HISTOGRAM_H

#include <atomic>
#include <cstddef>
#include <vector>

namespace tav {
namespace tool {

/// Counts of numbers from 0 to 2^36, each known to a thousandth of itself.  Any threads may put numbers in;
/// who asks while they do gets what was there at about that time.
class Histogram {
public:
    typedef unsigned long long Number;

    Histogram() : counts_(places) {}

    void put(Number value) {
        value = value > largest ? largest : value;
        counts_[placeOf(value)].fetch_add(1, std::memory_order_relaxed);
        sum_.fetch_add(value, std::memory_order_relaxed);
        Number known = most_.load(std::memory_order_relaxed);
        while (value > known && !most_.compare_exchange_weak(known, value, std::memory_order_relaxed)) {
        }
    }

    Number count() const {
        Number all = 0;
        for (auto const & each : counts_) {
            all += each.load(std::memory_order_relaxed);
        }
        return all;
    }
    Number most() const { return most_; }
    double mean() const {
        Number const all = count();
        return all == 0 ? 0 : static_cast<double>(sum_.load()) / static_cast<double>(all);
    }
    /// The number that so much of a hundred are not above; 0 if there is none.
    Number percentile(double percent) const {
        Number const all = count();
        double const wanted = percent / 100 * static_cast<double>(all);
        Number seen = 0;
        for (std::size_t i = 0; i < places; ++i) {
            seen += counts_[i].load(std::memory_order_relaxed);
            if (seen > 0 && static_cast<double>(seen) >= wanted) {
                Number const top = topOf(i);
                return top < most_ ? top : most();
            }
        }
        return most();
    }

private:
    static constexpr std::size_t half = 1024;
    static constexpr unsigned shifts = 26;
    static constexpr std::size_t places = (shifts + 2) * half;
    static constexpr Number largest = 1ull << 36;

    static std::size_t placeOf(Number value) {
        unsigned shift = 0;
        while (value >> shift >= 2 * half) {
            ++shift;
        }
        return shift * half + static_cast<std::size_t>(value >> shift);
    }
    /// The largest number of a place.
    static Number topOf(std::size_t place) {
        if (place < 2 * half) {
            return place;
        }
        std::size_t const shift = place / half - 1;
        return ((static_cast<Number>(place - shift * half) + 1) << shift) - 1;
    }

    std::vector<std::atomic<Number>> counts_;
    std::atomic<Number> sum_{0};
    std::atomic<Number> most_{0};
};

} // namespace tool
} // namespace tav

#endif
