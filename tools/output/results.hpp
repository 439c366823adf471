/// @file
/// The files that one processed frame leaves in the folder of results.
#pragma once

#include "output/processing.hpp"
#include "output/sidecar.hpp"
#include "output/staged_files.hpp"
#include "veldrane_mrv/polarization/pictures.hpp"

#include <filesystem>
#include <optional>
#include <vector>

namespace polarize_tool {

/// What of a frame goes where. Constant during a run.
struct Results {
    std::filesystem::path folder;
    File_format format = File_format::tiff;
    /// Without a choice, frames that are alone in their file get pictures.
    polarization::Picture_options pictures;
    Existing_files existing = Existing_files::keep;
    Processing processing;
    Origin origin;
    /// All frames of a recording go into one file a plane (`Frame_stack`): frames have pictures at
    /// most.
    bool are_stacked = false;

    /// Whether planes go to standard output, as bare numbers, and no file is made.
    bool are_piped() const { return folder == "-"; }

    /// All files of a frame.
    std::vector<std::filesystem::path> files_of(Frame_place const& place) const;

    /// Whether they are all there and none is empty, as files are whose disk lost its power.
    bool has_files_of(Frame_place const& place) const;

    /// Writes them, except that nothing has appeared yet: that takes `publish` of what it returns.
    /// @throws File_failure
    /// @param validity for the pictures; empty if they are not masked
    Staged_files stage(
        Frame_place const& place, Frame_processor const& processed,
        std::span<std::uint8_t const> validity) const;

    /// Whether pictures are made of the frame and invalid pixels are grey in them.
    bool masks_pictures(Frame_place const& place) const;

private:
    std::vector<polarization::Plane> planes_of_a_frame() const;
    std::filesystem::path file_of(Frame_place const& place, std::string const& ending) const;
    std::filesystem::path plane_file(Frame_place const& place, polarization::Plane plane) const;
    bool shows_degree(Frame_place const& place) const;
    bool shows_angle(Frame_place const& place) const;
    void stage_pictures(
        Frame_place const& place, Frame_processor const& processed,
        std::span<std::uint8_t const> validity, Staged_files& files) const;
};

} // namespace polarize_tool
