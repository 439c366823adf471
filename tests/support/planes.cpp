#include "support/planes.hpp"

#include "support/equality_checker.hpp"
#include "support/fault_report.hpp"
#include "support/guarded_frame.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>

namespace support {
namespace {

using Bytes = std::array<std::vector<std::byte>, every_plane.size()>;

Bytes run_at_edge(
    Guarded_frame& frame, Scene const& scene, Edge edge, Fill fill, Transform transform) {
    frame.load(scene, edge, fill);
    EXPECT_EQ(frame.run(transform), 0) << describe(scene);
    Bytes planes;
    for (Plane const plane : every_plane) {
        if (scene.wanted.has(plane)) {
            auto const bytes = frame.plane(plane);
            planes[static_cast<std::size_t>(plane)].assign(bytes.begin(), bytes.end());
        } else {
            EXPECT_TRUE(frame.is_untouched(plane)) << name_of(plane) << " of " << describe(scene);
        }
    }
    return planes;
}

template <typename Element>
Grid<Element> grid_of(Bytes const& planes, Plane plane, std::size_t width) {
    auto const& bytes = planes[static_cast<std::size_t>(plane)];
    Grid<Element> grid{width, std::vector<Element>(bytes.size() / sizeof(Element))};
    if (!bytes.empty()) {
        std::memcpy(grid.elements.data(), bytes.data(), bytes.size());
    }
    return grid;
}

std::uint32_t float_bits_at(std::vector<std::byte> const& bytes, std::size_t index) {
    std::uint32_t bits;
    std::memcpy(&bits, bytes.data() + sizeof(bits) * index, sizeof(bits));
    return bits;
}

/// Whether the runs agree in every float that one of them wrote.
bool agree_in_written_floats(
    std::vector<std::byte> const& on_plain, std::vector<std::byte> const& on_inverted) {
    for (std::size_t index = 0; index < on_plain.size() / sizeof(float); ++index) {
        std::uint32_t const left = float_bits_at(on_plain, index);
        std::uint32_t const right = float_bits_at(on_inverted, index);
        bool const is_untouched = left == fill_float_bits(index, Fill::plain) &&
                                  right == fill_float_bits(index, Fill::inverted);
        if (left != right && !is_untouched) {
            return false;
        }
    }
    return true;
}

template <typename Element>
bool agrees(Grid<Element> const& part, Grid<Element> const& whole, bool wanted) {
    return wanted ? part == whole : part.elements.empty();
}

} // namespace

Planes compute(Scene const& scene, Transform transform) {
    static Guarded_frame frame{largest_frame};
    Fault_report const report{scene};
    Bytes const at_end = run_at_edge(frame, scene, Edge::end, Fill::plain, transform);
    Bytes const at_start = run_at_edge(frame, scene, Edge::start, Fill::inverted, transform);
    for (Plane const plane : every_plane) {
        auto const index = static_cast<std::size_t>(plane);
        EXPECT_TRUE(
            plane == Plane::normalized_stokes
                ? agree_in_written_floats(at_end[index], at_start[index])
                : at_end[index] == at_start[index])
            << name_of(plane)
            << " depends on its place or its former contents: " << describe(scene);
    }
    return {
        grid_of<Ratios>(at_end, Plane::normalized_stokes, scene.width),
        grid_of<std::uint16_t>(at_end, Plane::s0, scene.width),
        grid_of<std::uint16_t>(at_end, Plane::s1, scene.width),
        grid_of<std::uint16_t>(at_end, Plane::s2, scene.width),
        grid_of<std::uint16_t>(at_end, Plane::azimuth, scene.width),
        grid_of<std::uint16_t>(at_end, Plane::dolp, scene.width)};
}

bool is_part_of(Planes const& part, Planes const& whole, Plane_set part_set) {
    return agrees(
               part.normalized_stokes, whole.normalized_stokes,
               part_set.has(Plane::normalized_stokes)) &&
           agrees(part.s0, whole.s0, part_set.has(Plane::s0)) &&
           agrees(part.s1, whole.s1, part_set.has(Plane::s1)) &&
           agrees(part.s2, whole.s2, part_set.has(Plane::s2)) &&
           agrees(part.azimuth, whole.azimuth, part_set.has(Plane::azimuth)) &&
           agrees(part.dolp, whole.dolp, part_set.has(Plane::dolp));
}

float untouched_ratio(std::size_t float_index) {
    return std::bit_cast<float>(fill_float_bits(float_index, Fill::plain));
}

} // namespace support
