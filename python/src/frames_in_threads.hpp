/// @file
/// Frames of a recording through the transform, several at a time. Knows nothing of Python.
#pragma once

#include "raw_frames.hpp"

#include "veldrane_mrv/polarization/transform.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace veldrane_python {

/// A plane of all frames, one frame's elements behind the other's.
template <class Element>
struct Frame_series {
    Element* data = nullptr;
    std::size_t elements_per_frame = 0;

    std::span<Element> frame(std::size_t index) const {
        return {data + index * elements_per_frame, elements_per_frame};
    }
};

/// Where planes go; those without data are not wanted.
struct Targets {
    veldrane_mrv::polarization::Per_plane<Frame_series> planes;
    Frame_series<std::int32_t> signed_s1;
    Frame_series<std::int32_t> signed_s2;
};

/// Works on `threads` frames at once, or on as many as there are processors if it is 0; of fewer
/// frames each takes several threads. Fast mode leaves NaN where it stores no normalised Stokes
/// values. `between_frames` is called by the calling thread only; what it throws ends the work.
/// @throws what the transform throws for the first frame that it refuses; nothing of that frame has
///        been written then
void process_frames(
    Raw_frames const& raw, Targets const& targets,
    veldrane_mrv::polarization::Settings const& settings, veldrane_mrv::polarization::Mode mode,
    std::size_t threads, std::function<void()> const& between_frames);

} // namespace veldrane_python
