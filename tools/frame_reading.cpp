#include "frame_reading.hpp"

#include "failure.hpp"
#include "standard_error.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string_view>
#include <vector>

namespace polarize_tool {
namespace {

std::vector<char> contents(std::filesystem::path const& file) {
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) {
        throw File_failure(file, "cannot be read: it is a folder; name the frames in it");
    }
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    std::vector<char> bytes(std::istreambuf_iterator<char>(stream), {});
    if (!stream.is_open() || stream.bad()) {
        throw File_failure(
            file, std::string("cannot be read: ") + std::strerror(errno != 0 ? errno : EIO));
    }
    return bytes;
}

/// The formats that carry raw frames, by their first bytes. OpenCV reads more, but those are lossy
/// or change samples: a plain (ASCII) PGM of up to 8 bits is stretched to 255.
void require_frame_format(std::filesystem::path const& file, std::string_view bytes) {
    using namespace std::string_view_literals;
    for (std::string_view const signature :
         {"\x89PNG\r\n\x1a\n"sv, "II*\0"sv, "MM\0*"sv, "P5"sv, "P6"sv}) {
        if (bytes.starts_with(signature)) {
            return;
        }
    }
    if (bytes.starts_with("P2"sv)) {
        throw File_failure(file, "a plain (ASCII) PGM is not read; save it as binary PGM or PNG");
    }
    throw File_failure(file, "not a PNG, TIFF or binary PGM image");
}

cv::Mat decode(std::vector<char> const& bytes) {
    // The decoders print their own complaints; the caller's line says all that a user can act on.
    Silenced_standard_error const silence;
    try {
        return cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
    } catch (cv::Exception const&) {
        return {};
    }
}

} // namespace

Frame read_frame(std::filesystem::path const& file) {
    std::vector<char> const bytes = contents(file);
    require_frame_format(file, {bytes.data(), bytes.size()});
    cv::Mat const image = decode(bytes);
    if (image.empty()) {
        throw File_failure(file, "damaged or cut short; copy or record it again");
    }
    if (image.channels() != 1) {
        throw File_failure(file, "a colour image; a raw frame has one grey sample per pixel");
    }
    if (image.depth() != CV_8U && image.depth() != CV_16U) {
        throw File_failure(file, "samples are not unsigned numbers of 8 or 16 bits");
    }
    Frame frame{
        .width = static_cast<std::size_t>(image.cols),
        .height = static_cast<std::size_t>(image.rows),
        .samples = std::vector<std::uint16_t>(image.total()),
    };
    image.convertTo(cv::Mat(image.rows, image.cols, CV_16UC1, frame.samples.data()), CV_16U);
    return frame;
}

} // namespace polarize_tool
