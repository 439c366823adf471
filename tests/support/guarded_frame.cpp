#include "support/guarded_frame.hpp"

#include "support/needed_rows.hpp"

#include <algorithm>
#include <cstring>
#include <new>

namespace support {
namespace {

using enum Guarded_pages::Access;

template <typename Type>
Type* as(std::byte* address) {
    return static_cast<Type*>(static_cast<void*>(address));
}

} // namespace

void fill_plane(std::span<std::byte> plane, Fill fill) {
    for (std::size_t index = 0; index < plane.size() / 2; ++index) {
        std::uint16_t const element = fill_element(index, fill);
        std::memcpy(plane.data() + 2 * index, &element, 2);
    }
}

bool is_untouched(std::span<std::byte const> plane, Fill fill) {
    std::uint16_t difference = 0;
    for (std::size_t index = 0; index < plane.size() / 2; ++index) {
        std::uint16_t element;
        std::memcpy(&element, plane.data() + 2 * index, 2);
        difference = static_cast<std::uint16_t>(difference | (element ^ fill_element(index, fill)));
    }
    return difference == 0;
}

Guarded_frame::Guarded_frame(std::size_t maximum_pixels)
    : raw_{2 * maximum_pixels, read_only},
      arguments_pages_{sizeof(Polarization_computation_arguments), read_only},
      matrices_pages_{sizeof(Calibration_matrices), read_only},
      weights_{
          {{sizeof(Matrix), read_only},
           {sizeof(Matrix), read_only},
           {sizeof(Matrix), read_only},
           {sizeof(Matrix), read_only}}},
      planes_{
          {{8 * maximum_pixels, read_write},
           {2 * maximum_pixels, read_write},
           {2 * maximum_pixels, read_write},
           {2 * maximum_pixels, read_write},
           {2 * maximum_pixels, read_write},
           {2 * maximum_pixels, read_write}}} {}

void Guarded_frame::load(Scene const& scene, Edge edge, Fill fill) {
    fill_ = fill;
    for (std::size_t index = 0; index < every_plane.size(); ++index) {
        Plane const plane = every_plane[index];
        std::size_t const bytes = bytes_per_pixel(plane) * scene.pixels();
        loaded_[index] = {planes_[index].guarded(bytes, edge), bytes};
        fill_plane(loaded_[index], fill);
    }
    std::memcpy(raw_.writable(2 * scene.pixels(), edge), scene.samples.data(), 2 * scene.pixels());
    load_matrices(scene, edge);
    load_arguments(scene, edge);
}

void Guarded_frame::load_matrices(Scene const& scene, Edge edge) {
    std::size_t const first_row = edge == Edge::start ? first_needed_row(scene.wanted) : 0;
    std::size_t const end_row = edge == Edge::end ? end_of_needed_rows(scene.wanted) : matrix_rows;
    constexpr std::size_t row_bytes = row_weights * sizeof(float);
    std::size_t const accessible_bytes = row_bytes * (end_row - first_row);
    std::array<Matrix const*, 4> guarded{};
    for (std::size_t position = 0; position < guarded.size(); ++position) {
        std::memcpy(
            weights_[position].writable(accessible_bytes, edge),
            scene.matrices[position].data() + row_weights * first_row, accessible_bytes);
        guarded[position] = as<Matrix const>(
            weights_[position].guarded(accessible_bytes, edge) - row_bytes * first_row);
    }
    constexpr std::size_t bytes = sizeof(Calibration_matrices);
    new (matrices_pages_.writable(bytes, edge))
        Calibration_matrices{*guarded[0], *guarded[1], *guarded[2], *guarded[3]};
    matrices_ = as<Calibration_matrices const>(matrices_pages_.guarded(bytes, edge));
}

void Guarded_frame::load_arguments(Scene const& scene, Edge edge) {
    constexpr std::size_t bytes = sizeof(Polarization_computation_arguments);
    std::array<void*, every_plane.size()> planes{};
    std::ranges::transform(loaded_, planes.begin(), [](auto plane) { return plane.data(); });
    new (arguments_pages_.writable(bytes, edge)) Polarization_computation_arguments(arguments_of(
        scene, as<std::uint16_t const>(raw_.guarded(2 * scene.pixels(), edge)), planes));
    arguments_ =
        as<Polarization_computation_arguments const>(arguments_pages_.guarded(bytes, edge));
}

std::span<std::byte const> Guarded_frame::plane(Plane plane) const {
    return loaded_[static_cast<std::size_t>(plane)];
}

bool Guarded_frame::is_untouched(Plane plane) const {
    return support::is_untouched(this->plane(plane), fill_);
}

} // namespace support
