/// @file
/// From samples as stored to samples as the transform takes them.
#pragma once

#include "input/frame.hpp"
#include "input/frame_finding.hpp"
#include "input/input_options.hpp"
#include "veldrane_mrv/polarization/dark_frame.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

enum class Dark_level { subtracted, kept };

/// A line each, or empty.
struct Sample_warnings {
    /// Samples were above the bit depth, dark level included.
    std::string depth;
    /// The dark frame is brighter than the frame.
    std::string dark;
};

/// Leaves of a frame the region alone, in its own memory.
void cut(Frame& frame, polarization::Region const& region);

/// Moves samples down, subtracts the dark frame, and cuts out the region, in this order. Constant
/// after construction, so that any number of threads may use it.
class Frame_preparation {
public:
    /// Reads the dark frames, of the same kind as the frames.
    /// @throws File_failure, Usage_error
    Frame_preparation(Sample_options const& options, std::optional<Raw_layout> const& raw);

    int bit_depth() const { return bit_depth_; }
    int shift() const { return shift_; }
    std::optional<polarization::Region> const& region() const { return region_; }
    bool subtracts_dark() const { return dark_.has_value(); }
    /// The files of the dark frames, each once.
    std::vector<std::filesystem::path> const& dark_files() const { return dark_files_; }
    /// Of the whole frame, at the four positions of a cell.
    std::optional<polarization::Dark_frame> const& dark() const { return dark_; }
    /// The same levels before they were rounded; empty without dark frames.
    std::vector<float> const& dark_means() const { return dark_means_; }

    /// Saturation shows only while the dark level is kept. The dark frame has to fit even then.
    /// @param saturated gets, if given, an element for each sample that is left: 1 if it was at the
    ///        full scale when its dark level was subtracted; nothing if none was subtracted
    /// @throws File_failure if frame, dark frame and region do not fit together
    Sample_warnings apply(
        Frame& frame, std::string const& name, Dark_level level = Dark_level::subtracted,
        std::vector<std::uint8_t>* saturated = nullptr) const;

private:
    std::string depth_warning(
        Frame const& frame, polarization::Region const& part, std::string const& name) const;
    std::string dark_warning(
        Frame const& frame, polarization::Region const& part, std::string const& name) const;
    void note_saturated(
        Frame const& frame, polarization::Region const& part,
        std::vector<std::uint8_t>& saturated) const;
    void read_dark(Sample_options const& options, std::optional<Raw_layout> const& raw);

    int bit_depth_;
    int shift_;
    std::optional<polarization::Region> region_;
    std::optional<polarization::Dark_frame> dark_;
    std::vector<float> dark_means_;
    std::vector<std::filesystem::path> dark_files_;
};

} // namespace polarize_tool
