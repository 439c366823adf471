/// @file
/// Raw frames from files, every sample exactly as it is stored.
#pragma once

#include "input/frame.hpp"
#include "input/frame_finding.hpp"

#include <filesystem>
#include <optional>
#include <string>

namespace polarize_tool {

class Tiff_file;

/// Reads one grey PNG, TIFF or binary PGM of 8 or 16 bits, told apart by content and not by name.
/// No sample is scaled; 8-bit samples are widened unchanged.
/// @throws File_failure if the file is no such image, or not whole
Frame read_frame(std::filesystem::path const& file);

/// A frame on its way into memory. Used for one frame after another, it keeps its memory.
struct Fetched_frame {
    Frame_place place;
    std::string bytes;
    bool is_decoded = false;
    Frame frame;
};

/// Frames of any place in two steps: the disk's, one after another, and the processor's, which may
/// run for several frames at once.
class Frame_reader {
public:
    explicit Frame_reader(std::optional<Raw_layout> raw);
    ~Frame_reader();

    /// For one thread at a time; quickest in the order of the file.
    /// @throws File_failure
    void fetch(Frame_place const& place, Fetched_frame& target);

    /// Fills `target.frame`.
    /// @throws File_failure
    void decode(Fetched_frame& target) const;

private:
    void fetch_page(Frame_place const& place, Fetched_frame& target);

    std::optional<Raw_layout> raw_;
    std::filesystem::path open_file_;
    std::unique_ptr<Tiff_file> tiff_;
};

} // namespace polarize_tool
