// What people and programs are told of an inspection.
#include "output/inspect_output.hpp"

#include "veldrane_mrv/polarization/simulation.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <numbers>
#include <vector>

namespace {

using namespace polarize_tool;
using polarization::Inspection;
using Samples = std::vector<std::uint16_t>;

Inspection inspected(Samples const& samples, std::size_t height, std::size_t width) {
    return polarization::inspect(polarization::Frame_view(samples, height, width));
}

TEST(Inspect_output, warnings_name_saturation_alignment_and_an_unlikely_mosaic) {
    Samples saturated(256, 255);
    EXPECT_NE(
        inspection_warnings(inspected(saturated, 16, 16)).at(0).find("100.00 %"),
        std::string::npos);
    Samples aligned(256, 16);
    aligned[3] = 65520;
    std::string const advice = inspection_warnings(inspected(aligned, 16, 16)).back();
    EXPECT_NE(advice.find("--shift 4"), std::string::npos) << advice;
    // Orthogonal analysers side by side in each row: no mosaic of ours.
    Samples rows;
    for (std::size_t row = 0; row < 64; ++row) {
        for (std::size_t column = 0; column < 64; ++column) {
            std::size_t const tile = (row / 16 + column / 16) % 4;
            constexpr double turns[] = {0.1, 0.3, 0.6, 0.8};
            double const angle = row % 2 == 0 ? 0.0 : 0.25;
            double const quarter = column % 2 == 0 ? 0.0 : 0.5;
            rows.push_back(static_cast<std::uint16_t>(std::lround(
                100.0 +
                90.0 * std::cos(2.0 * std::numbers::pi * (turns[tile] - angle - quarter)))));
        }
    }
    Inspection const odd = inspected(rows, 64, 64);
    EXPECT_EQ(odd.balance.verdict, polarization::Balance::Verdict::unlikely);
    EXPECT_EQ(inspection_warnings(odd).size(), 1U);
}

TEST(Inspect_output, json_holds_the_figures_and_survives_names_that_are_no_text) {
    polarization::Simulation_settings settings;
    settings.width = 16;
    settings.height = 16;
    settings.phase = 3;
    polarization::Frame const frame =
        polarization::record(polarization::uniform_light(settings, 0.0), settings);
    Inspection const found = inspected(frame.samples, 16, 16);
    auto const json = nlohmann::json::parse(inspection_json(
        "a\xff\n.png", found, polarization::phase_behind_polariser(found.positions, 0.0)));
    EXPECT_EQ(json["phase"]["phase"], 3);
    EXPECT_EQ(json["width"], 16);
    EXPECT_EQ(json["positions"].size(), 4U);
    EXPECT_DOUBLE_EQ(json["positions"][0]["mean"], found.positions[0].mean);
    EXPECT_EQ(json["histogram"]["counts"].size(), 32U);
    auto const open = nlohmann::json::parse(inspection_json("a", found, std::nullopt));
    EXPECT_EQ(open["phase"]["possible"], (std::vector<int>{0, 1, 2, 3}));
}

} // namespace
