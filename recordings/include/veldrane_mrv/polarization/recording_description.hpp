/// @file
/// What stands beside a recording of a camera's frames: how its samples lie, and what camera,
/// settings and time they are of.
///
/// The recording FILE holds bare samples, frame after frame without gaps. FILE.json is a JSON
/// object whose `format` is "veldrane-recording"; any other file of that name is none of ours.
#pragma once

#include "veldrane_mrv/polarization/frame_source.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"
#include "veldrane_mrv/polarization/raw_layout.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veldrane_mrv::polarization {

/// Empty where the camera does not tell.
struct Camera_identity {
    std::string id; ///< by which it is opened
    std::string vendor;
    std::string model;
    std::string serial;

    friend bool operator==(Camera_identity const&, Camera_identity const&) = default;
};

struct Recorded_settings {
    std::optional<double> exposure_us;
    std::optional<double> gain;       ///< in the camera's unit
    std::optional<double> frame_rate; ///< frames a second
    std::optional<Region> region;     ///< of the sensor

    friend bool operator==(Recorded_settings const&, Recorded_settings const&) = default;
};

/// Frames of a whole run.
struct Receiving_counts {
    std::uint64_t received = 0;                      ///< complete ones
    std::uint64_t lost = 0;                          ///< whose numbers are missing
    std::uint64_t dropped = 0;                       ///< received, but not recorded
    std::map<std::string, std::uint64_t> incomplete; ///< by cause

    friend bool operator==(Receiving_counts const&, Receiving_counts const&) = default;
};

struct Recording_description {
    Pixel_format format = Pixel_format::mono8;
    Size size;
    /// Nothing if the run that records them has not ended: as many as the file holds.
    std::optional<std::size_t> frames;
    /// Of the first pixel of a frame, where it is known.
    std::optional<Mosaic> mosaic;
    Camera_identity camera;
    Recorded_settings settings;
    Receiving_counts counts;
    std::string begin;    ///< in UTC, such as 2026-01-31T12:00:00Z
    std::string software; ///< name and version of the program that recorded
    /// One for each frame, or none at all.
    std::vector<Capture> captures;

    /// Rows adjoin, and there is no header.
    /// @throws Argument_error if a frame is too large for memory
    Raw_layout layout() const;
};

/// FILE.json.
std::filesystem::path description_file_of(std::filesystem::path const& recording);

/// Nothing if there is no such file beside the recording, or another's.
/// @throws File_failure if it is damaged: one line with the key
std::optional<Recording_description> read_recording_description(
    std::filesystem::path const& recording);

/// Of FILE.json in bytes; larger ones are refused. 8 million frames of the longest numbers.
inline constexpr std::size_t largest_description = std::size_t{512} << 20;

/// The text of the file. Bytes that are no UTF-8 are replaced. Without `captures` if it would be
/// longer than `largest` with them.
std::string recording_description_text(
    Recording_description const& description, std::size_t largest = largest_description);

} // namespace veldrane_mrv::polarization
