#include "output/array_writing.hpp"

#include "output/image_writing.hpp"
#include "output/tiff_writing.hpp"

#include <array>
#include <bit>
#include <stdexcept>
#include <string>

namespace polarize_tool {
namespace {

using polarization::Element_type;

static_assert(std::endian::native == std::endian::little, "samples go to files as they lie");

// NumPy's format, version 1.0: magic, length, and a dictionary padded so that the samples begin at
// a multiple of 64 bytes.
std::vector<std::uint8_t> npy_head(Array_view const& array) {
    constexpr std::size_t start_size = 10;
    constexpr std::size_t alignment = 64;
    std::array<char const*, 4> const types = {"<u2", "<i4", "<f4", "|u1"};
    std::string shape = std::to_string(array.height()) + ", " + std::to_string(array.width());
    if (array.channels() > 1) {
        shape += ", " + std::to_string(array.channels());
    }
    std::string dictionary = std::string("{'descr': '") +
                             types[static_cast<std::size_t>(array.kind())] +
                             "', 'fortran_order': False, 'shape': (" + shape + "), }";
    std::size_t const used = start_size + dictionary.size() + 1;
    dictionary.append((alignment - used % alignment) % alignment, ' ');
    dictionary += '\n';
    std::string head = "\x93NUMPY";
    head += '\x01';
    head += '\0';
    head += static_cast<char>(dictionary.size() & 0xFFU);
    head += static_cast<char>(dictionary.size() >> 8);
    head += dictionary;
    return {head.begin(), head.end()};
}

std::vector<std::uint8_t> png(Array_view const& array) {
    bool const is_uint8 = array.kind() == Element_type::uint8;
    if ((array.kind() != Element_type::uint16 && !is_uint8) || array.channels() != 1) {
        throw std::runtime_error("PNG holds no numbers of this kind; use --format tiff or npy");
    }
    return encode_png(cv::Mat(
        static_cast<int>(array.height()), static_cast<int>(array.width()),
        is_uint8 ? CV_8UC1 : CV_16UC1, const_cast<std::uint8_t*>(array.bytes().data())));
}

} // namespace

std::string_view ending_of(File_format format) {
    constexpr std::array<std::string_view, 4> endings = {"tif", "png", "raw", "npy"};
    return endings[static_cast<std::size_t>(format)];
}

Encoded_array encode(Array_view const& array, File_format format) {
    switch (format) {
    case File_format::tiff:
        return {tiff_head(array), true};
    case File_format::png:
        return {png(array), false};
    case File_format::npy:
        return {npy_head(array), true};
    case File_format::raw:
        break;
    }
    return {{}, true};
}

} // namespace polarize_tool
