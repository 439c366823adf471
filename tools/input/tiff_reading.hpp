/// @file
/// Raw frames in TIFF files. OpenCV's reader would turn and invert samples where the file says so.
#pragma once

#include "input/frame.hpp"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace polarize_tool {

inline constexpr char const* damaged_image = "damaged or cut short; copy or record it again";
inline constexpr char const* colour_image =
    "a colour image; a raw frame has one grey sample per pixel, so save it in grey, undemosaiced";
inline constexpr char const* samples_of_other_kind =
    "samples are not unsigned numbers of 8 or 16 bits; save it as an 8- or 16-bit grey image";

/// By the first four bytes of a file; BigTIFF counts.
bool begins_like_tiff(std::string_view bytes);

/// Reads the first picture of a TIFF, compressed or not, every sample as it is stored.
/// @return what is wrong with it, empty if nothing
std::string read_tiff(std::string_view bytes, Frame& frame);

/// A TIFF on the disk, whose pictures are read one by one. For one thread.
class Tiff_file {
public:
    /// @throws File_failure if the file is no TIFF, or no regular file
    explicit Tiff_file(std::filesystem::path const& file);
    ~Tiff_file();
    Tiff_file(Tiff_file const&) = delete;
    Tiff_file& operator=(Tiff_file const&) = delete;

    struct Pages {
        std::size_t count;
        bool is_complete; // false if the list of pictures breaks off behind these
    };
    /// @throws File_failure if the file cannot be opened any more
    Pages pages();

    /// @throws File_failure if the file cannot be opened any more
    /// @return what is wrong with the picture, empty if nothing
    std::string read(std::size_t page, Frame& frame);

private:
    struct Handle;
    bool reopen();
    bool find(std::size_t page);

    std::filesystem::path file_;
    std::unique_ptr<Handle> handle_;
};

} // namespace polarize_tool
