#include "output/array_writing.hpp"

#include "output/image_writing.hpp"

#include <array>
#include <bit>
#include <limits>
#include <stdexcept>
#include <string>

namespace polarize_tool {
namespace {

using polarization::Element_type;

static_assert(std::endian::native == std::endian::little, "samples go to files as they lie");

constexpr unsigned bits_of(Element_type kind) {
    switch (kind) {
    case Element_type::uint8:
        return 8;
    case Element_type::uint16:
        return 16;
    default:
        return 32;
    }
}

/// Puts a TIFF's numbers behind one another, the lower byte first.
class Tiff_header {
public:
    void number(std::uint32_t value, int byte_count) {
        for (int byte = 0; byte < byte_count; ++byte) {
            bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
        }
    }
    // One value, which stands in the field itself.
    void field(std::uint32_t tag, std::uint32_t type, std::uint32_t value) {
        number(tag, 2);
        number(type, 2);
        number(1, 4);
        number(value, 4);
    }
    std::vector<std::uint8_t> bytes() const { return bytes_; }

private:
    std::vector<std::uint8_t> bytes_;
};

// TIFF 6.0, baseline grey picture, uncompressed, one strip that begins behind the header. Further
// channels are declared as neither transparency nor colour.
std::vector<std::uint8_t> tiff_head(Array_view const& array) {
    constexpr std::uint32_t short_type = 3;
    constexpr std::uint32_t long_type = 4;
    auto const channels = static_cast<std::uint32_t>(array.channels());
    std::uint32_t const field_count = channels > 1 ? 12 : 11;
    std::uint32_t const fields_end = 8 + 2 + 12 * field_count + 4;
    // Of the bits and of the kind of each channel; up to two values stand in the field itself.
    std::uint32_t const list_size = channels > 2 ? 2 * channels : 0;
    std::uint32_t const head_size = fields_end + 2 * list_size;
    if (array.bytes().size() > std::numeric_limits<std::uint32_t>::max() - head_size) {
        throw std::runtime_error("the plane is too large for a TIFF file; use --format npy");
    }
    std::array<std::uint32_t, 4> const sample_formats = {1, 2, 3, 1}; // 2 signed, 3 floating
    Tiff_header head;
    head.number(0x4949, 2);
    head.number(42, 2);
    head.number(8, 4);
    head.number(field_count, 2);
    head.field(256, long_type, static_cast<std::uint32_t>(array.width()));
    head.field(257, long_type, static_cast<std::uint32_t>(array.height()));
    auto const per_channel = [&](std::uint32_t tag, std::uint32_t value, std::uint32_t place) {
        head.number(tag, 2);
        head.number(short_type, 2);
        head.number(channels, 4);
        if (list_size > 0) {
            head.number(place, 4);
        } else {
            head.number(value, 2);
            head.number(channels == 2 ? value : 0, 2);
        }
    };
    std::uint32_t const bits = bits_of(array.kind());
    std::uint32_t const sample_format = sample_formats[static_cast<std::size_t>(array.kind())];
    per_channel(258, bits, fields_end);
    head.field(259, short_type, 1);
    head.field(262, short_type, 1);
    head.field(273, long_type, head_size);
    head.field(277, short_type, channels);
    head.field(278, long_type, static_cast<std::uint32_t>(array.height()));
    head.field(279, long_type, static_cast<std::uint32_t>(array.bytes().size()));
    head.field(284, short_type, 1);
    // Up to two values of 0 stand in the field itself, and there are three channels at most.
    if (channels > 1) {
        head.number(338, 2);
        head.number(short_type, 2);
        head.number(channels - 1, 4);
        head.number(0, 4);
    }
    per_channel(339, sample_format, fields_end + list_size);
    head.number(0, 4);
    for (std::uint32_t const value : {bits, sample_format}) {
        for (std::uint32_t byte = 0; byte < list_size; byte += 2) {
            head.number(value, 2);
        }
    }
    return head.bytes();
}

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
