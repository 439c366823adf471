/// @file
/// Frames of a list or of a camera, as a browser asks for them: by number, part and scale.
#pragma once

#include "input/frame_preparation.hpp"
#include "input/transform_settings.hpp"
#include "veldrane_mrv/polarization/live_source.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "view/view_answer.hpp"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace polarize_tool {

/// What a camera runs with, as far as it tells.
struct View_camera {
    std::string model;
    std::string id;
    std::optional<double> exposure_us;
    std::optional<double> gain;
    std::optional<double> frame_rate;
    std::string pixel_format;
};

/// What all frames of a view have in common.
struct View_setup {
    /// Of what is shown, for the reader: file, folder, camera.
    std::string name;
    /// Of the mosaic, the scale and the weights, with the calibration's file if there is one.
    Transform_settings transform;
    std::filesystem::path calibration_file;
    polarization::Mode mode = polarization::Mode::fast;
    /// Frames a second of a recording, if it is known.
    std::optional<double> rate;
    std::optional<View_camera> camera;
    /// Name and version of this program.
    std::string generator;
};

/// Answers "/source", "/frame" and "/statistics". Of frames that can be had again it keeps the
/// three that were asked for last, of a camera the newest and the seven others that were asked for
/// last; while more are in use, these. Each takes its bytes as read, and 2 bytes a sample, with
/// dark frames 3, once it was asked for.
class View_frames {
public:
    /// For frames in any order. References to objects that outlive this one.
    View_frames(
        View_setup setup, Frame_preparation const& preparation, polarization::Frame_source& source);
    /// For a camera, whose frames are taken as they come by a thread of this object. Nobody else
    /// takes frames of the source.
    View_frames(
        View_setup setup, Frame_preparation const& preparation, polarization::Live_source& source);
    /// Ends the feed of a live source. No handler is running.
    ~View_frames();
    View_frames(View_frames const&) = delete;
    View_frames& operator=(View_frames const&) = delete;

    /// Reads the first frame of a list; it is kept for the page, which asks for it at once.
    /// @throws File_failure if it cannot be shown
    void read_first();

    /// Valid as long as this object.
    Handlers handlers();

    /// Whether a camera has sent a whole frame.
    bool has_frame() const;
    /// Whether a camera sends no more; those frames that are kept can still be asked for.
    bool has_ended() const;
    /// Why it went away, in one line; empty if it did not.
    std::string failure() const;

private:
    class Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace polarize_tool
