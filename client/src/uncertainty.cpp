#include "veldrane_mrv/polarization/uncertainty.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include <emmintrin.h>

namespace veldrane_mrv::polarization {
namespace {

// Four pixels of the same position in the cell. Every x86-64 has these registers.
using Lanes = __m128;

Lanes lanes(float value) {
    return _mm_set1_ps(value);
}

Lanes blend(Lanes condition, Lanes if_true, Lanes if_false) {
    return _mm_or_ps(_mm_and_ps(condition, if_true), _mm_andnot_ps(condition, if_false));
}

// The largest ratio up to which the median estimator finds no polarisation, squared: 2 ln 2.
constexpr float median_without_signal = 2 * std::numbers::ln2_v<float>;

// Beyond it powers would overflow, and linear propagation holds to the last bit.
constexpr float largest_ratio = 1e6F;

// Where the rational functions have their argument: 0 up to the median without polarisation.
Lanes excess_of(Lanes squared_ratio) {
    Lanes const excess = _mm_max_ps(squared_ratio - lanes(median_without_signal), lanes(0));
    return _mm_min_ps(excess, lanes(largest_ratio * largest_ratio));
}

// Rational functions that were fitted to the two deviations over the median estimate; at 0 they
// have the exact values, 2 - pi / 2 and half a turn / sqrt(12), and without bound they tend to
// those of linear propagation.
Lanes degree_variance_factor(Lanes excess) {
    constexpr float at_zero = 16.9597258F;
    constexpr float reduced = at_zero * (2 - std::numbers::pi_v<float> / 2);
    return (lanes(reduced) + excess * (lanes(8.85358507F) + excess)) /
           (lanes(at_zero) + excess * (lanes(9.06359653F) + excess));
}

Lanes deviation_of_angle(Lanes excess) {
    constexpr float half_radian = 90 / std::numbers::pi_v<float>;
    constexpr float at_zero = 8.02375223F;
    constexpr float divisor_at_zero =
        at_zero * std::numbers::sqrt3_v<float> / std::numbers::pi_v<float>;
    Lanes const x = _mm_sqrt_ps(excess);
    Lanes const dividend =
        lanes(at_zero) + x * (lanes(0.35367722F) + x * (lanes(-1.14026392F) + x));
    Lanes const divisor =
        lanes(divisor_at_zero) +
        x * (lanes(2.0177092F) + x * (lanes(1.67305333F) + x * (lanes(-1.25064443F) + x)));
    return lanes(half_radian) * dividend / divisor;
}

/// Stokes quantities of four pixels and their covariances.
struct Stokes {
    Lanes s0 = lanes(0);
    Lanes s1 = lanes(0);
    Lanes s2 = lanes(0);
    Lanes var_0 = lanes(0);
    Lanes var_1 = lanes(0);
    Lanes var_2 = lanes(0);
    Lanes cov_01 = lanes(0);
    Lanes cov_02 = lanes(0);
    Lanes cov_12 = lanes(0);

    void add(Lanes signal, Lanes variance, Lanes weight_0, Lanes weight_1, Lanes weight_2) {
        s0 += weight_0 * signal;
        s1 += weight_1 * signal;
        s2 += weight_2 * signal;
        Lanes const of_0 = weight_0 * variance;
        Lanes const of_1 = weight_1 * variance;
        var_0 += of_0 * weight_0;
        cov_01 += of_0 * weight_1;
        cov_02 += of_0 * weight_2;
        var_1 += of_1 * weight_1;
        cov_12 += of_1 * weight_2;
        var_2 += weight_2 * variance * weight_2;
    }
};

/// What scatters in four pixels. Squares, as they come.
struct Scatter {
    Lanes s0;
    Lanes degree_along;
    /// Degree over its deviation along, and across.
    Lanes ratio_along;
    Lanes ratio_across;
};

// Of four pixels with S0 above 0. The weights of S0 give twice S0.
Scatter scatter_of(Stokes const& sum) {
    Lanes const per_s0 = lanes(2) / sum.s0;
    Lanes const q = sum.s1 * per_s0;
    Lanes const u = sum.s2 * per_s0;
    Lanes const of_s0 = sum.var_0 * lanes(0.25F);
    Lanes const with_1 = sum.cov_01 * lanes(0.5F);
    Lanes const with_2 = sum.cov_02 * lanes(0.5F);
    Lanes const squared = per_s0 * per_s0;
    Lanes const var_q = (sum.var_1 - q * (with_1 + with_1 - q * of_s0)) * squared;
    Lanes const var_u = (sum.var_2 - u * (with_2 + with_2 - u * of_s0)) * squared;
    Lanes const cov_qu = (sum.cov_12 - q * with_2 - u * (with_1 - q * of_s0)) * squared;
    // Without a direction the mean of all: far below the square of any degree that there can be.
    Lanes const no_direction = lanes(1e-20F);
    Lanes const mean = (var_q + var_u) * lanes(0.5F) * no_direction;
    Lanes const crossed = lanes(2) * q * u * cov_qu;
    Lanes const degree = q * q + u * u;
    Lanes const norm = degree + no_direction;
    Lanes const least = lanes(1e-20F);
    Lanes const along = _mm_max_ps((q * q * var_q + u * u * var_u + crossed + mean) / norm, least);
    Lanes const across = _mm_max_ps((q * q * var_u + u * u * var_q - crossed + mean) / norm, least);
    return {of_s0, along, degree / along, degree / across};
}

// Columns that are handled at once: four even ones and four odd ones.
constexpr std::size_t columns_at_once = 8;

/// Of four pixels in every second column: a sample and its horizontal neighbour.
struct Pairs {
    Lanes own;
    Lanes horizontal;

    Pairs(float const* even, bool is_odd) {
        Lanes const first = _mm_loadu_ps(even);
        Lanes const second = _mm_loadu_ps(even + 4);
        Lanes const odd = _mm_shuffle_ps(first, second, 0xDD);
        own = is_odd ? odd : _mm_shuffle_ps(first, second, 0x88);
        horizontal =
            is_odd ? _mm_shuffle_ps(_mm_loadu_ps(even + 2), _mm_loadu_ps(even + 6), 0x88) : odd;
    }
};

/// The first three rows of the matrices of four pixels.
struct Weights {
    Lanes element[12]; // a container's template would lose the alignment
};

Weights weights_of(std::array<float, 16> const& matrix) {
    Weights weights;
    for (std::size_t element = 0; element < 12; ++element) {
        weights.element[element] = lanes(matrix[element]);
    }
    return weights;
}

// Steps of eight pixels for each weight, of which four are wanted.
Weights moved(Weights weights, std::int16_t const* steps) {
    for (Lanes& weight : weights.element) {
        __m128i const four = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(steps));
        __m128i const whole = _mm_srai_epi32(_mm_unpacklo_epi16(four, four), 16);
        weight += _mm_cvtepi32_ps(whole) * lanes(Sensor_tables::weight_step);
        steps += 8;
    }
    return weights;
}

Stokes stokes_of(
    Weights const& weights, std::array<Pairs, 2> const& signals,
    std::array<Pairs, 2> const& variances) {
    Stokes sum;
    Lanes const* weight = weights.element;
    for (std::size_t row = 0; row < 2; ++row, weight += 2) {
        sum.add(signals[row].own, variances[row].own, weight[0], weight[4], weight[8]);
        sum.add(
            signals[row].horizontal, variances[row].horizontal, weight[1], weight[5], weight[9]);
    }
    return sum;
}

} // namespace

Noise_model const& noise_of(Settings const& settings) {
    if (!settings.noise) {
        throw Argument_error{
            "the noise model", "not there",
            "give electrons per count and read noise, or a calibration that measured them"};
    }
    check(*settings.noise);
    return *settings.noise;
}

float degree_deviation_factor(float ratio) {
    return std::sqrt(_mm_cvtss_f32(degree_variance_factor(excess_of(lanes(ratio * ratio)))));
}

float angle_deviation(float ratio) {
    return _mm_cvtss_f32(deviation_of_angle(excess_of(lanes(ratio * ratio))));
}

/// Of four even columns and the four odd ones among them.
struct Uncertainty_estimator::Eight_pixels {
    std::size_t row;
    std::size_t column;
    Lanes has_light[2];
    Scatter scatter[2];

    void add(Stokes sum, std::size_t parity) {
        has_light[parity] = _mm_cmpgt_ps(sum.s0, lanes(0));
        sum.s0 = blend(has_light[parity], sum.s0, lanes(1));
        scatter[parity] = scatter_of(sum);
    }
};

Uncertainty_estimator::Uncertainty_estimator(Settings const& settings, Mode mode)
    : settings_{settings}, has_tables_{mode == Mode::calibrated && settings.tables != nullptr} {
    if (mode == Mode::fast) {
        settings_.matrices = ideal_matrices(settings.mosaic);
    } else if (has_tables_) {
        settings_.matrices = settings.tables->position_matrices();
    }
    Noise_model const& noise = noise_of(settings);
    double const read_noise = noise.read_noise / noise.electrons_per_count;
    variance_per_count_ = static_cast<float>(1 / noise.electrons_per_count);
    dark_variance_ = static_cast<float>(read_noise * read_noise + 1.0 / 12);
}

void Uncertainty_estimator::read_row(Band const& band, std::size_t row, Row& result) const {
    std::size_t const width = band.samples.width();
    std::uint16_t const* const samples = band.samples.row(row).data();
    float* const signals = result.signals.data();
    float* const variances = result.variances.data();
    if (has_tables_) {
        read_corrected(samples, band.first + row, width, signals, variances);
    } else {
        for (std::size_t column = 0; column < width; ++column) {
            signals[column] = samples[column];
            variances[column] = signals[column] * variance_per_count_ + dark_variance_;
        }
    }
    signals[width] = signals[width - 2];
    variances[width] = variances[width - 2];
}

void Uncertainty_estimator::read_corrected(
    std::uint16_t const* samples, std::size_t row, std::size_t width, float* signals,
    float* variances) const {
    Sensor_tables const& tables = *settings_.tables;
    float const unit = 1.0F / static_cast<float>(1 << tables.fraction_bits());
    auto const largest = static_cast<std::uint16_t>(settings_.scale.largest_sample());
    std::size_t const first = row * tables.padded_width();
    std::uint16_t const* const dark_levels = tables.dark_levels().data() + first;
    for (std::size_t column = 0; column < width; ++column) {
        float const sample = std::min(samples[column], largest);
        signals[column] = std::max(sample - dark_levels[column] * unit, 0.0F);
        variances[column] = signals[column] * variance_per_count_ + dark_variance_;
    }
    if (!tables.gains().empty()) {
        std::uint16_t const* const gains = tables.gains().data() + first;
        for (std::size_t column = 0; column < width; ++column) {
            float const gain = gains[column] / 32768.0F;
            signals[column] *= gain;
            variances[column] *= gain * gain;
        }
    }
}

template <class Consume>
void Uncertainty_estimator::for_each_eight(Band const& band, Consume const& consume) {
    std::size_t const width = band.samples.width();
    // The last vectors reach two columns beyond the last eight.
    std::size_t const room = (width + columns_at_once - 1) / columns_at_once * columns_at_once + 2;
    for (Row& row : rows_) {
        row.signals.assign(room, 0.0F);
        row.variances.assign(room, 0.0F);
    }
    Sensor_tables const* const tables = has_tables_ ? settings_.tables.get() : nullptr;
    bool const has_own_weights = tables != nullptr && tables->model() == Calibration_model::pixel;
    read_row(band, 0, rows_[0]);
    for (std::size_t row = 0; row < band.rows; ++row) {
        Row const& own = rows_[row % 2];
        Row& vertical = rows_[(row + 1) % 2]; // above the last row, which it holds already
        if (row + 1 < band.samples.height()) {
            read_row(band, row + 1, vertical);
        }
        std::array const by_position = {
            weights_of(settings_.matrices.by_position[cell_position(row, 0)]),
            weights_of(settings_.matrices.by_position[cell_position(row, 1)])};
        for (std::size_t column = 0; column < width; column += columns_at_once) {
            Eight_pixels eight{row, column, {}, {}};
            for (std::size_t parity = 0; parity < 2; ++parity) {
                auto const pairs = [&](std::vector<float> Row::*numbers) {
                    return std::array{
                        Pairs((own.*numbers).data() + column, parity == 1),
                        Pairs((vertical.*numbers).data() + column, parity == 1)};
                };
                // A pointer: a copy of the weights for every four pixels would be felt.
                Weights const* weights = &by_position[parity];
                Weights moved_weights;
                if (has_own_weights) {
                    std::size_t const group =
                        ((band.first + row) * tables->padded_width() + column) / 16;
                    moved_weights = moved(
                        *weights,
                        tables->weights().data() + (2 * group + parity) * 96 + column % 16 / 2);
                    weights = &moved_weights;
                }
                eight.add(
                    stokes_of(*weights, pairs(&Row::signals), pairs(&Row::variances)), parity);
            }
            consume(eight);
        }
    }
}

void Uncertainty_estimator::operator()(Band const& band, std::span<float> uncertainty) {
    std::size_t const width = band.samples.width();
    for_each_eight(band, [&](Eight_pixels const& eight) {
        constexpr float none = std::numeric_limits<float>::quiet_NaN();
        std::array<std::array<float, 4>, 6> numbers;
        for (std::size_t parity = 0; parity < 2; ++parity) {
            Scatter const& scatter = eight.scatter[parity];
            Lanes const excess = excess_of(scatter.ratio_across);
            Lanes const degree = _mm_sqrt_ps(scatter.degree_along * degree_variance_factor(excess));
            _mm_storeu_ps(numbers[3 * parity].data(), _mm_sqrt_ps(scatter.s0));
            _mm_storeu_ps(
                numbers[3 * parity + 1].data(),
                blend(eight.has_light[parity], degree, lanes(none)));
            _mm_storeu_ps(numbers[3 * parity + 2].data(), deviation_of_angle(excess));
        }
        std::size_t const count = std::min(columns_at_once, width - eight.column);
        float* pixel = uncertainty.data() + 3 * (eight.row * width + eight.column);
        for (std::size_t column = 0; column < count; ++column, pixel += 3) {
            for (std::size_t number = 0; number < 3; ++number) {
                pixel[number] = numbers[3 * (column % 2) + number][column / 2];
            }
        }
    });
}

void Uncertainty_estimator::mark_weak(
    Band const& band, std::uint8_t bit, std::span<std::uint8_t> marks) {
    std::size_t const width = band.samples.width();
    for_each_eight(band, [&](Eight_pixels const& eight) {
        std::array<unsigned, 2> told;
        for (std::size_t parity = 0; parity < 2; ++parity) {
            Lanes const is_strong = _mm_cmpge_ps(
                eight.scatter[parity].ratio_along, lanes(weakest_ratio * weakest_ratio));
            told[parity] = static_cast<unsigned>(
                _mm_movemask_ps(_mm_and_ps(is_strong, eight.has_light[parity])));
        }
        std::size_t const count = std::min(columns_at_once, width - eight.column);
        std::uint8_t* const pixels = marks.data() + eight.row * width + eight.column;
        for (std::size_t column = 0; column < count; ++column) {
            bool const is_weak = (told[column % 2] >> (column / 2) & 1) == 0;
            pixels[column] = static_cast<std::uint8_t>(pixels[column] | (is_weak ? bit : 0));
        }
    });
}

} // namespace veldrane_mrv::polarization
