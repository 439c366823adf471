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

std::vector<std::size_t> shape_of(Array_view const& array) {
    std::vector<std::size_t> shape = {array.height(), array.width()};
    if (array.channels() > 1) {
        shape.push_back(array.channels());
    }
    return shape;
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

// Magic, length, and a dictionary padded with blanks. By hand, since the one writer that Debian
// has, xtensor's, pads to 64 bytes, not to the page that mapped stacks start at, and writes the
// samples too.
std::vector<std::uint8_t> npy_head(
    Element_type kind, std::span<std::size_t const> shape, std::size_t alignment) {
    constexpr std::size_t start_size = 10;
    constexpr std::array<char const*, 4> types = {"<u2", "<i4", "<f4", "|u1"};
    std::string dictionary = std::string("{'descr': '") + types[static_cast<std::size_t>(kind)] +
                             "', 'fortran_order': False, 'shape': (";
    for (std::size_t const length : shape) {
        dictionary.append(dictionary.ends_with('(') ? "" : ", ").append(std::to_string(length));
    }
    dictionary += "), }";
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

Encoded_array encode(Array_view const& array, File_format format) {
    switch (format) {
    case File_format::tiff:
        return {tiff_head(array), true};
    case File_format::png:
        return {png(array), false};
    case File_format::npy:
        return {npy_head(array.kind(), shape_of(array)), true};
    case File_format::raw:
        break;
    }
    return {{}, true};
}

} // namespace polarize_tool
