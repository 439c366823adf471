/// @file
/// Kinds of files that frames come from: how one is known, and what opens it.
#pragma once

#include "veldrane_mrv/polarization/frame_source.hpp"
#include "veldrane_mrv/polarization/recording_description.hpp"
#include "veldrane_mrv/polarization/regular_files.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace veldrane_mrv::polarization::recordings {

inline constexpr char const* damaged_image = "damaged or cut short; copy or record it again";
inline constexpr char const* colour_image =
    "a colour image; a raw frame has one grey sample per pixel, so save it in grey, undemosaiced";
inline constexpr char const* samples_of_other_kind =
    "samples are not unsigned numbers of 8 or 16 bits; save it as an 8- or 16-bit grey image";

/// Empty if a picture of this size is read.
std::string size_problem(std::size_t width, std::size_t height);

/// Pixels of the largest picture that is read. A damaged size is not to be allocated.
inline constexpr std::size_t largest_frame = std::size_t{1} << 30;

/// A regular file, the bytes that it begins with, and what the user says about it.
class Opened_file {
public:
    /// @throws File_failure unless `file` is a regular one that can be opened
    Opened_file(std::filesystem::path const& file, std::optional<Raw_layout> const& layout);
    /// @param input without a problem
    Opened_file(
        std::filesystem::path const& file, regular_files::Input input,
        std::optional<Raw_layout> const& layout);

    std::filesystem::path const& name() const { return name_; }
    std::string_view start() const { return start_; }
    std::optional<Raw_layout> const& layout() const { return layout_; }
    regular_files::Descriptor const& descriptor() const { return input_.descriptor; }

    /// When it was opened.
    std::uint64_t size() const { return static_cast<std::uint64_t>(input_.status.st_size); }

    struct Read_bytes {
        std::size_t count; // fewer than wanted at the end, or if there is an error
        int error;         // its number, or 0
    };
    Read_bytes read_into(std::uint64_t offset, char* target, std::size_t count) const noexcept;

    /// As many bytes as there are, at most `count`.
    /// @throws File_failure
    void read(std::uint64_t offset, std::size_t count, std::string& bytes) const;

private:
    std::filesystem::path name_;
    regular_files::Input input_;
    std::string start_;
    std::optional<Raw_layout> layout_;
};

struct Source_kind {
    /// In lower case, of files that are taken from a folder.
    std::span<std::string_view const> endings;
    /// Whether the user has to describe it by a layout.
    bool needs_layout;
    /// For kinds without a layout, by the first bytes.
    bool (*recognises)(std::string_view start);
    /// @throws File_failure if the file holds no frame as far as can be told without decoding one
    std::unique_ptr<Frame_source> (*open)(Opened_file file);
};

/// All kinds, in the order in which they are asked.
std::span<Source_kind const* const> source_kinds();

std::unique_ptr<Frame_source> open_frames(Opened_file file);

/// How a file's samples become those of frames, besides their layout.
struct Sample_storage {
    Raw_layout layout;
    unsigned sample_bits = 16; // as in `Frame_shape`
    bool swaps_bytes = false;  // of samples whose higher byte comes first
};

/// Frames one behind the other in a file that holds `count` of them.
std::unique_ptr<Frame_source> stored_frames(
    Opened_file file, Sample_storage const& storage, std::size_t count);

/// The frames of a recording, as what stands beside it tells. Of one that was cut short those that
/// are there.
/// @throws Argument_error if the file's own layout is another
/// @throws File_failure if there is no frame, or more than was told
std::unique_ptr<Frame_source> open_recording(Opened_file file, Recording_description description);

/// Makes the samples of frames of what is stored so.
std::shared_ptr<Frame_decoder const> unpacker(Sample_storage const& storage);

/// What begins so and is never meant as bare samples, such as "a PNG image"; else null.
char const* kind_of_picture(std::string_view start);

/// The first bytes of an npy file.
inline constexpr std::string_view array_magic = "\x93NUMPY";

/// @return what is wrong with a picture, empty if nothing
using Decode_picture = std::string (*)(std::string_view bytes, Frame& frame, unsigned& sample_bits);

std::shared_ptr<Frame_decoder const> picture_decoder(Decode_picture decode);

/// A file of one picture, which is read whole and then decoded.
std::unique_ptr<Frame_source> one_picture(Opened_file file, Decode_picture decode);

} // namespace veldrane_mrv::polarization::recordings
