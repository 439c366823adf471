#include "output/inspect_output.hpp"

#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace polarize_tool {
namespace {

namespace polarization = veldrane_mrv::polarization;

constexpr double noticeable_saturation = 0.001;
constexpr std::size_t bar_width = 48;
constexpr std::size_t text_column = 14;
constexpr std::size_t text_width = 84;

double share(std::size_t part, std::size_t whole) {
    return static_cast<double>(part) / static_cast<double>(whole);
}

std::string per_cent(double fraction) {
    return decimal(100.0 * fraction, 2) + " %";
}

std::string counted(std::size_t part, std::size_t whole) {
    return std::to_string(part) + (part == 1 ? " sample (" : " samples (") +
           per_cent(share(part, whole)) + ")";
}

std::string padded(std::string const& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

// Broken at spaces, with the label before the first line only.
std::string labelled(char const* label, std::string const& text) {
    std::string lines;
    std::string line = std::string("  ") + label;
    line.resize(text_column, ' ');
    std::size_t start = 0;
    while (text.size() - start > text_width) {
        std::size_t const space = text.rfind(' ', start + text_width);
        if (space == std::string::npos || space <= start) {
            break;
        }
        lines += line + text.substr(start, space - start) + "\n";
        line.assign(text_column, ' ');
        start = space + 1;
    }
    return lines + line + text.substr(start) + "\n";
}

std::string depth_text(polarization::Inspection const& inspection) {
    polarization::Depth_use const& depth = inspection.depth;
    std::string text = std::to_string(depth.used_bits) + " bits used, " +
                       std::to_string(depth.distinct_values) + " different values; taken as " +
                       std::to_string(depth.assumed_depth) + " bits, full scale " +
                       std::to_string(inspection.full_scale());
    if (depth.shift > 0) {
        text += ", left-aligned";
    }
    return text;
}

std::string histogram_text(polarization::Inspection const& inspection) {
    std::vector<std::size_t> const& steps = inspection.histogram;
    std::size_t const tallest = *std::max_element(steps.begin(), steps.end());
    std::string text;
    for (std::size_t step = 0; step < steps.size(); ++step) {
        std::size_t const start = step * inspection.histogram_end / steps.size();
        // Something is never drawn as nothing.
        std::size_t const length = (steps[step] * bar_width + tallest - 1) / tallest;
        text += "    " + padded(std::to_string(start), 6) + " |" + std::string(length, '#') +
                std::string(bar_width + 1 - length, ' ') +
                padded(per_cent(share(steps[step], inspection.samples())), 9) + "\n";
    }
    return text;
}

std::string positions_text(polarization::Inspection const& inspection) {
    auto const& at = inspection.positions;
    auto const row = [&at](char const* name, std::size_t first) {
        return name + padded(decimal(at[first].mean, 1), 14) +
               padded(decimal(at[first + 1].mean, 1), 14);
    };
    return labelled("means", "           even column    odd column") +
           labelled("", row("even row ", 0)) + labelled("", row("odd row  ", 2));
}

std::string balance_text(polarization::Balance const& balance) {
    std::string text;
    for (polarization::Pairing const pairing : polarization::every_pairing) {
        text += (text.empty() ? "" : ", ") + std::string(polarization::name_of(pairing)) + " " +
                per_cent(balance.of(pairing));
    }
    return text;
}

nlohmann::ordered_json phase_json(std::optional<polarization::Phase_answer> const& answer) {
    nlohmann::ordered_json json;
    if (!answer) {
        json["possible"] = {0, 1, 2, 3};
        json["explanation"] = phase_advice();
        return json;
    }
    json["phase"] = answer->phase ? nlohmann::ordered_json(*answer->phase) : nullptr;
    json["degree"] = answer->degree;
    for (polarization::Phase_candidate const& candidate : answer->candidates) {
        json["candidates"].push_back(
            {{"phase", candidate.phase},
             {"angle", candidate.angle},
             {"deviation", candidate.deviation}});
    }
    json["explanation"] = answer->explanation;
    return json;
}

nlohmann::ordered_json balance_json(polarization::Balance const& balance) {
    nlohmann::ordered_json json;
    for (polarization::Pairing const pairing : polarization::every_pairing) {
        json["imbalance"][std::string(polarization::name_of(pairing))] = balance.of(pairing);
    }
    json["verdict"] = polarization::name_of(balance.verdict);
    json["explanation"] = balance.explanation();
    return json;
}

} // namespace

std::string decimal(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string phase_advice() {
    return "no frame of an unknown scene tells the four phases apart. Take one of an evenly lit "
           "surface through a linear polariser that lets light along the rows pass, and give it "
           "with --polarizer-angle 0.";
}

std::vector<std::string> inspection_warnings(polarization::Inspection const& inspection) {
    std::vector<std::string> warnings;
    double const saturated = share(inspection.saturated, inspection.samples());
    if (saturated >= noticeable_saturation) {
        warnings.push_back(
            per_cent(saturated) + " of the samples reach the full scale " +
            std::to_string(inspection.full_scale()) +
            ": angle and degree are wrong there; expose for a shorter time.");
    } else if (
        share(inspection.at_largest, inspection.samples()) >= noticeable_saturation &&
        inspection.largest > inspection.smallest && inspection.depth.distinct_values > 64) {
        warnings.push_back(
            per_cent(share(inspection.at_largest, inspection.samples())) +
            " of the samples share the largest value " + std::to_string(inspection.largest) +
            ", which may be where the sensor saturates; give its --bit-depth if it is known.");
    }
    if (inspection.depth.shift > 0) {
        warnings.push_back(
            "All samples are multiples of " + std::to_string(1U << inspection.depth.shift) + ": " +
            std::to_string(inspection.depth.assumed_depth) +
            " bits, left-aligned. Process with --shift " + std::to_string(inspection.depth.shift) +
            ".");
    }
    if (inspection.balance.verdict == polarization::Balance::Verdict::unlikely) {
        warnings.push_back(inspection.balance.explanation());
    }
    return warnings;
}

std::string inspection_text(
    std::string const& name, polarization::Inspection const& inspection,
    std::optional<polarization::Phase_answer> const& answer) {
    std::string text = name + ": " +
                       to_string(polarization::Size{inspection.width, inspection.height}) + ", " +
                       decimal(static_cast<double>(inspection.samples()) * 1e-6, 2) + " Mpixel\n";
    text += labelled(
        "samples", std::to_string(inspection.smallest) + " to " +
                       std::to_string(inspection.largest) + ", mean " +
                       decimal(inspection.mean, 1));
    text += labelled("depth", depth_text(inspection));
    text += labelled(
        "saturation", counted(inspection.saturated, inspection.samples()) + " at the full scale, " +
                          counted(inspection.at_largest, inspection.samples()) + " at the largest");
    text += positions_text(inspection);
    text += labelled("imbalance", balance_text(inspection.balance));
    text += labelled("mosaic", inspection.balance.explanation());
    text += labelled("phase", answer ? answer->explanation : phase_advice());
    for (std::string const& warning : inspection_warnings(inspection)) {
        if (warning != inspection.balance.explanation()) {
            text += labelled("note", warning);
        }
    }
    text += labelled("histogram", "samples from each value on");
    text += histogram_text(inspection);
    text.pop_back();
    return text;
}

std::string inspection_json(
    std::string const& name, polarization::Inspection const& inspection,
    std::optional<polarization::Phase_answer> const& answer) {
    nlohmann::ordered_json json;
    json["frame"] = utf8(name);
    json["width"] = inspection.width;
    json["height"] = inspection.height;
    json["samples"] = {
        {"smallest", inspection.smallest},
        {"largest", inspection.largest},
        {"mean", inspection.mean},
        {"distinct", inspection.depth.distinct_values}};
    json["depth"] = {
        {"used_bits", inspection.depth.used_bits},
        {"zero_low_bits", inspection.depth.zero_low_bits},
        {"shift", inspection.depth.shift},
        {"assumed_bit_depth", inspection.depth.assumed_depth},
        {"full_scale", inspection.full_scale()}};
    json["saturation"] = {
        {"at_full_scale", share(inspection.saturated, inspection.samples())},
        {"at_largest", share(inspection.at_largest, inspection.samples())}};
    for (std::size_t position = 0; position < inspection.positions.size(); ++position) {
        polarization::Position_means const& means = inspection.positions[position];
        json["positions"].push_back(
            {{"row", position / 2},
             {"column", position % 2},
             {"mean", means.mean},
             {"smallest", means.smallest},
             {"largest", means.largest}});
    }
    json["balance"] = balance_json(inspection.balance);
    json["phase"] = phase_json(answer);
    json["histogram"] = {{"end", inspection.histogram_end}, {"counts", inspection.histogram}};
    json["warnings"] = inspection_warnings(inspection);
    return json.dump();
}

} // namespace polarize_tool
