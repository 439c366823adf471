/// @file
/// The buffers of one call, each in guarded memory of its own that is reused from call to call.
/// The weights of a matrix that the wanted planes do not need lie beyond the guard: those behind
/// the last needed row at the end, those before the first needed row at the start.

#pragma once

#include "support/guarded_pages.hpp"
#include "support/scene.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace support {

/// The contents of output planes before a call. `inverted` is the complement of `plain`, so that an
/// element that no call writes differs between two runs.
enum class Fill { plain, inverted };

/// The fill of the 16-bit element at an index.
constexpr std::uint16_t fill_element(std::size_t index, Fill fill) {
    auto const plain = static_cast<std::uint16_t>(0x2B00U + (index * 37 & 0xFFU));
    return fill == Fill::plain ? plain : static_cast<std::uint16_t>(~plain);
}

/// The bits of the float at an index of a filled plane: no NaN on either fill.
constexpr std::uint32_t fill_float_bits(std::size_t index, Fill fill) {
    std::uint32_t const low = fill_element(2 * index, fill);
    std::uint32_t const high = fill_element(2 * index + 1, fill);
    return high << 16 | low;
}

void fill_plane(std::span<std::byte> plane, Fill fill);

/// Whether every byte of a plane still is what `fill_plane` wrote.
bool is_untouched(std::span<std::byte const> plane, Fill fill);

class Guarded_frame {
public:
    explicit Guarded_frame(std::size_t maximum_pixels);

    /// Lays inputs and freshly filled planes flush against an edge.
    void load(Scene const& scene, Edge edge, Fill fill);

    int run(Transform transform) const { return transform(*arguments_, *matrices_); }

    std::span<std::byte const> plane(Plane plane) const;

    /// Whether a plane that the loaded scene does not request still holds its fill.
    bool is_untouched(Plane plane) const;

private:
    void load_matrices(Scene const& scene, Edge edge);
    void load_arguments(Scene const& scene, Edge edge);

    Guarded_pages raw_;
    Guarded_pages arguments_pages_;
    Guarded_pages matrices_pages_;
    std::array<Guarded_pages, 4> weights_;
    std::array<Guarded_pages, every_plane.size()> planes_;

    std::array<std::span<std::byte>, every_plane.size()> loaded_{};
    Fill fill_{Fill::plain};
    Polarization_computation_arguments const* arguments_{};
    Calibration_matrices const* matrices_{};
};

} // namespace support
