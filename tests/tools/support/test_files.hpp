/// @file
/// A folder for one test, and files in it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <span>
#include <string>
#include <vector>

namespace test_files {

/// Made empty at the start, removed with all it holds at the end.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;

    std::filesystem::path operator/(std::string const& name) const { return path_ / name; }
    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void write(std::filesystem::path const& file, std::span<std::uint8_t const> bytes);
void write(std::filesystem::path const& file, std::string const& text);
std::vector<std::uint8_t> read(std::filesystem::path const& file);

/// Names of everything in a folder, sorted.
std::vector<std::string> names_in(std::filesystem::path const& folder);

/// Any format and depth that the image library can write; `parameters` as for cv::imencode.
std::vector<std::uint8_t> encoded(
    cv::Mat const& image, std::string const& ending, std::vector<int> const& parameters = {});

/// The whole contents of a TIFF of the tools, `channels` samples a pixel.
std::vector<std::uint8_t> tool_tiff(
    std::span<std::uint16_t const> samples, std::size_t width, std::size_t height,
    std::size_t channels = 1);
std::vector<std::uint8_t> tool_tiff(
    std::span<float const> samples, std::size_t width, std::size_t height,
    std::size_t channels = 1);

/// A grey image of `type` CV_8UC1 or CV_16UC1 in which each sample follows from its position.
cv::Mat pattern(int width, int height, int type);

/// A TIFF that the tools wrote: uncompressed, one strip. Reads any of the kinds they write.
struct Tiff {
    std::size_t width;
    std::size_t height;
    std::size_t channels;
    std::vector<double> samples;
};
Tiff read_tiff(std::filesystem::path const& file);

} // namespace test_files
