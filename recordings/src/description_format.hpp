/// @file
/// What the reader and the writer of descriptions agree in.
#pragma once

#include <cstdint>
#include <string_view>

namespace veldrane_mrv::polarization::recordings {

inline constexpr std::string_view description_mark = "veldrane-recording";
inline constexpr std::uint64_t description_version = 1;

} // namespace veldrane_mrv::polarization::recordings
