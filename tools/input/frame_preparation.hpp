/// @file
/// From samples as stored to samples as the transform takes them.
#pragma once

#include "input/frame.hpp"
#include "input/frame_finding.hpp"
#include "input/input_options.hpp"
#include "veldrane_mrv/polarization/dark_frame.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
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

/// A frame as the transform takes it, in the memory of another object.
struct Prepared_frame {
    Frame& frame;
    Sample_warnings warnings;
};

/// What samples tell before dark levels are taken off.
struct Sample_findings {
    /// The largest of those above the bit depth, 0 if there are none.
    unsigned largest = 0;
    /// 0 without dark frames.
    std::uint64_t sum = 0;

    void add(Sample_findings const& other);
};

/// Leaves of a frame the region alone, in its own memory.
void cut(Frame& frame, polarization::Region const& region);

/// Moves samples down, subtracts the dark frame, and cuts out the region, row by row while a row is
/// in the nearest cache. Samples outside of the region are not looked at, nor unpacked. Constant
/// after construction, so that any number of threads may use it.
class Frame_preparation {
public:
    /// Reads the dark frames, of the same kind as the frames.
    /// @throws File_failure, Usage_error
    /// @param frames_on_sensor the part of the sensor that frames are, if they are not all of it
    Frame_preparation(
        Sample_options const& options, std::optional<Raw_layout> const& raw,
        std::optional<polarization::Region> const& frames_on_sensor = std::nullopt);

    int bit_depth() const { return bit_depth_; }
    int shift() const { return shift_; }
    std::optional<polarization::Region> const& region() const { return region_; }
    /// Where frames lie as they are when they were cut; nothing if they are all of the sensor.
    std::optional<polarization::Region> region_on_sensor() const;
    /// Whether frames are a part of the sensor before they are cut.
    bool takes_part_of_sensor() const { return frames_on_sensor_.has_value(); }
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

    /// The same from what was read, unpacked on the way into `room`. What can only be decoded as a
    /// whole, or is already, takes no second frame: it is prepared where it is, in the slot.
    Prepared_frame apply(
        Frame_slot& slot, Frame& room, Dark_level level = Dark_level::subtracted,
        std::vector<std::uint8_t>* saturated = nullptr) const;

    /// The part of a frame that is left.
    /// @throws File_failure as `apply`
    polarization::Region part_of(polarization::Size const& frame, std::string const& name) const;

    /// One row of a part, whose samples as stored become prepared ones.
    /// @param row in the whole frame, `column` of the first sample
    /// @param saturated null, or what `apply` notes of these samples
    Sample_findings prepare_row(
        std::span<std::uint16_t> samples, std::size_t row, std::size_t column,
        Dark_level level = Dark_level::subtracted, std::uint8_t* saturated = nullptr) const;

    /// @param findings of all rows of `part`
    Sample_warnings warnings(
        Sample_findings const& findings, polarization::Region const& part,
        std::string const& name) const;

private:
    /// @param copy_row what gets samples as stored, as `Frame_slot::copy_row`
    template <class Copy_row>
    Sample_warnings apply_by_rows(
        Frame& target, polarization::Size const& whole, std::string const& name, Dark_level level,
        std::vector<std::uint8_t>* saturated, Copy_row copy_row) const;
    unsigned limit() const { return (1U << bit_depth_) - 1U; }
    std::string depth_warning(unsigned largest, std::string const& name) const;
    std::string dark_warning(
        std::uint64_t sum, polarization::Region const& part, std::string const& name) const;
    void read_dark(Sample_options const& options, std::optional<Raw_layout> const& raw);
    void note_mean_of_dark();

    int bit_depth_;
    int shift_;
    std::optional<polarization::Region> region_;
    std::optional<polarization::Region> frames_on_sensor_;
    std::optional<polarization::Dark_frame> dark_;
    std::vector<float> dark_means_;
    double mean_of_dark_ = 0.0; // in the part that is left of frames
    std::vector<std::filesystem::path> dark_files_;
};

} // namespace polarize_tool
