#include "frame_reading.hpp"

#include "failure.hpp"
#include "standard_error.hpp"
#include "tiff_reading.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace polarize_tool {
namespace {

std::string contents(std::filesystem::path const& file) {
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) {
        throw File_failure(file, "cannot be read: it is a folder; name the frames in it");
    }
    if (std::filesystem::exists(file, error) && !std::filesystem::is_regular_file(file, error)) {
        throw File_failure(file, "cannot be read: it is no regular file; name image files");
    }
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(stream), {});
    if (!stream.is_open() || stream.bad()) {
        throw File_failure(
            file, std::string("cannot be read: ") + std::strerror(errno != 0 ? errno : EIO));
    }
    return bytes;
}

enum class Format { png, tiff, pgm, other };

/// OpenCV reads more formats, but those are lossy or change samples: a plain (ASCII) PGM of up to
/// 8 bits is stretched to 255.
Format format_of(std::string_view bytes) {
    using namespace std::string_view_literals;
    if (bytes.starts_with("\x89PNG\r\n\x1a\n"sv)) {
        return Format::png;
    }
    if (bytes.starts_with("II*\0"sv) || bytes.starts_with("MM\0*"sv)) {
        return Format::tiff;
    }
    return bytes.starts_with("P5"sv) || bytes.starts_with("P6"sv) ? Format::pgm : Format::other;
}

/// A PNG's header chunk says in byte 24 how many bits a sample has. OpenCV stretches fewer than 8.
bool has_narrow_samples(std::string_view png) {
    constexpr std::size_t bit_depth = 24;
    return png.size() > bit_depth && png[bit_depth] < 8;
}

cv::Mat decode(std::string const& bytes) {
    // The decoders print their own complaints; the caller's line says all that a user can act on.
    Silenced_standard_error const silence;
    try {
        return cv::imdecode(std::vector<char>(bytes.begin(), bytes.end()), cv::IMREAD_UNCHANGED);
    } catch (cv::Exception const&) {
        return {};
    }
}

std::string read_with_opencv(std::string const& bytes, Frame& frame) {
    cv::Mat const image = decode(bytes);
    if (image.empty()) {
        return damaged_image;
    }
    if (image.channels() != 1) {
        return colour_image;
    }
    frame.width = static_cast<std::size_t>(image.cols);
    frame.height = static_cast<std::size_t>(image.rows);
    frame.samples.resize(image.total());
    image.convertTo(cv::Mat(image.rows, image.cols, CV_16UC1, frame.samples.data()), CV_16U);
    return {};
}

std::string read(std::string const& bytes, Frame& frame) {
    switch (format_of(bytes)) {
    case Format::tiff:
        return read_tiff(bytes, frame);
    case Format::png:
        if (has_narrow_samples(bytes)) {
            return samples_of_other_kind;
        }
        return read_with_opencv(bytes, frame);
    case Format::pgm:
        return read_with_opencv(bytes, frame);
    case Format::other:
        break;
    }
    return bytes.starts_with("P2")
               ? "a plain (ASCII) PGM is not read; save it as binary PGM or PNG"
               : "not a PNG, TIFF or binary PGM image; convert it to one of these";
}

} // namespace

Frame read_frame(std::filesystem::path const& file) {
    Frame frame;
    std::string const problem = read(contents(file), frame);
    if (!problem.empty()) {
        throw File_failure(file, problem);
    }
    return frame;
}

} // namespace polarize_tool
