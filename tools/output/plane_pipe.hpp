/// @file
/// Planes to standard output: the numbers alone, one plane behind the other.
#pragma once

#include "veldrane_mrv/polarization/regular_files.hpp"

#include <cstdint>
#include <functional>
#include <span>

namespace polarize_tool {

class Plane_pipe {
public:
    /// @param stop_requested asked several times a second while nobody takes what is in a pipe
    /// @param end_is_near asked likewise: once it gives true, a reader that has taken nothing for
    ///        two seconds is waited for no longer
    explicit Plane_pipe(
        std::function<bool()> stop_requested, std::function<bool()> end_is_near = {});

    /// @return false if a stop was requested before all bytes were out
    /// @throws Output_exhausted if standard output takes no more, or nobody reads near the end
    bool write(std::span<std::uint8_t const> bytes);

private:
    std::function<bool()> stop_requested_;
    std::function<bool()> end_is_near_;
    veldrane_mrv::polarization::regular_files::Descriptor own_;
    int descriptor_;
};

} // namespace polarize_tool
