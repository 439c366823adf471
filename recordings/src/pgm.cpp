// Binary PGM files.
#include "source_kind.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace veldrane_mrv::polarization::recordings {
namespace {

constexpr std::array<std::string_view, 1> endings = {".pgm"};

// PPM is the same in colour.
bool begins_like_pgm(std::string_view start) {
    return start.starts_with("P5") || start.starts_with("P6");
}

bool is_blank(char letter) {
    return std::isspace(static_cast<unsigned char>(letter)) != 0;
}

/// Takes blanks and comments, and the number behind them.
/// @return 0 if there is none
std::size_t take_number(std::string_view& text) {
    while (!text.empty() && (is_blank(text.front()) || text.front() == '#')) {
        std::size_t const length = is_blank(text.front()) ? 1 : text.find_first_of("\r\n");
        text.remove_prefix(std::min(length, text.size()));
    }
    std::size_t number = 0;
    auto const read = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(read.ptr - text.data()));
    return number;
}

// Files of several pictures, one behind the other, are within the format; readers give the first.
bool is_picture(std::string_view rest) {
    std::size_t const next = rest.find_first_not_of(" \t\r\n");
    return next != std::string_view::npos && rest.substr(next).starts_with("P5");
}

std::string decode_pgm(std::string_view bytes, Frame& frame, unsigned& sample_bits) {
    constexpr std::size_t largest_maximum = 65535;
    if (bytes.starts_with("P6")) {
        return colour_image;
    }
    std::string_view rest = bytes.substr(2);
    bool const ends_magic = !rest.empty() && (is_blank(rest.front()) || rest.front() == '#');
    frame.width = take_number(rest);
    frame.height = take_number(rest);
    std::size_t const maximum = take_number(rest);
    if (!ends_magic || frame.width == 0 || frame.height == 0 || maximum == 0 ||
        maximum > largest_maximum || rest.empty() || !is_blank(rest.front())) {
        return damaged_image;
    }
    rest.remove_prefix(1);
    std::size_t const sample_bytes = maximum > 255 ? 2 : 1;
    if (frame.height > rest.size() / sample_bytes / frame.width) {
        return damaged_image;
    }
    if (std::string problem = size_problem(frame.width, frame.height); !problem.empty()) {
        return problem;
    }
    std::size_t const pixels = frame.width * frame.height;
    if (is_picture(rest.substr(pixels * sample_bytes))) {
        return "holds several pictures; save each in a file of its own";
    }
    frame.samples.resize(pixels);
    sample_bits = static_cast<unsigned>(8 * sample_bytes);
    auto const* const stored = reinterpret_cast<std::uint8_t const*>(rest.data());
    for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
        frame.samples[pixel] =
            sample_bytes == 1
                ? stored[pixel]
                : static_cast<std::uint16_t>(stored[2 * pixel] << 8 | stored[2 * pixel + 1]);
    }
    return {};
}

std::unique_ptr<Frame_source> open_pgm(Opened_file file) {
    return one_picture(std::move(file), decode_pgm);
}

} // namespace

extern Source_kind const pgm;
constinit Source_kind const pgm{endings, false, begins_like_pgm, open_pgm};

} // namespace veldrane_mrv::polarization::recordings
