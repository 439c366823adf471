#include "view/view_statistics.hpp"

#include "veldrane_mrv/polarization/units.hpp"
#include "veldrane_mrv/polarization/validity.hpp"
#include "view/stokes_reduction.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace polarize_tool {
namespace {

using polarization::Plane;
using polarization::Region;
using polarization::Scale;
using polarization::Validity;

constexpr std::size_t rows_at_a_time = 64;
constexpr std::int32_t ratio_of_one = 32767;
// Pixels of no worth as a measurement. Weak ones are worth theirs: without them the mean of the
// degree would be too large.
constexpr unsigned left_out = polarization::bit_of(Validity::saturated) |
                              polarization::bit_of(Validity::below_dark) |
                              polarization::bit_of(Validity::bad_pixel);

/// How often each element occurs, from which all sums are exact.
class Counts {
public:
    void add(std::size_t index) {
        ++counts_[index];
        begin_ = std::min(begin_, index);
        end_ = std::max(end_, index + 1);
    }

    void clear() {
        std::fill(
            counts_.begin() + static_cast<std::ptrdiff_t>(begin()),
            counts_.begin() + static_cast<std::ptrdiff_t>(end()), 0U);
        begin_ = size;
        end_ = 0;
    }

    std::uint32_t operator[](std::size_t index) const { return counts_[index]; }
    /// The first one that occurs, and the one behind the last; 0 for both if there are none.
    std::size_t begin() const { return std::min(begin_, end_); }
    std::size_t end() const { return end_; }

private:
    static constexpr std::size_t size = 65536;

    std::vector<std::uint32_t> counts_ = std::vector<std::uint32_t>(size, 0);
    std::size_t begin_ = size;
    std::size_t end_ = 0;
};

/// @param value_of what an index of `counts` stands for: evenly spaced, growing
template <class Value_of>
void fill_moments(Quantity_statistics& result, Counts const& counts, Value_of const& value_of) {
    std::uint64_t total = 0;
    std::uint64_t sum = 0;
    for (std::size_t index = counts.begin(); index < counts.end(); ++index) {
        total += counts[index];
        sum += std::uint64_t{index} * counts[index];
    }
    if (total == 0) {
        return;
    }
    double const mean = static_cast<double>(sum) / static_cast<double>(total);
    double squares = 0.0;
    for (std::size_t index = counts.begin(); index < counts.end(); ++index) {
        double const beyond = static_cast<double>(index) - mean;
        squares += beyond * beyond * counts[index];
    }
    double const step = value_of(1.0) - value_of(0.0);
    result.mean = value_of(mean);
    result.deviation = step * std::sqrt(squares / static_cast<double>(total));
    result.least = value_of(static_cast<double>(counts.begin()));
    result.largest = value_of(static_cast<double>(counts.end() - 1));
}

/// Bars of whole levels each, over the levels that there are: bars of a level more or less than
/// their neighbours would make a comb of an even spread.
/// @param level indices from one level that elements can have to the next, at least 1
template <class Value_of>
void fill_histogram(
    Quantity_statistics& result, Counts const& counts, double level, Value_of const& value_of) {
    auto const level_of = [&](std::size_t index) {
        return static_cast<std::size_t>(std::lround(static_cast<double>(index) / level));
    };
    std::size_t const first = level_of(counts.begin());
    std::size_t const levels = level_of(std::max(counts.end(), std::size_t{1}) - 1) + 1 - first;
    std::size_t const step = squares_in(levels, Quantity_statistics::most_steps);
    result.counts.resize(squares_in(levels, step));
    for (std::size_t index = counts.begin(); index < counts.end(); ++index) {
        result.counts[(level_of(index) - first) / step] += counts[index];
    }
    std::size_t const end = first + step * result.counts.size();
    result.from = value_of(static_cast<double>(first) * level);
    result.to = value_of(static_cast<double>(end) * level);
}

template <class Value_of>
Quantity_statistics quantity_of(
    std::string name, std::string unit, Counts const& counts, double level,
    Value_of const& value_of) {
    Quantity_statistics result{std::move(name), std::move(unit), {}, {}, {}, {}};
    fill_moments(result, counts, value_of);
    fill_histogram(result, counts, level, value_of);
    return result;
}

} // namespace

/// What rows of a region add up to.
class Statistics_making::Gathering {
public:
    explicit Gathering(Scale const& scale) : scale_{scale} {}

    void clear() {
        for (Counts* const counts : {&s0_, &dolp_, &s1_s0_, &s2_s0_, &raw_}) {
            counts->clear();
        }
        angles_.fill(0);
        valid_ = 0;
        directions_ = 0;
        sum_s1_ = 0.0;
        sum_s2_ = 0.0;
        lengths_ = 0.0;
    }

    void add(
        std::span<std::uint16_t const> s0, std::span<std::uint16_t const> dolp,
        std::span<std::uint16_t const> azimuth, std::span<std::int32_t const> s1,
        std::span<std::int32_t const> s2, std::span<std::uint16_t const> samples,
        std::span<std::uint8_t const> validity) {
        intensities_.assign(s0.begin(), s0.end());
        first_ratios_.resize(s0.size());
        second_ratios_.resize(s0.size());
        ratios_of(s1, intensities_, first_ratios_);
        ratios_of(s2, intensities_, second_ratios_);
        for (std::size_t pixel = 0; pixel < s0.size(); ++pixel) {
            if ((validity[pixel] & left_out) != 0) {
                continue;
            }
            ++valid_;
            s0_.add(s0[pixel]);
            raw_.add(samples[pixel]);
            if (s0[pixel] > 0) {
                dolp_.add(dolp[pixel]);
                std::int32_t const first = first_ratios_[pixel] + ratio_of_one;
                std::int32_t const second = second_ratios_[pixel] + ratio_of_one;
                s1_s0_.add(static_cast<std::size_t>(first));
                s2_s0_.add(static_cast<std::size_t>(second));
            }
            if (s1[pixel] != 0 || s2[pixel] != 0) {
                add_direction(azimuth[pixel], s1[pixel], s2[pixel]);
            }
        }
    }

    std::size_t valid() const { return valid_; }

    std::vector<Quantity_statistics> quantities() const {
        double const full = scale_.full_scale();
        double const step = scale_.sample_units_per_step();
        auto const in_samples = [step](double index) { return index * step; };
        auto const as_it_is = [](double index) { return index; };
        auto const of_full = [full](double index) { return index / full; };
        auto const ratio = [](double index) { return (index - ratio_of_one) / ratio_of_one; };
        // Fast S0 is half the sum of four samples.
        double const level = std::max(1.0, 0.5 / step);
        return {
            quantity_of("s0", "sample", s0_, level, in_samples),
            quantity_of("dolp", "1", dolp_, 1.0, of_full),
            angle(),
            quantity_of("s1_s0", "1", s1_s0_, 1.0, ratio),
            quantity_of("s2_s0", "1", s2_s0_, 1.0, ratio),
            quantity_of("raw", "sample", raw_, 1.0, as_it_is)};
    }

private:
    void add_direction(std::uint16_t azimuth, double s1, double s2) {
        constexpr double steps = Quantity_statistics::most_steps;
        double const angle = polarization::angle_of_azimuth(azimuth, scale_);
        auto const step = static_cast<std::size_t>(angle / 180.0 * steps);
        ++angles_[std::min(step, Quantity_statistics::most_steps - 1)];
        ++directions_;
        last_angle_ = angle;
        sum_s1_ += s1;
        sum_s2_ += s2;
        lengths_ += std::sqrt(s1 * s1 + s2 * s2);
    }

    Quantity_statistics angle() const {
        constexpr double degrees = 180.0 / std::numbers::pi;
        Quantity_statistics result{"azimuth", "degree", {}, {}, {}, {}};
        result.to = 180.0;
        result.counts.assign(angles_.begin(), angles_.end());
        double const length = std::hypot(sum_s1_, sum_s2_);
        if (length > 0.0) {
            double const concentration = std::min(length / lengths_, 1.0);
            // Of a single pixel there is an angle already, and its plane has it by a polynomial.
            result.mean =
                directions_ == 1
                    ? last_angle_
                    : polarization::within_half_turn(std::atan2(sum_s2_, sum_s1_) / 2.0 * degrees);
            result.deviation =
                std::sqrt(std::max(0.0, -2.0 * std::log(concentration))) / 2.0 * degrees;
        }
        return result;
    }

    Scale scale_;
    Counts s0_;
    Counts dolp_;
    Counts s1_s0_;
    Counts s2_s0_;
    Counts raw_;
    std::array<std::uint64_t, Quantity_statistics::most_steps> angles_{};
    std::size_t valid_ = 0;
    std::size_t directions_ = 0;
    double last_angle_ = 0.0;
    double sum_s1_ = 0.0;
    double sum_s2_ = 0.0;
    double lengths_ = 0.0;
    std::vector<std::int32_t> intensities_;
    std::vector<std::int16_t> first_ratios_;
    std::vector<std::int16_t> second_ratios_;
};

Statistics_making::Statistics_making(
    polarization::Settings const& settings, polarization::Mode mode)
    : planes_{settings, mode}, gathering_{std::make_unique<Gathering>(settings.scale)} {}

Statistics_making::~Statistics_making() = default;
Statistics_making::Statistics_making(Statistics_making&& other) noexcept = default;
Statistics_making& Statistics_making::operator=(Statistics_making&& other) noexcept = default;

View_statistics Statistics_making::make(Frame_samples const& frame, Region const& region) {
    View_statistics result;
    result.pixels = region.width * region.height;
    gathering_->clear();
    std::size_t const region_end = region.row + region.height;
    for (std::size_t begin = region.row; begin < region_end; begin += rows_at_a_time) {
        std::size_t const end = std::min(begin + rows_at_a_time, region_end);
        planes_.compute(
            frame, begin, end, {{Plane::s0, Plane::azimuth, Plane::dolp, Plane::validity}, true});
        for (std::size_t row = begin; row < end; ++row) {
            auto const part = [&](auto elements) {
                return elements.subspan(region.column, region.width);
            };
            gathering_->add(
                part(planes_.row(Plane::s0, row)), part(planes_.row(Plane::dolp, row)),
                part(planes_.row(Plane::azimuth, row)), part(planes_.s1(row)),
                part(planes_.s2(row)), part(frame.view.row(row)), part(planes_.validity(row)));
        }
    }
    result.valid_pixels = gathering_->valid();
    result.quantities = gathering_->quantities();
    return result;
}

} // namespace polarize_tool
