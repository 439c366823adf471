#include "pixels/rows.hpp"

#include "pixels/correction.hpp"
#include "pixels/estimates.hpp"
#include "pixels/planes.hpp"

namespace weighted {
namespace {

Needs needs_of(Job const& job) {
    auto const& of = job.arguments;
    bool const all = of.normalized_stokes_image != nullptr || of.dolp_image != nullptr;
    bool const angle = all || of.azimuth_image != nullptr;
    return {
        .s0 = all || of.s0_image != nullptr,
        .s1 = angle || of.s1_image != nullptr || job.signed_s1 != nullptr,
        .s2 = angle || of.s2_image != nullptr || job.signed_s2 != nullptr};
}

template <typename Weights>
using Estimate = void (*)(Chunk_samples const&, Weights const&, Estimates&);

template <typename Weights>
Estimate<Weights> estimate_for(Needs const& needs) {
    if (needs.s1 && needs.s2) {
        return needs.s0 ? &estimate_chunk<Needs{true, true, true}, Weights>
                        : &estimate_chunk<Needs{false, true, true}, Weights>;
    }
    if (needs.s1) {
        return needs.s0 ? &estimate_chunk<Needs{true, true, false}, Weights>
                        : &estimate_chunk<Needs{false, true, false}, Weights>;
    }
    if (needs.s2) {
        return needs.s0 ? &estimate_chunk<Needs{true, false, true}, Weights>
                        : &estimate_chunk<Needs{false, false, true}, Weights>;
    }
    return &estimate_chunk<Needs{true, false, false}, Weights>;
}

bool is_rescaled(Polarization_computation_arguments const& arguments) {
    return arguments.maximum_output_value_integer != (1 << arguments.bit_depth) - 1;
}

// One pass over the chunk for each plane, whose estimates the first-level cache holds.
template <class Units>
void store_stokes_planes(
    Job const& job, std::size_t pixel, Chunk_columns const& columns, Estimates const& estimates,
    Full_scales const& scales) {
    auto const& of = job.arguments;
    if (of.s0_image != nullptr) {
        store_stokes<Units>(of.s0_image + pixel, columns, estimates.s0, scales);
    }
    if (of.s1_image != nullptr) {
        store_stokes<Units>(of.s1_image + pixel, columns, estimates.s1, scales);
    }
    if (of.s2_image != nullptr) {
        store_stokes<Units>(of.s2_image + pixel, columns, estimates.s2, scales);
    }
    if (job.signed_s1 != nullptr) {
        store_signed<Units>(job.signed_s1 + pixel, columns, estimates.s1, scales);
    }
    if (job.signed_s2 != nullptr) {
        store_signed<Units>(job.signed_s2 + pixel, columns, estimates.s2, scales);
    }
}

void store_planes(
    Job const& job, std::size_t pixel, Chunk_columns const& columns, Estimates const& estimates) {
    auto const& of = job.arguments;
    Full_scales const scales{_mm256_set1_ps(of.maximum_output_value), of.maximum_input_value};
    if (is_rescaled(of)) {
        store_stokes_planes<Rescaled>(job, pixel, columns, estimates, scales);
    } else {
        store_stokes_planes<In_sample_units>(job, pixel, columns, estimates, scales);
    }
    if (of.azimuth_image != nullptr) {
        store_azimuth(of.azimuth_image + pixel, columns, estimates, scales);
    }
    if (of.dolp_image != nullptr) {
        store_degree(of.dolp_image + pixel, columns, estimates, scales);
    }
    if (of.normalized_stokes_image != nullptr) {
        store_ratios(of.normalized_stokes_image + 2 * pixel, columns, estimates);
    }
}

// The columns behind the last group that has a column beside it: they are copied, and the column
// behind the row's last one is that before it, which is the last one's neighbour.
struct Last_columns {
    std::uint16_t own[2 * group_columns] = {};
    std::uint16_t vertical[2 * group_columns] = {};

    Last_columns(
        std::uint16_t const* own_row, std::uint16_t const* vertical_row, std::size_t begin,
        std::size_t width) {
        copy(own, own_row, begin, width);
        copy(vertical, vertical_row, begin, width);
    }

    static void copy(
        std::uint16_t* target, std::uint16_t const* row, std::size_t begin, std::size_t width) {
        for (std::size_t column = begin; column != width; ++column) {
            target[column - begin] = row[column];
        }
        target[width - begin] = row[width - 2];
    }
};

/// A row's samples and those of the row that its vertical neighbours are in.
struct Row_samples {
    std::uint16_t const* own;
    std::uint16_t const* vertical;
};

template <typename Weights>
void compute_row(
    Job const& job, std::size_t row, std::size_t first_column, Row_samples const& samples,
    Weights const& weights, Estimate<Weights> estimate, Estimates& estimates) {
    std::size_t const width = job.arguments.width;
    std::size_t const whole_groups = (width - 1) / group_columns;
    for (std::size_t group = first_column / group_columns; group != whole_groups;) {
        std::size_t const count =
            whole_groups - group < chunk_groups ? whole_groups - group : chunk_groups;
        std::size_t const column = group * group_columns;
        estimate(
            {samples.own + column, samples.vertical + column, count}, weights.from(group),
            estimates);
        store_planes(job, row * width + column, {count, 0}, estimates);
        group += count;
    }
    std::size_t const column = whole_groups * group_columns;
    Last_columns const last(samples.own, samples.vertical, column, width);
    estimate({last.own, last.vertical, 1}, weights.from(whole_groups), estimates);
    store_planes(job, row * width + column, {0, width - column}, estimates);
}

// Rows as they are, or corrected: a row and a neighbour, which differ in parity, are held at a
// time, so going down the frame each row is corrected once.
class Row_source {
public:
    explicit Row_source(Job const& job) : job_{job} {}

    std::uint16_t const* operator()(std::size_t row) {
        std::size_t const width = job_.arguments.width;
        std::uint16_t const* const samples = job_.arguments.raw_image + row * width;
        if (job_.dark_levels == nullptr) {
            return samples;
        }
        std::uint16_t* const target = job_.workspace + row % 2 * (corrected_samples(width) / 2);
        if (held_[row % 2] != row) {
            correct_row(job_, row, samples, target);
            held_[row % 2] = row;
        }
        return target;
    }

private:
    Job const& job_;
    // Of either parity; at first rows of the other one, which are never asked for.
    std::size_t held_[2] = {1, 0};
};

template <typename Weights_of_row>
void compute_rows_by(
    Job const& job, std::size_t begin, std::size_t end, std::size_t first_column,
    Weights_of_row weights_of) {
    using Weights = decltype(weights_of(begin));
    Estimate<Weights> const estimate = estimate_for<Weights>(needs_of(job));
    Row_source source(job);
    Estimates estimates;
    for (std::size_t row = begin; row != end; ++row) {
        std::size_t const beside = row + 1 == job.arguments.height ? row - 1 : row + 1;
        Row_samples const samples{source(row), source(beside)};
        compute_row(job, row, first_column, samples, weights_of(row), estimate, estimates);
    }
}

} // namespace

std::size_t corrected_samples(std::size_t width) {
    return 2 * (width + 2 * group_columns);
}

void compute_rows(Job const& job, std::size_t begin, std::size_t end, std::size_t first_column) {
    Position_weights const positions[2] = {
        {job.matrices[0], job.matrices[1]}, {job.matrices[2], job.matrices[3]}};
    if (job.weights == nullptr) {
        compute_rows_by(job, begin, end, first_column, [&](std::size_t row) {
            return By_position{positions[row % 2]};
        });
        return;
    }
    std::size_t const weights_per_row =
        (job.arguments.width + group_columns - 1) / group_columns * weights_per_group;
    compute_rows_by(job, begin, end, first_column, [&](std::size_t row) {
        return By_pixel{
            positions[row % 2], job.weights + row * weights_per_row,
            _mm256_set1_ps(job.weight_step)};
    });
}

void compute_final_pixel_as_processed(Job const& job) {
    std::size_t const row = job.arguments.height - 1;
    std::size_t const column = job.arguments.width - 1;
    std::uint16_t const* const own = job.arguments.raw_image + row * job.arguments.width;
    Last_columns const last(own, own - job.arguments.width, column, job.arguments.width);
    Position_weights const weights(job.matrices[0], job.matrices[0]);
    Estimates estimates;
    estimate_for<By_position>(needs_of(job))(
        {last.own, last.vertical, 1}, By_position{weights}, estimates);
    store_planes(job, row * job.arguments.width + column, {0, 1}, estimates);
}

} // namespace weighted
