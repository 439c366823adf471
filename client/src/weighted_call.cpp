#include "weighted_call.hpp"

#include "processor_call.hpp"

#include "pixels/rows.hpp"
#include "pixels/signed_blocks.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <algorithm>
#include <cmath>

namespace veldrane_mrv::polarization {
namespace {

template <class Element>
Element* memory_of(std::span<Element> plane) {
    return plane.empty() ? nullptr : plane.data();
}

// Corrected samples count in units of 2^-f. A power of two is exact wherever it enters, so the
// weights take it.
Matrices in_units_of(int fraction_bits, Matrices const& matrices) {
    Matrices scaled = matrices;
    for (auto& weights : scaled.by_position) {
        for (float& weight : weights) {
            weight = std::ldexp(weight, -fraction_bits);
        }
    }
    return scaled;
}

// Where height and width differ in parity, the processor gives the last pixel another matrix.
void mend_final_pixel(weighted::Job const& job) {
    if (job.arguments.height % 2 != job.arguments.width % 2) {
        weighted::compute_final_pixel_as_processed(job);
    }
}

} // namespace

void compute_weighted(
    Band const& band, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes, Final_pixel final_pixel,
    std::vector<std::uint16_t>& workspace) {
    weighted::Job job{};
    job.arguments = processor_arguments(band.samples, settings, planes);
    job.signed_s1 = memory_of(signed_planes.s1);
    job.signed_s2 = memory_of(signed_planes.s2);
    Sensor_tables const* const tables = settings.tables.get();
    Matrices const matrices =
        tables == nullptr ? settings.matrices
                          : in_units_of(tables->fraction_bits(), tables->position_matrices());
    job.matrices = matrices.by_position.data();
    if (tables != nullptr) {
        std::size_t const width = band.samples.width();
        workspace.resize(std::max(workspace.size(), weighted::corrected_samples(width)));
        job.workspace = workspace.data();
        std::size_t const first = band.first * tables->padded_width();
        job.dark_levels = tables->dark_levels().data() + first;
        job.gains = tables->gains().empty() ? nullptr : tables->gains().data() + first;
        job.largest_sample = static_cast<std::uint16_t>((1U << tables->bit_depth()) - 1);
        job.fraction_bits = tables->fraction_bits();
        job.weights = tables->weights().empty()
                          ? nullptr
                          : tables->weights().data() + first * weighted::weight_count;
        job.weight_step = std::ldexp(Sensor_tables::weight_step, -tables->fraction_bits());
    }
    weighted::compute_rows(job, 0, band.rows);
    if (tables == nullptr && final_pixel == Final_pixel::as_processed && band.ends_frame()) {
        mend_final_pixel(job);
    }
}

void compute_signed(Band const& band, Settings const& settings, Signed_views const& signed_planes) {
    if (signed_planes.empty()) {
        return;
    }
    weighted::Job job{};
    job.arguments = processor_arguments(band.samples, settings, {});
    job.signed_s1 = memory_of(signed_planes.s1);
    job.signed_s2 = memory_of(signed_planes.s2);
    job.matrices = settings.matrices.by_position.data();
    fixed::compute_signed_blocks(
        job.arguments, job.signed_s1, job.signed_s2, band.height * band.samples.width());
    auto const [rows, columns] = fixed::blocked_pixels(job.arguments.height, job.arguments.width);
    weighted::compute_rows(job, 0, rows, columns);
    weighted::compute_rows(job, rows, band.rows);
    if (band.ends_frame()) {
        mend_final_pixel(job);
    }
}

} // namespace veldrane_mrv::polarization
