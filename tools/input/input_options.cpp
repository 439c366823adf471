#include "input/input_options.hpp"

#include "input/option_values.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <unistd.h>

namespace polarize_tool {
namespace {

namespace polarization = veldrane_mrv::polarization;

constexpr int largest_side = 1 << 20;

// Beyond any file; a header and two frames of the largest size still add up without wrapping.
constexpr std::uint64_t largest_header = std::uint64_t{1} << 62;
constexpr std::size_t largest_stride = std::size_t{1} << 40;

std::vector<std::string> pixel_format_names() {
    std::vector<std::string> names;
    for (polarization::Pixel_format const format : polarization::all_pixel_formats) {
        names.emplace_back(name_of(format));
    }
    return names;
}

} // namespace

bool Input_options::reads_standard_input() const {
    return std::find(inputs.begin(), inputs.end(), standard_input) != inputs.end();
}

void Input_options::check_standard_input() const {
    if (!reads_standard_input()) {
        return;
    }
    if (inputs.size() > 1) {
        throw Usage_error(
            "- stands for standard input, but other frames are given too; give it alone, or write "
            "./- for a file of that name");
    }
    if (pixel_format.empty()) {
        throw Usage_error(
            "- reads bare samples from standard input; describe them by --pixel-format, --width "
            "and --height");
    }
    if (isatty(STDIN_FILENO) != 0) {
        throw Usage_error(
            "- reads standard input, which is a terminal; pipe samples into it, as in cat run.raw "
            "| veldrane-polarize process -");
    }
}

std::optional<Raw_layout> Input_options::raw_layout() const {
    if (pixel_format.empty()) {
        return std::nullopt;
    }
    if (width == 0 || height == 0) {
        throw Usage_error("--pixel-format needs --width and --height");
    }
    try {
        return polarization::make_raw_layout(pixel_format, width, height, header_bytes, stride);
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(std::string("raw samples: ") + error.what());
    }
}

CLI::Option* add_pixel_format(CLI::App& command, std::string& name, std::string const& help) {
    std::vector<std::string> const names = pixel_format_names();
    return add_choice(command, "--pixel-format", names, help, [&name, names](std::size_t place) {
        name = names[place];
    });
}

void add_input_options(CLI::App& command, Input_options& options, Frame_choice choice) {
    add_words(
        command, "frames", options.inputs,
        "Raw frames: grey PNG, PGM, TIFF (of one or many pictures) or npy (of 2 or 3 "
        "dimensions) of 8 or 16 bits, folders of them, or quoted patterns such as 'run3/*.png'. "
        "With --pixel-format files of bare "
        "samples that hold one or many frames; those with a description beside them, FILE.json, "
        "need none of the options that it tells. - is standard input, for process")
        ->expected(CLI::detail::expected_max_vector_size)
        ->required()
        ->type_name("FRAME");
    std::string const raw = "Raw samples";
    CLI::Option* const format =
        add_pixel_format(
            command, options.pixel_format,
            "How samples lie in bytes; every row begins at a whole byte, so one that ends within a "
            "byte is filled up")
            ->group(raw);
    Whole_range const side = {1, largest_side};
    auto const of_raw = [format, &raw](CLI::Option* option) { option->needs(format)->group(raw); };
    of_raw(add_whole_number(command, "--width", options.width, side, "Columns of a frame"));
    of_raw(add_whole_number(command, "--height", options.height, side, "Rows of a frame"));
    of_raw(add_whole_number(
        command, "--header-bytes", options.header_bytes, {0, largest_header},
        "Bytes of the file before the samples"));
    of_raw(add_whole_number(
        command, "--stride", options.stride, {1, largest_stride},
        "Bytes from one row to the next; without it rows adjoin"));
    std::string const selection = "Choice of frames, counted from 0 over all inputs";
    add_whole_number(command, "--start", options.selection.start, {}, "First frame")
        ->group(selection);
    if (choice == Frame_choice::one) {
        return;
    }
    add_whole_number(command, "--stop", options.selection.stop, {}, "Frame behind the last one")
        ->group(selection);
    add_whole_number(
        command, "--step", options.selection.step, {.least = 1}, "Take each STEP-th frame")
        ->group(selection);
}

std::optional<polarization::Region> Sample_options::region() const {
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
            "--region is " + region_text +
            "; give COLUMN,ROW,WIDTH,HEIGHT in decimal digits, such as 0,512,2448,1024");
    }
    return polarization::Region{numbers[0], numbers[1], numbers[2], numbers[3]};
}

int Sample_options::depth(std::optional<Raw_layout> const& raw) const {
    if (bit_depth != 0) {
        return bit_depth;
    }
    int const stored =
        raw ? static_cast<int>(polarization::bit_depth_of(raw->format)) : recorded_depth;
    if (stored == 0) {
        throw Usage_error("--bit-depth is required for images, whose files do not tell it");
    }
    return stored - shift;
}

void add_sample_options(
    CLI::App& command, Sample_options& options, std::string const& region_help) {
    add_whole_number(
        command, "--bit-depth", options.bit_depth, {1, 16},
        "Significant bits B of a sample, 1 to 16; required for images, else that of the pixel "
        "format");
    add_whole_number(
        command, "--shift", options.shift, {0, 15},
        "Move samples down by so many bits, for those that lie at the upper end of 16");
    command.add_option("--region", options.region_text, region_help)
        ->type_name("COLUMN,ROW,WIDTH,HEIGHT");
    add_words(
        command, "--dark", options.dark_frames,
        "A frame taken without light, or a folder or pattern of such; may be given again. Their "
        "mean is subtracted")
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
    add_whole_number(command, "--phase", options.phase, {0, 3}, phase_help);
    command
        .add_option(
            "--layout", options.layout,
            "The same by the angles of the top-left cell, row by row: 90,45,135,0 is phase 2")
        ->type_name("A,B,C,D");
}

} // namespace polarize_tool
