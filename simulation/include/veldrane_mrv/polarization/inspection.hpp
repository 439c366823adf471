/// @file
/// What can be told about a camera from one of its raw frames.
#pragma once

#include "veldrane_mrv/polarization/balance.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace veldrane_mrv::polarization {

/// How the bits of the samples are used.
struct Depth_use {
    /// Bits up to the highest one that is set in any sample; 0 for a black frame.
    int used_bits;
    /// Low bits that are 0 in every sample: left-aligned samples show up here. 0 for a black frame.
    int zero_low_bits;
    /// Different values in the frame.
    std::size_t distinct_values;
    /// Depth that the frame is taken to have once its low zeros are gone: what the user says, else
    /// the least of 8, 10, 12, 14 and 16 bits that holds the samples.
    int assumed_depth;

    /// Right shift that brings the samples to the low end: the zero low bits, if there are at least
    /// two of them and the samples reach beyond 8 bits, since a dim frame of few values proves
    /// little, and no more than 16 bits leave room for. 0 if a given depth holds the samples as
    /// they are.
    int shift;
};

/// One of the four positions in the mosaic's cell, in the order of `cell_position`.
struct Position_means {
    double mean;
    unsigned smallest;
    unsigned largest;
};

/// A phase, and where it would put the polariser that the frame was taken through.
struct Phase_candidate {
    int phase;
    double angle;     // degrees, 0 to below 180
    double deviation; // degrees from the angle that the user gives, 0 to 90
};

struct Phase_answer {
    /// From the nearest to the farthest.
    std::array<Phase_candidate, 4> candidates;
    /// Degree of polarisation of the frame's means; the same in all phases.
    double degree;
    /// Empty if the frame does not decide.
    std::optional<int> phase;
    /// One or two sentences for the user.
    std::string explanation;
};

struct Inspection {
    std::size_t height;
    std::size_t width;
    double mean;
    unsigned smallest;
    unsigned largest;
    Depth_use depth;
    /// Samples at or above the full scale of the assumed depth, or the largest value within it that
    /// has the low zeros all samples share.
    std::size_t saturated;
    /// Samples that share the largest value; many of them below the full scale hint at a sensor
    /// that saturates earlier than its numbers do.
    std::size_t at_largest;
    std::array<Position_means, 4> positions;
    /// Counts of samples in equal steps from 0 to the full scale of the assumed depth; whatever
    /// lies above is in the last one.
    std::vector<std::size_t> histogram;
    /// First value beyond the last step of the histogram.
    unsigned histogram_end;
    Balance balance;

    std::size_t samples() const { return height * width; }
    unsigned full_scale() const;
};

/// `bit_depth` counts after `depth.shift`.
/// @throws Argument_error if the frame has fewer than 2 rows or columns
Inspection inspect(
    Frame_view const& frame, std::optional<int> bit_depth = std::nullopt,
    std::size_t histogram_steps = 32);

/// Which phase the camera has, if the frame shows light behind a linear polariser whose angle in
/// degrees (0 along the rows, counter-clockwise) is known.
Phase_answer phase_behind_polariser(
    std::array<Position_means, 4> const& positions, double polariser_angle);

} // namespace veldrane_mrv::polarization
