/// @file
/// Image files that appear whole or not at all.
#ifndef VELDRANE_TOOLS_IMAGE_WRITING_HPP
#define VELDRANE_TOOLS_IMAGE_WRITING_HPP

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace polarize_tool {

/// Baseline TIFF, uncompressed, one strip. `channels` samples per pixel lie side by side, as in
/// memory. Throws std::runtime_error above 4 GiB.
std::vector<std::uint8_t> encode_tiff(
    std::span<std::uint16_t const> samples, std::size_t width, std::size_t height,
    std::size_t channels = 1);
std::vector<std::uint8_t> encode_tiff(
    std::span<float const> samples, std::size_t width, std::size_t height,
    std::size_t channels = 1);

/// PNG of 8 or 16 bits, grey or in OpenCV's order of colours.
std::vector<std::uint8_t> encode_png(cv::Mat const& picture);

/// Makes `folder` and what is missing above it.
/// @throws File_failure
void make_folder(std::filesystem::path const& folder);

/// Files that are to appear together. Each is first written beside its place under another name;
/// publish() renames them all. Whatever was not published is removed.
class Staged_files {
public:
    Staged_files() = default;
    ~Staged_files();
    Staged_files(Staged_files const&) = delete;
    Staged_files& operator=(Staged_files const&) = delete;

    /// @throws File_failure if the file cannot be written in full
    void add(std::filesystem::path const& file, std::span<std::uint8_t const> bytes);

    /// @throws File_failure
    void publish();

private:
    struct Staged_file {
        std::filesystem::path temporary;
        std::filesystem::path final;
    };
    std::vector<Staged_file> files_;
};

} // namespace polarize_tool

#endif
