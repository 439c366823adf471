#include "image_writing.hpp"

#include "failure.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <tiffio.h>
#include <tiffio.hxx>
#include <type_traits>
#include <unistd.h>

namespace polarize_tool {
namespace {

/// Uncompressed, all rows in one strip.
template <typename Sample>
std::vector<std::uint8_t> encode(
    std::span<Sample const> samples, std::size_t width, std::size_t height, std::size_t channels) {
    std::ostringstream stream;
    {
        std::unique_ptr<TIFF, decltype(&TIFFClose)> const image(
            TIFFStreamOpen("memory", &stream), &TIFFClose);
        auto const set = [&image](std::uint32_t tag, auto value) {
            TIFFSetField(image.get(), tag, value);
        };
        set(TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(width));
        set(TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(height));
        set(TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(height));
        set(TIFFTAG_BITSPERSAMPLE, 8 * static_cast<int>(sizeof(Sample)));
        set(TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(channels));
        set(TIFFTAG_SAMPLEFORMAT,
            std::is_floating_point_v<Sample> ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
        set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        if (channels == 2) {
            // The second channel is neither transparency nor colour.
            std::uint16_t const unspecified = EXTRASAMPLE_UNSPECIFIED;
            TIFFSetField(image.get(), TIFFTAG_EXTRASAMPLES, 1, &unspecified);
        }
        auto const bytes = static_cast<tmsize_t>(samples.size_bytes());
        if (TIFFWriteEncodedStrip(image.get(), 0, const_cast<Sample*>(samples.data()), bytes) !=
            bytes) {
            throw std::runtime_error("the image is too large for a TIFF file");
        }
    }
    std::string const file = std::move(stream).str();
    return {file.begin(), file.end()};
}

std::string last_error() {
    return std::strerror(errno != 0 ? errno : EIO);
}

} // namespace

std::vector<std::uint8_t> encode_tiff(
    std::span<std::uint16_t const> samples, std::size_t width, std::size_t height,
    std::size_t channels) {
    return encode(samples, width, height, channels);
}

std::vector<std::uint8_t> encode_tiff(
    std::span<float const> samples, std::size_t width, std::size_t height, std::size_t channels) {
    return encode(samples, width, height, channels);
}

std::vector<std::uint8_t> encode_png(cv::Mat const& picture) {
    std::vector<std::uint8_t> bytes;
    // Level 1: higher ones take several times as long and gain little on noisy frames.
    if (!cv::imencode(".png", picture, bytes, {cv::IMWRITE_PNG_COMPRESSION, 1})) {
        throw std::runtime_error("the picture cannot be encoded as PNG");
    }
    return bytes;
}

void make_folder(std::filesystem::path const& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error || !std::filesystem::is_directory(folder, error)) {
        throw File_failure(
            folder, "cannot be made a folder for the results: " +
                        (error ? error.message() : "it is a file"));
    }
}

Staged_files::~Staged_files() {
    for (Staged_file const& file : files_) {
        std::error_code ignored;
        std::filesystem::remove(file.temporary, ignored);
    }
}

void Staged_files::add(std::filesystem::path const& file, std::span<std::uint8_t const> bytes) {
    std::filesystem::path temporary = file;
    temporary += ".part-" + std::to_string(getpid());
    files_.push_back({temporary, file});
    errno = 0;
    std::ofstream stream(temporary, std::ios::binary | std::ios::trunc);
    stream.write(
        reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        throw File_failure(file, "cannot be written: " + last_error());
    }
}

void Staged_files::publish() {
    // A rename onto a folder fails; found out before the first one, it leaves nothing half done.
    for (Staged_file const& file : files_) {
        std::error_code error;
        if (std::filesystem::is_directory(file.final, error)) {
            throw File_failure(
                file.final, "cannot be written: a folder has this name; use another folder");
        }
    }
    for (Staged_file const& file : files_) {
        std::error_code error;
        std::filesystem::rename(file.temporary, file.final, error);
        if (error) {
            throw File_failure(file.final, "cannot be written: " + error.message());
        }
    }
    files_.clear();
}

} // namespace polarize_tool
