#include "veldrane_mrv/polarization/validity.hpp"

#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <algorithm>

namespace veldrane_mrv::polarization {
namespace {

std::uint8_t bit_if(bool condition, Validity validity) {
    return condition ? bit_of(validity) : std::uint8_t{0};
}

} // namespace

std::string_view name_of(Validity validity) {
    switch (validity) {
    case Validity::valid:
        return "valid";
    case Validity::saturated:
        return "saturated";
    case Validity::below_dark:
        return "below_dark";
    case Validity::bad_pixel:
        return "bad_pixel";
    case Validity::weak:
        break;
    }
    return "weak";
}

void mark_saturated(
    std::span<std::uint8_t const> is_saturated, Size const& size,
    std::span<std::uint8_t> validity) {
    for (std::size_t row = 0; row < size.height; ++row) {
        std::size_t const other_row = row + 1 < size.height ? row + 1 : row - 1;
        std::uint8_t const* const own = is_saturated.data() + row * size.width;
        std::uint8_t const* const vertical = is_saturated.data() + other_row * size.width;
        std::uint8_t* const result = validity.data() + row * size.width;
        for (std::size_t column = 0; column < size.width; ++column) {
            std::size_t const other = column + 1 < size.width ? column + 1 : column - 1;
            bool const has_one =
                (own[column] | own[other] | vertical[column] | vertical[other]) != 0;
            result[column] =
                static_cast<std::uint8_t>(result[column] | bit_if(has_one, Validity::saturated));
        }
    }
}

Validity_marker::Validity_marker(Settings const& settings, Mode mode)
    : settings_{settings}, has_tables_{mode == Mode::calibrated && settings.tables != nullptr} {
    if (settings.noise) {
        uncertainty_.emplace(settings, mode);
    }
}

void Validity_marker::mark_samples(
    Frame_view const& frame, std::size_t row, std::size_t first_row,
    std::span<std::uint8_t> marks) const {
    std::size_t const width = frame.width();
    std::uint16_t const* const samples = frame.row(row).data();
    auto const largest = static_cast<std::uint16_t>(settings_.scale.largest_sample());
    for (std::size_t column = 0; column < width; ++column) {
        marks[column] = bit_if(samples[column] >= largest, Validity::saturated);
    }
    if (has_tables_) {
        mark_corrected(samples, first_row + row, marks.first(width));
    }
    marks[width] = marks[width - 2];
}

void Validity_marker::mark_corrected(
    std::uint16_t const* samples, std::size_t row, std::span<std::uint8_t> marks) const {
    Sensor_tables const& tables = *settings_.tables;
    int const fraction_bits = tables.fraction_bits();
    std::size_t const first = row * tables.padded_width();
    std::uint16_t const* const dark_levels = tables.dark_levels().data() + first;
    std::uint8_t const* const is_bad = tables.bad_marks().data() + row * tables.size().width;
    for (std::size_t column = 0; column < marks.size(); ++column) {
        bool const is_below = std::uint32_t{samples[column]} << fraction_bits < dark_levels[column];
        marks[column] = static_cast<std::uint8_t>(
            marks[column] | bit_if(is_below, Validity::below_dark) |
            bit_if(is_bad[column] != 0, Validity::bad_pixel));
    }
    if (tables.gains().empty()) {
        return;
    }
    std::uint16_t const* const gains = tables.gains().data() + first;
    for (std::size_t column = 0; column < marks.size(); ++column) {
        std::uint32_t const sample = std::uint32_t{samples[column]} << fraction_bits;
        std::uint32_t const light =
            std::max(sample, std::uint32_t{dark_levels[column]}) - dark_levels[column];
        // What `Sensor_tables` corrects to 65535 or cuts off there.
        bool const is_full = (light * gains[column] + (1U << 14)) >> 15 >= 65535;
        marks[column] =
            static_cast<std::uint8_t>(marks[column] | bit_if(is_full, Validity::saturated));
    }
}

void Validity_marker::operator()(Band const& band, std::span<std::uint8_t> validity) {
    Frame_view const& samples = band.samples;
    std::size_t const width = samples.width();
    for (std::vector<std::uint8_t>& marks : marks_) {
        marks.resize(width + 1);
    }
    mark_samples(samples, 0, band.first, marks_[0]);
    for (std::size_t row = 0; row < band.rows; ++row) {
        std::vector<std::uint8_t>& vertical = marks_[(row + 1) % 2];
        if (row + 1 < samples.height()) { // the last row has the one above it, which is there
            mark_samples(samples, row + 1, band.first, vertical);
        }
        std::uint8_t const* const own_marks = marks_[row % 2].data();
        std::uint8_t const* const vertical_marks = vertical.data();
        std::uint8_t* const result = validity.data() + row * width;
        for (std::size_t column = 0; column < width; ++column) {
            result[column] = static_cast<std::uint8_t>(
                own_marks[column] | own_marks[column + 1] | vertical_marks[column] |
                vertical_marks[column + 1]);
        }
    }
    if (uncertainty_) {
        uncertainty_->mark_weak(band, bit_of(Validity::weak), validity);
    }
}

} // namespace veldrane_mrv::polarization
