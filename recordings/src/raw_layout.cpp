#include "veldrane_mrv/polarization/raw_layout.hpp"

#include "veldrane_mrv/polarization/geometry.hpp"

namespace veldrane_mrv::polarization {

std::size_t Raw_layout::frame_bytes() const {
    return bytes_per_frame(format, height, width, stride);
}

std::uint64_t Raw_layout::offset_of(std::size_t frame) const {
    return header_bytes + frame * frame_step();
}

std::size_t Raw_layout::frames_in(std::uint64_t file_size) const {
    if (file_size <= header_bytes) {
        return 0;
    }
    std::uint64_t const samples = file_size - header_bytes;
    std::uint64_t const last_padding = frame_step() - frame_bytes();
    for (std::uint64_t const padded : {samples, samples + last_padding}) {
        if (padded % frame_step() == 0) {
            return static_cast<std::size_t>(padded / frame_step());
        }
    }
    return 0;
}

std::string Raw_layout::size_problem(std::uint64_t file_size) const {
    std::uint64_t const whole =
        file_size > header_bytes ? (file_size - header_bytes) / frame_step() : 0;
    auto const expected = [this](std::uint64_t frames) {
        return std::to_string(header_bytes + frames * frame_step()) + " bytes (" +
               std::to_string(frames) + (frames == 1 ? " frame)" : " frames)");
    };
    std::string const header =
        header_bytes == 0 ? "" : " behind " + std::to_string(header_bytes) + " bytes of header";
    return "has " + std::to_string(file_size) + " bytes; frames of " +
           to_string(Size{width, height}) + " in " + std::string(name_of(format)) + header +
           " give " + (whole > 0 ? expected(whole) + " or " : "") + expected(whole + 1) +
           "; check --width, --height, --pixel-format, --header-bytes and --stride";
}

Raw_layout make_raw_layout(
    std::string const& pixel_format, std::size_t width, std::size_t height,
    std::uint64_t header_bytes, std::size_t stride) {
    Pixel_format const format = parse_pixel_format(pixel_format);
    Raw_layout const layout{
        format, width, height, header_bytes, stride == 0 ? bytes_per_row(format, width) : stride};
    static_cast<void>(layout.frame_bytes()); // refuses a stride shorter than a row
    return layout;
}

} // namespace veldrane_mrv::polarization
