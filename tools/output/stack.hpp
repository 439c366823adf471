/// @file
/// All frames of a recording in one file a plane.
#pragma once

#include "output/results.hpp"
#include "output/stack_format.hpp"
#include "output/stack_record.hpp"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

/// The frames of one stack, in their order there.
struct Recording {
    std::string stem; // of the names of its files
    std::vector<Frame_place> frames;
};

/// A file of several frames is one recording. So are, together, the pictures in one folder, and
/// bear the folder's name; a single one bears its own.
std::vector<Recording> recordings_of(std::vector<Frame_place> frames);

/// What becomes of a stack that is there, finished or not.
enum class Earlier_stack { refused, resumed, replaced };

/// A stack under way. Until it is whole its files have the further ending `.part`, and a record
/// beside them tells which frames are in it; these stay if the run ends early.
///
/// Frame i has place i in each file. Frames that are missing in the end are zeros there, or NaN,
/// and stand in the JSON file.
class Frame_stack {
public:
    /// Makes the files in their full length, or opens those that are there.
    /// @param results and `recording` outlive the stack
    /// @param size_of_frames asked only if nothing that is there tells it
    /// @throws File_failure; then nothing was changed
    Frame_stack(
        Results const& results, Recording const& recording, Earlier_stack earlier,
        std::function<polarization::Size()> const& size_of_frames);
    ~Frame_stack();
    Frame_stack(Frame_stack const&) = delete;
    Frame_stack& operator=(Frame_stack const&) = delete;

    /// Everything that may appear under the name of a recording.
    static std::vector<std::filesystem::path> files_of(
        Results const& results, Recording const& recording);

    polarization::Size const& size() const { return size_; }
    bool has(std::size_t number) const { return done_[number]; }
    /// Frames without data.
    std::size_t missing() const;
    /// Frames of which anything lacks, be it a picture.
    std::size_t unfinished() const;
    bool is_finished() const { return !record_; }
    /// Of the planes, in the end.
    std::vector<std::filesystem::path> files() const;

    /// From any thread, each frame by one.
    /// @throws File_failure, Output_exhausted
    void write(std::size_t number, Frame_processor const& processed);

    /// That all of a frame is written. One thread at a time.
    /// @throws as `write`
    void note_done(std::size_t number);

    /// Gives the files their names and tells what is missing. A stack without a frame goes.
    /// @throws as `write`; the stack remains unfinished
    void finish();

private:
    struct Plane_file {
        polarization::Plane plane;
        std::filesystem::path name;
        std::filesystem::path part;
        Stack_format format;
        std::optional<Bulk_file> file;
        bool is_part = true;
    };
    void set_size(polarization::Size const& size);
    nlohmann::ordered_json description() const;
    void open(Earlier_stack earlier, std::function<polarization::Size()> const& size_of_frames);
    void begin(Earlier_stack earlier);
    void remove_earlier_parts();
    void make_files();
    void take_up(std::filesystem::path const& told_by, nlohmann::ordered_json const& told);
    void pass_over_done();
    void take_up_unfinished();
    void take_up_finished();
    void check_same(std::filesystem::path const& told_by, nlohmann::ordered_json const& told) const;
    void require_room() const;
    void open_files();
    void fill_missing();
    /// That this run made.
    void remove_parts();
    void end_record();

    Results const& results_;
    Recording const& recording_;
    std::filesystem::path sidecar_;
    std::filesystem::path record_name_;
    std::optional<Stack_record> record_; // of an unfinished one, closed after all its files
    polarization::Size size_;
    std::vector<Plane_file> planes_;
    std::vector<bool> has_data_; // in all planes
    std::vector<bool> done_;     // and has its pictures
};

} // namespace polarize_tool
