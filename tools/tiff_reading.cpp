#include "tiff_reading.hpp"

#include "standard_error.hpp"

#include <algorithm>
#include <memory>
#include <sstream>
#include <tiffio.h>
#include <tiffio.hxx>

namespace polarize_tool {
namespace {

/// A damaged size is not to be allocated. OpenCV has the same limit.
constexpr std::size_t largest_frame = std::size_t{1} << 30;

template <typename Value>
Value field(TIFF* image, std::uint32_t tag) {
    Value value{};
    TIFFGetFieldDefaulted(image, tag, &value);
    return value;
}

/// What keeps a TIFF from being a raw frame as the sensor gave it.
std::string layout_problem(TIFF* image) {
    if (field<std::uint16_t>(image, TIFFTAG_SAMPLESPERPIXEL) != 1 ||
        field<std::uint16_t>(image, TIFFTAG_PHOTOMETRIC) > PHOTOMETRIC_MINISBLACK) {
        return colour_image;
    }
    auto const bits = field<std::uint16_t>(image, TIFFTAG_BITSPERSAMPLE);
    if ((bits != 8 && bits != 16) ||
        field<std::uint16_t>(image, TIFFTAG_SAMPLEFORMAT) != SAMPLEFORMAT_UINT) {
        return samples_of_other_kind;
    }
    if (field<std::uint16_t>(image, TIFFTAG_PHOTOMETRIC) != PHOTOMETRIC_MINISBLACK) {
        return "its samples are inverted (0 is white); save it with 0 as black";
    }
    if (field<std::uint16_t>(image, TIFFTAG_ORIENTATION) != ORIENTATION_TOPLEFT) {
        return "it is turned or mirrored, and the mosaic with it; save it upright";
    }
    if (TIFFIsTiled(image) != 0) {
        return "it is stored in tiles; save it in strips";
    }
    return {};
}

bool read_rows(TIFF* image, Frame& frame) {
    bool const is_8_bit = field<std::uint16_t>(image, TIFFTAG_BITSPERSAMPLE) == 8;
    std::vector<std::uint8_t> bytes(is_8_bit ? frame.width : 0);
    for (std::size_t row = 0; row < frame.height; ++row) {
        std::uint16_t* const samples = frame.samples.data() + row * frame.width;
        void* const target = is_8_bit ? static_cast<void*>(bytes.data()) : samples;
        if (TIFFReadScanline(image, target, static_cast<std::uint32_t>(row)) < 0) {
            return false;
        }
        std::copy(bytes.begin(), bytes.end(), samples);
    }
    return true;
}

} // namespace

std::string read_tiff(std::string const& bytes, Frame& frame) {
    // libtiff prints its own complaints; the caller's line says all that a user can act on.
    Silenced_standard_error const silence;
    std::istringstream stream(bytes);
    std::unique_ptr<TIFF, decltype(&TIFFClose)> const owner(
        TIFFStreamOpen("memory", &stream), &TIFFClose);
    TIFF* const image = owner.get();
    if (image == nullptr) {
        return damaged_image;
    }
    if (std::string problem = layout_problem(image); !problem.empty()) {
        return problem;
    }
    frame.width = field<std::uint32_t>(image, TIFFTAG_IMAGEWIDTH);
    frame.height = field<std::uint32_t>(image, TIFFTAG_IMAGELENGTH);
    if (frame.width == 0 || frame.height > largest_frame / frame.width) {
        return "its size is " + std::to_string(frame.width) + " x " + std::to_string(frame.height) +
               ", more than 2^30 pixels; crop it";
    }
    frame.samples.resize(frame.width * frame.height);
    return read_rows(image, frame) ? std::string() : damaged_image;
}

} // namespace polarize_tool
