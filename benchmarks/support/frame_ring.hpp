#pragma once

#include "support/output_sets.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct Frame_size {
    std::size_t height, width;

    std::size_t pixels() const { return height * width; }
};

/// Where buffers start, in bytes behind the start of a page. Unless told otherwise all start where
/// those of programs do: what a system hands out in whole pages begins with 16 bytes of its own.
struct Placement {
    std::size_t raw = 16;   ///< raw frames
    std::size_t plane = 16; ///< a frame's first plane
    std::size_t step = 0;   ///< how much further each of its next planes does
};

/// Several frames with planes of their own: one after another, each has left the caches when its
/// turn comes. Samples are random, 12 bits; full scales are in sample units, the phase is 2.
class Frame_ring {
public:
    static constexpr std::int32_t bit_depth = 12;
    static constexpr std::int32_t full_scale = (1 << bit_depth) - 1;
    static constexpr std::int32_t phase = 2;

    /// @param largest_set planes that are allocated for each frame
    Frame_ring(Frame_size size, std::size_t count, Output_planes largest_set);

    /// The records of all frames, with the planes of a subset of `largest_set`. Placements share
    /// the memory: what differs between them is nothing but where in a page a buffer starts.
    std::vector<Polarization_computation_arguments> frames_with(
        Output_planes planes, Placement placement = {}) const;

    /// Weights that agree with the vector blocks.
    Calibration_matrices matrices() const;

    Frame_size size() const { return size_; }

private:
    struct Free {
        void operator()(void* memory) const;
    };
    using Memory = std::unique_ptr<void, Free>;

    /// Whole pages, with room for `count` elements from any place of the first page on.
    template <typename Element>
    Element* allocate(std::size_t count);

    Frame_size size_;
    std::vector<Memory> memory_;
    std::vector<Polarization_computation_arguments> frames_;
    std::array<std::array<float, 16>, 4> matrices_;
};
