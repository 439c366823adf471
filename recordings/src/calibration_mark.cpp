#include "input/calibration_mark.hpp"

#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <string>
#include <zlib.h>

namespace polarize_tool {
namespace {

using namespace std::string_view_literals;

// The signature of a PNG and its first chunk, whose lengths are fixed. Any other may follow.
constexpr std::size_t place_of_mark = 8 + 25;

// A textual chunk: keyword and text.
constexpr std::string_view mark = "tEXtSoftware\0veldrane-polarize calibrate"sv;

void append_number(std::string& bytes, std::size_t number) {
    for (int const shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>((number >> shift) & 0xFFU);
    }
}

} // namespace

std::vector<std::uint8_t> marked_as_plot(std::vector<std::uint8_t> png) {
    constexpr std::size_t size_of_kind = 4;
    std::string chunk;
    append_number(chunk, mark.size() - size_of_kind);
    chunk += mark;
    append_number(
        chunk,
        crc32(0, reinterpret_cast<Bytef const*>(mark.data()), static_cast<uInt>(mark.size())));
    png.insert(png.begin() + place_of_mark, chunk.begin(), chunk.end());
    return png;
}

bool is_of_calibration(std::string_view start) {
    constexpr std::size_t size_of_length = 4;
    std::size_t const place = place_of_mark + size_of_length;
    bool const is_plot = start.starts_with("\x89PNG\r\n\x1a\n"sv) && start.size() > place &&
                         start.substr(place).starts_with(mark);
    bool const is_calibration =
        start.starts_with('{') &&
        start.find(veldrane_mrv::polarization::calibration_schema_name) != std::string_view::npos;
    return is_plot || is_calibration;
}

} // namespace polarize_tool
