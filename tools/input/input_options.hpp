/// @file
/// What commands that read frames have in common on the command line: which frames, how their
/// samples lie, and how the mosaic lies over them.
#pragma once

#include "input/frame_finding.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace polarize_tool {

inline constexpr char const* phase_help =
    "Mosaic, top-left cell row by row in degrees: 0: 0 135 / 45 90, 1: 45 90 / 0 135, "
    "2: 90 45 / 135 0, 3: 135 0 / 90 45";

/// FRAME..., the description of raw ones, and --start, --stop and --step.
struct Input_options {
    std::vector<std::string> inputs;
    std::string pixel_format;
    std::size_t width = 0;
    std::size_t height = 0;
    std::uint64_t header_bytes = 0;
    std::size_t stride = 0;
    Frame_selection selection;
    /// What all of them tell of themselves, for what is told of the results.
    std::optional<Raw_layout> recorded_layout;

    /// Whether frames come from standard input, which - stands for.
    bool reads_standard_input() const;
    /// @throws Usage_error if it cannot be read with the other options
    void check_standard_input() const;

    /// Empty for image files.
    /// @throws Usage_error if the options do not fit together
    std::optional<Raw_layout> raw_layout() const;
};

/// How many frames a command takes: one has a --start alone.
enum class Frame_choice { many, one };
void add_input_options(
    CLI::App& command, Input_options& options, Frame_choice choice = Frame_choice::many);

/// --pixel-format, in whatever case; `name` gets the one of the convention.
CLI::Option* add_pixel_format(CLI::App& command, std::string& name, std::string const& help);

/// --bit-depth, --shift, --region and --dark.
struct Sample_options {
    int bit_depth = 0;
    int shift = 0;
    std::string region_text;
    std::vector<std::string> dark_frames;
    int recorded_depth = 0; ///< that of recordings; 0 if they tell none

    /// @throws Usage_error if the text is no region
    std::optional<veldrane_mrv::polarization::Region> region() const;
    /// The depth that was given, or that of the pixel format or the recordings.
    /// @throws Usage_error if there is neither
    int depth(std::optional<Raw_layout> const& raw) const;
};
inline constexpr char const* cut_help = "Take this part of each frame. The mosaic is given for the "
                                        "whole frame: an odd COLUMN or ROW is "
                                        "taken care of";
void add_sample_options(
    CLI::App& command, Sample_options& options, std::string const& region_help = cut_help);

/// --phase and --layout.
struct Mosaic_options {
    std::optional<int> phase;
    std::string layout;
    /// The file that told the layout; empty if the user did.
    std::filesystem::path told_by;

    /// @throws Usage_error if both or an unknown layout were given
    std::optional<veldrane_mrv::polarization::Mosaic> given() const;
    /// @throws Usage_error if none was given as well
    veldrane_mrv::polarization::Mosaic required() const;
};
void add_mosaic_options(CLI::App& command, Mosaic_options& options);

} // namespace polarize_tool
