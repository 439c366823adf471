#include "page/colour_tables.hpp"

#include "output/image_writing.hpp"
#include "page/page_encoding.hpp"
#include "veldrane_mrv/polarization/pictures.hpp"

namespace polarize_tool {
namespace {

constexpr unsigned level_end = 255;

std::vector<std::uint8_t> red_green_blue(polarization::Colour_picture const& picture) {
    std::vector<std::uint8_t> bytes;
    for (polarization::Colour const& pixel : picture.pixels) {
        bytes.insert(bytes.end(), pixel.begin(), pixel.end());
    }
    return bytes;
}

} // namespace

Colour_tables colour_tables() {
    Colour_tables tables;
    for (unsigned level = 0; level <= level_end; ++level) {
        tables.s0.insert(
            tables.s0.end(), 3,
            polarization::display_level(static_cast<double>(level) / level_end));
    }
    std::vector<std::uint16_t> azimuth;
    std::vector<std::uint16_t> degree;
    for (std::size_t hue = 0; hue < Colour_tables::hue_count; ++hue) {
        for (std::size_t level = 0; level < Colour_tables::level_count; ++level) {
            azimuth.push_back(
                polarization::fine_azimuth(static_cast<double>(hue) / Colour_tables::hue_count));
            degree.push_back(polarization::fine_degree(
                static_cast<double>(level) / (Colour_tables::level_count - 1)));
        }
    }
    tables.angle = red_green_blue(polarization::angle_degree_picture(
        {azimuth, degree, Colour_tables::level_count, Colour_tables::hue_count,
         polarization::fine_scale}));
    std::vector<std::uint16_t> ramp;
    for (unsigned level = 0; level <= level_end; ++level) {
        ramp.push_back(polarization::fine_degree(static_cast<double>(level) / level_end));
    }
    tables.degree = red_green_blue(
        polarization::degree_picture({{}, ramp, ramp.size(), 1, polarization::fine_scale}));
    return tables;
}

std::string colour_wheel_uri() {
    return data_uri("image/png", encode_png(polarization::colour_wheel(240)));
}

std::string colour_bar_uri(std::vector<std::uint8_t> const& table) {
    polarization::Colour_picture bar{table.size() / 3, 1, {}};
    for (std::size_t start = 0; start < table.size(); start += 3) {
        bar.pixels.push_back({table[start], table[start + 1], table[start + 2]});
    }
    return data_uri("image/png", encode_png(bar));
}

} // namespace polarize_tool
