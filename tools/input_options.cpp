#include "input_options.hpp"

#include "failure.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <cmath>

namespace polarize_tool {
namespace {

namespace polarization = veldrane_mrv::polarization;

constexpr int largest_side = 1 << 20;

// Beyond any file; a header and two frames of the largest size still add up without wrapping.
constexpr std::uint64_t largest_header = std::uint64_t{1} << 62;
constexpr std::size_t largest_stride = std::size_t{1} << 40;

} // namespace

std::string finite_number(std::string const& text) {
    double number = 0.0;
    bool const is_number = CLI::detail::lexical_cast(text, number);
    return is_number && !std::isfinite(number) ? text + " is no finite number" : "";
}

std::optional<Raw_layout> Input_options::raw_layout() const {
    if (pixel_format.empty()) {
        if (width != 0 || height != 0 || header_bytes != 0 || stride != 0) {
            throw Usage_error(
                "--width, --height, --header-bytes and --stride describe raw samples; give "
                "--pixel-format as well");
        }
        return std::nullopt;
    }
    if (width == 0 || height == 0) {
        throw Usage_error("--pixel-format needs --width and --height");
    }
    try {
        return make_raw_layout(pixel_format, width, height, header_bytes, stride);
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(std::string("raw samples: ") + error.what());
    }
}

void add_input_options(CLI::App& command, Input_options& options) {
    command
        .add_option(
            "frames", options.inputs,
            "Raw frames: grey PNG, PGM or TIFF (of one or many pictures) of 8 or 16 bits, folders "
            "of them, or quoted patterns such as 'run3/*.png'. With --pixel-format files of bare "
            "samples that hold one or many frames")
        ->required()
        ->type_name("FRAME");
    std::string const raw = "Raw samples";
    command
        .add_option(
            "--pixel-format", options.pixel_format,
            "Mono8, Mono10, Mono12, Mono14, Mono16, Mono10p, Mono12p, Mono10Packed or "
            "Mono12Packed; every row begins at a whole byte, so one that ends within a byte is "
            "filled up")
        ->type_name("NAME")
        ->group(raw);
    command.add_option("--width", options.width, "Columns of a frame")
        ->check(CLI::Range(1, largest_side))
        ->group(raw);
    command.add_option("--height", options.height, "Rows of a frame")
        ->check(CLI::Range(1, largest_side))
        ->group(raw);
    command
        .add_option("--header-bytes", options.header_bytes, "Bytes of the file before the samples")
        ->check(CLI::Range(std::uint64_t{0}, largest_header))
        ->group(raw);
    command
        .add_option(
            "--stride", options.stride, "Bytes from one row to the next; without it rows adjoin")
        ->check(CLI::Range(std::size_t{1}, largest_stride))
        ->group(raw);
    std::string const selection = "Choice of frames, counted from 0 over all inputs";
    command.add_option("--start", options.selection.start, "First frame")
        ->check(CLI::NonNegativeNumber)
        ->group(selection);
    command.add_option("--stop", options.selection.stop, "Frame behind the last one")
        ->check(CLI::NonNegativeNumber)
        ->group(selection);
    command.add_option("--step", options.selection.step, "Take each STEP-th frame")
        ->check(CLI::PositiveNumber)
        ->group(selection);
}

std::optional<Region> Sample_options::region() const {
    if (region_text.empty()) {
        return std::nullopt;
    }
    std::array<std::size_t, 4> numbers = {};
    char const* place = region_text.data();
    char const* const end = place + region_text.size();
    bool is_good = true;
    for (std::size_t index = 0; index < numbers.size() && is_good; ++index) {
        auto const [behind, error] = std::from_chars(place, end, numbers[index]);
        bool const is_last = index + 1 == numbers.size();
        is_good = error == std::errc() && (is_last ? behind == end : behind != end) &&
                  (is_last || *behind == ',');
        place = behind + (is_last ? 0 : 1);
    }
    if (!is_good || numbers[2] == 0 || numbers[3] == 0) {
        throw Usage_error(
            "--region " + region_text + " is no COLUMN,ROW,WIDTH,HEIGHT, such as 0,512,2448,1024");
    }
    return Region{numbers[0], numbers[1], numbers[2], numbers[3]};
}

int Sample_options::depth(std::optional<Raw_layout> const& raw) const {
    if (bit_depth != 0) {
        return bit_depth;
    }
    if (!raw) {
        throw Usage_error("--bit-depth is required for images, whose files do not tell it");
    }
    return static_cast<int>(polarization::bit_depth_of(raw->format)) - shift;
}

void add_sample_options(CLI::App& command, Sample_options& options) {
    command
        .add_option(
            "--bit-depth", options.bit_depth,
            "Significant bits B of a sample, 1 to 16; required for images, else that of the pixel "
            "format")
        ->check(CLI::Range(1, 16));
    command
        .add_option(
            "--shift", options.shift,
            "Move samples down by so many bits, for those that lie at the upper end of 16")
        ->type_name("BITS")
        ->check(CLI::Range(0, 15));
    command
        .add_option(
            "--region", options.region_text,
            "Take this part of each frame. The mosaic is given for the whole frame: an odd COLUMN "
            "or ROW is taken care of")
        ->type_name("COLUMN,ROW,WIDTH,HEIGHT");
    command
        .add_option(
            "--dark", options.dark_frames,
            "Frames taken without light, or folders or patterns of them; their mean is subtracted")
        ->type_name("FRAME");
}

std::optional<polarization::Mosaic> Mosaic_options::given() const {
    if (phase && !layout.empty()) {
        throw Usage_error("--phase and --layout say the same thing; give one of them");
    }
    if (phase) {
        return polarization::Mosaic::from_phase(*phase);
    }
    if (layout.empty()) {
        return std::nullopt;
    }
    try {
        return polarization::Mosaic::parse(layout);
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(std::string("--layout: ") + error.what());
    }
}

polarization::Mosaic Mosaic_options::required() const {
    auto const mosaic = given();
    if (!mosaic) {
        throw Usage_error("--phase or --layout is required: how the mosaic lies on the sensor");
    }
    return *mosaic;
}

void add_mosaic_options(CLI::App& command, Mosaic_options& options) {
    command.add_option("--phase", options.phase, phase_help)
        ->check(CLI::Range(0, 3))
        ->type_name("P");
    command
        .add_option(
            "--layout", options.layout,
            "The same by the angles of the top-left cell, row by row: 90,45,135,0 is phase 2")
        ->type_name("A,B,C,D");
}

} // namespace polarize_tool
