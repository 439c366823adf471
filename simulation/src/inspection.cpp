#include "veldrane_mrv/polarization/inspection.hpp"

#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace veldrane_mrv::polarization {
namespace {

// Neighbouring phases put the polariser 45 degrees apart at best. A third of that as the largest
// error of alignment leaves the second best beyond reach.
constexpr double largest_deviation = 15.0;
constexpr double least_lead = 15.0;

// Light behind a polariser comes out fully polarised; extinction ratios, stray light and unequal
// analysers take from that, hardly more than half.
constexpr double least_degree = 0.3;

constexpr std::array customary_depths{8, 10, 12, 14, 16};

std::vector<std::size_t> count_values(Frame_view const& frame) {
    std::vector<std::size_t> counts(65536, 0);
    for (std::uint16_t const sample : frame.samples()) {
        ++counts[sample];
    }
    return counts;
}

int customary_depth(int bits) {
    return *std::find_if(customary_depths.begin(), customary_depths.end(), [bits](int depth) {
        return depth >= bits;
    });
}

Depth_use depth_use(std::vector<std::size_t> const& counts, std::optional<int> bit_depth) {
    unsigned all_bits = 0;
    std::size_t distinct = 0;
    for (unsigned value = 0; value < counts.size(); ++value) {
        if (counts[value] != 0) {
            all_bits |= value;
            ++distinct;
        }
    }
    auto const used = static_cast<int>(std::bit_width(all_bits));
    int const zeros = all_bits == 0 ? 0 : std::countr_zero(all_bits);
    int const low_zeros = zeros >= 2 && used > 8 ? zeros : 0;
    int const depth = bit_depth.value_or(customary_depth(used - low_zeros));
    // Samples that a depth holds as they are lie at the low end, whatever their low bits; others
    // may be multiples of a higher power of two than their place requires.
    int const shift = bit_depth && used <= *bit_depth ? 0 : std::min(low_zeros, 16 - depth);
    return {used, zeros, distinct, depth, shift};
}

// A converter of fewer bits than the samples have leaves low zeros in each of them and saturates at
// the largest multiple that fits. Eight bits at least remain: the few values of a flat frame share
// more zeros than any converter leaves.
unsigned saturation_level(Inspection const& inspection) {
    Depth_use const& depth = inspection.depth;
    int const zeros =
        std::min(depth.zero_low_bits - depth.shift, std::max(depth.assumed_depth - 8, 0));
    return inspection.full_scale() & (~0U << (depth.shift + zeros));
}

std::array<Position_means, 4> position_means(Frame_view const& frame) {
    std::array<std::uint64_t, 4> sums{};
    std::array<std::uint64_t, 4> counts{};
    std::array<Position_means, 4> positions;
    positions.fill({0.0, 65535, 0});
    for (std::size_t row = 0; row < frame.height(); ++row) {
        auto const samples = frame.row(row);
        for (std::size_t column = 0; column < samples.size(); ++column) {
            std::size_t const position = cell_position(row, column);
            unsigned const sample = samples[column];
            sums[position] += sample;
            ++counts[position];
            positions[position].smallest = std::min(positions[position].smallest, sample);
            positions[position].largest = std::max(positions[position].largest, sample);
        }
    }
    for (std::size_t position = 0; position < positions.size(); ++position) {
        positions[position].mean =
            static_cast<double>(sums[position]) / static_cast<double>(counts[position]);
    }
    return positions;
}

double distance(double a, double b) {
    double const apart = within_half_turn(a - b);
    return std::min(apart, 180.0 - apart);
}

// Sum over the cell of each mean times a function of the angle of its polariser.
double projected(
    std::array<Position_means, 4> const& positions, Mosaic const& mosaic, int positive,
    int negative) {
    double sum = 0.0;
    for (std::size_t position = 0; position < positions.size(); ++position) {
        int const angle = mosaic.layout()[position];
        sum += angle == positive ? positions[position].mean : 0.0;
        sum -= angle == negative ? positions[position].mean : 0.0;
    }
    return sum;
}

std::string whole(double degrees) {
    return std::to_string(std::lround(degrees));
}

std::string explain(Phase_answer const& answer, double polariser_angle) {
    Phase_candidate const& best = answer.candidates[0];
    Phase_candidate const& second = answer.candidates[1];
    std::string const given = whole(within_half_turn(polariser_angle));
    if (answer.degree < least_degree) {
        return "The light is polarised by " + whole(100.0 * answer.degree) +
               " per cent only: this is no frame of a source behind a linear polariser, or it is "
               "saturated. Fill the view with an evenly lit surface behind the polariser.";
    }
    if (best.deviation > largest_deviation) {
        return "No phase puts the polariser near " + given + " degrees; the nearest, phase " +
               std::to_string(best.phase) + ", puts it at " + whole(best.angle) +
               ". Check the angle: 0 lies along the rows, and angles grow counter-clockwise.";
    }
    if (second.deviation - best.deviation < least_lead) {
        return "Phases " + std::to_string(best.phase) + " and " + std::to_string(second.phase) +
               " put the polariser equally near " + given +
               " degrees. Turn it to 0 (along the rows), 45, 90 or 135 degrees, where the four "
               "phases lie 45 degrees apart.";
    }
    return "Phase " + std::to_string(best.phase) + ": it puts the polariser at " +
           whole(best.angle) + " degrees, given " + given + "; the next, phase " +
           std::to_string(second.phase) + ", is " + whole(second.deviation) + " degrees off.";
}

} // namespace

unsigned Inspection::full_scale() const {
    return ((1U << depth.assumed_depth) - 1U) << depth.shift;
}

Inspection inspect(
    Frame_view const& frame, std::optional<int> bit_depth, std::size_t histogram_steps) {
    Balance const balance = check_balance(frame);
    std::vector<std::size_t> const counts = count_values(frame);
    Inspection result{
        .height = frame.height(),
        .width = frame.width(),
        .mean = 0.0,
        .smallest = 65535,
        .largest = 0,
        .depth = depth_use(counts, bit_depth),
        .saturated = 0,
        .at_largest = 0,
        .positions = position_means(frame),
        .histogram = std::vector<std::size_t>(histogram_steps, 0),
        .histogram_end = 0,
        .balance = balance};
    unsigned const saturated = saturation_level(result);
    result.histogram_end = result.full_scale() + 1U;
    double sum = 0.0;
    for (unsigned value = 0; value < counts.size(); ++value) {
        if (counts[value] == 0) {
            continue;
        }
        result.smallest = std::min(result.smallest, value);
        result.largest = value;
        result.at_largest = counts[value];
        result.saturated += value >= saturated ? counts[value] : 0;
        sum += static_cast<double>(value) * static_cast<double>(counts[value]);
        std::size_t const step =
            std::min(value * histogram_steps / result.histogram_end, histogram_steps - 1);
        result.histogram[step] += counts[value];
    }
    result.mean = sum / static_cast<double>(frame.pixels());
    return result;
}

Phase_answer phase_behind_polariser(
    std::array<Position_means, 4> const& positions, double polariser_angle) {
    Phase_answer answer{};
    double total = 0.0;
    for (Position_means const& position : positions) {
        total += position.mean;
    }
    for (Mosaic const& mosaic : all_mosaics()) {
        double const s1 = projected(positions, mosaic, 0, 90);
        double const s2 = projected(positions, mosaic, 45, 135);
        double const angle = within_half_turn(0.5 * std::atan2(s2, s1) * 180.0 / std::numbers::pi);
        answer.candidates[static_cast<std::size_t>(mosaic.phase())] = {
            mosaic.phase(), angle, distance(angle, polariser_angle)};
        answer.degree = total > 0.0 ? std::hypot(s1, s2) / (0.5 * total) : 0.0;
    }
    std::stable_sort(
        answer.candidates.begin(), answer.candidates.end(),
        [](Phase_candidate const& a, Phase_candidate const& b) {
            return a.deviation < b.deviation;
        });
    Phase_candidate const& best = answer.candidates[0];
    bool const is_clear = answer.candidates[1].deviation - best.deviation >= least_lead;
    if (answer.degree >= least_degree && best.deviation <= largest_deviation && is_clear) {
        answer.phase = best.phase;
    }
    answer.explanation = explain(answer, polariser_angle);
    return answer;
}

} // namespace veldrane_mrv::polarization
