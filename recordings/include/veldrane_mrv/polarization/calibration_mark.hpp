/// @file
/// How calibrations and their plots are told from frames, among which they may lie.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace veldrane_mrv::polarization {

/// Where a plot of a calibration is marked: behind the signature of a PNG and its first chunk,
/// whose lengths are fixed, and the mark's own length. Any other chunk may follow.
inline constexpr std::size_t place_of_calibration_mark = 8 + 25;

/// A textual chunk of a PNG: keyword and text.
inline constexpr char calibration_mark_text[] = "tEXtSoftware\0veldrane-polarize calibrate";
inline constexpr std::string_view calibration_mark{
    calibration_mark_text, sizeof calibration_mark_text - 1};

/// So many bytes from the start of a file are enough to tell.
inline constexpr std::size_t calibration_mark_reach = 256;

/// Whether a file that begins so is a calibration or a plot that was marked.
bool is_of_calibration(std::string_view start);

/// The same with the maps of calibrations, which differ from other arrays by their names alone.
bool is_of_calibration(std::filesystem::path const& file, std::string_view start);

} // namespace veldrane_mrv::polarization
