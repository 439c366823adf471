#include "support/frame_ring.hpp"

#include <cstdlib>
#include <cstring>
#include <new>
#include <random>

namespace {

constexpr std::size_t page_bytes = 4096;

/// Angles of the cell of phase 2, by the parities of row and column.
constexpr int angles[4] = {90, 45, 135, 0};

std::array<float, 16> matrix_of(std::size_t row, std::size_t column) {
    std::array<float, 16> matrix{};
    for (std::size_t sample = 0; sample < 4; ++sample) {
        std::size_t const position = 2 * (row ^ (sample / 2)) + (column ^ (sample % 2));
        int const angle = angles[position];
        matrix[sample] = 1;
        matrix[(angle % 90 == 0 ? 4U : 8U) + sample] = angle < 90 ? 1.0F : -1.0F;
    }
    return matrix;
}

} // namespace

void Frame_ring::Free::operator()(void* memory) const {
    std::free(memory);
}

template <typename Element>
Element* Frame_ring::allocate(std::size_t count) {
    std::size_t const bytes = (count * sizeof(Element) / page_bytes + 2) * page_bytes;
    Memory memory(std::aligned_alloc(page_bytes, bytes));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    std::memset(memory.get(), 0, bytes);
    memory_.push_back(std::move(memory));
    return static_cast<Element*>(memory_.back().get());
}

Frame_ring::Frame_ring(Frame_size size, std::size_t count, Output_planes largest_set)
    : size_(size), matrices_{matrix_of(0, 0), matrix_of(0, 1), matrix_of(1, 0), matrix_of(1, 1)} {
    std::minstd_rand random(1);
    std::size_t const pixels = size.pixels();
    for (std::size_t i = 0; i < count; ++i) {
        Polarization_computation_arguments frame{};
        frame.height = size.height;
        frame.width = size.width;
        frame.polar_phase = phase;
        frame.bit_depth = bit_depth;
        frame.maximum_input_value = full_scale;
        frame.maximum_output_value = full_scale;
        frame.maximum_output_value_integer = full_scale;
        auto* const raw = allocate<std::uint16_t>(pixels);
        for (std::size_t pixel = 0; pixel < pixels + page_bytes / sizeof(*raw); ++pixel) {
            raw[pixel] = static_cast<std::uint16_t>((random() >> 8) & full_scale);
        }
        frame.raw_image = raw;
        auto const plane = [&](Output_planes one) -> std::uint16_t* {
            return (largest_set & one) != 0 ? allocate<std::uint16_t>(pixels) : nullptr;
        };
        frame.s0_image = plane(s0_plane);
        frame.s1_image = plane(s1_plane);
        frame.s2_image = plane(s2_plane);
        frame.azimuth_image = plane(azimuth_plane);
        frame.dolp_image = plane(dolp_plane);
        if ((largest_set & normalized_stokes_plane) != 0) {
            frame.normalized_stokes_image = allocate<float>(2 * pixels);
        }
        frames_.push_back(frame);
    }
}

std::vector<Polarization_computation_arguments> Frame_ring::frames_with(
    Output_planes planes, Placement placement) const {
    auto frames = frames_;
    for (auto& frame : frames) {
        frame.raw_image += placement.raw / sizeof(*frame.raw_image);
        std::size_t start = placement.plane;
        auto const place = [&](auto*& image, Output_planes one) {
            if ((planes & one) == 0) {
                image = nullptr;
                return;
            }
            image += start / sizeof(*image);
            start = (start + placement.step) % page_bytes;
        };
        place(frame.s0_image, s0_plane);
        place(frame.s1_image, s1_plane);
        place(frame.s2_image, s2_plane);
        place(frame.azimuth_image, azimuth_plane);
        place(frame.dolp_image, dolp_plane);
        place(frame.normalized_stokes_image, normalized_stokes_plane);
    }
    return frames;
}

Calibration_matrices Frame_ring::matrices() const {
    return {matrices_[0], matrices_[1], matrices_[2], matrices_[3]};
}
