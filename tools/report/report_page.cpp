#include "report/report_page.hpp"

#include "html/report_template.hpp"
#include "output/inspect_output.hpp"
#include "page/colour_tables.hpp"
#include "page/page_encoding.hpp"
#include "report/report_encoding.hpp"
#include "report/report_pictures.hpp"

#include <cmath>
#include <future>
#include <map>
#include <nlohmann/json.hpp>

namespace polarize_tool {
namespace {

namespace polarization = veldrane_mrv::polarization;

constexpr std::size_t angle_steps = 90;

using Places = std::map<std::string, std::string>;

// What several parts of the page need.
struct Figures {
    explicit Figures(Report const& report)
        : s0(report.planes.s0), dolp(report.planes.dolp),
          angle(angle_statistics(report.planes, angle_steps)),
          scales(picture_scales(s0, dolp, report.planes.full_scale)),
          pictures(report_pictures(report.planes, scales)), tables(colour_tables()),
          s0_unit(report.scale.sample_units_per_step()) {}

    Element_counts s0;
    Element_counts dolp;
    Angle_statistics angle;
    Picture_scales scales;
    Report_pictures pictures;
    Colour_tables tables;
    double s0_unit;
};

std::string per_cent(double share) {
    if (share == 0.0) {
        return "0 %";
    }
    return decimal(100.0 * share, share > 0.0 && share < 0.0995 ? 2 : 1) + " %";
}

std::string binning_note(std::size_t binning) {
    if (binning == 1) {
        return "One pixel of the frame for each of the picture.";
    }
    std::string const side = std::to_string(binning);
    return "Each pixel of the picture stands for " + side + " by " + side +
           " of the frame; the values are those of single pixels.";
}

void add_intensity(Places& places, Report const& report, Figures const& figures) {
    double const unit = figures.s0_unit;
    auto const samples = [unit](double element) { return decimal(element * unit, 1); };
    unsigned const top = figures.scales.s0_top;
    double const shown_end = top * unit;
    places["figure_s0"] =
        figure("s0", "Intensity S0", figures.pictures.s0, binning_note(figures.pictures.binning));
    places["legend_s0"] = colour_bar(
        colour_bar_uri(figures.tables.s0), linear_ticks(shown_end), "Scale of S0 in sample units");
    places["histogram_s0"] = histogram_svg(
        figures.s0.histogram(report_histogram_steps, top + 1), linear_ticks(shown_end),
        "Histogram of S0 in sample units, square roots of the counts", true);
    places["statistics_s0"] = definition_list(
        {{"Mean", samples(figures.s0.mean())},
         {"Median", samples(figures.s0.quantile(0.5))},
         {"1st to 99th percentile",
          samples(figures.s0.quantile(0.01)) + " to " + samples(figures.s0.quantile(0.99))},
         {"Largest", samples(figures.s0.largest())},
         {"Largest possible", samples(2.0 * report.scale.largest_sample() / unit)},
         {"Pixels clipped at the full scale",
          per_cent(figures.s0.share_above(report.planes.full_scale - 1))}});
}

void add_angle(Places& places, Figures const& figures) {
    Ticks const ticks{{0.0, "0°"}, {0.25, "45°"}, {0.5, "90°"}, {0.75, "135°"}, {1.0, "180°"}};
    places["figure_angle"] = figure(
        "azimuth", "Angle of polarisation, dimmed by the degree", figures.pictures.angle,
        "Hue is the direction in which the light swings; dark pixels are hardly polarised.");
    places["legend_angle"] = colour_wheel(colour_wheel_uri(), figures.scales.degree_top);
    places["histogram_angle"] = histogram_svg(
        figures.angle.histogram, ticks, "Histogram of the angle, weighted by the degree", false,
        hue_colours(figures.tables, angle_steps));
    places["statistics_angle"] = definition_list(
        {{"Mean direction", decimal(figures.angle.mean, 1) + "°"},
         {"Concentration (1: all alike)", decimal(figures.angle.concentration, 3)},
         {"Pixels without an angle", per_cent(figures.angle.without_angle)}});
}

void add_degree(Places& places, Report const& report, Figures const& figures) {
    unsigned const full_scale = report.planes.full_scale;
    double const top = figures.scales.degree_top;
    auto const degree = [&](double element) { return decimal(element / full_scale, 3); };
    auto const shown_end = static_cast<unsigned>(std::lround(top * full_scale));
    places["figure_degree"] = figure(
        "dolp", "Degree of polarisation", figures.pictures.degree,
        "The scale ends at " + decimal(top, 2) +
            (top < 1.0 ? "; larger degrees are shown in its last colour." : "."));
    places["legend_degree"] =
        colour_bar(colour_bar_uri(figures.tables.degree), linear_ticks(top), "Scale of the degree");
    places["histogram_degree"] = histogram_svg(
        figures.dolp.histogram(report_histogram_steps, shown_end + 1), linear_ticks(top),
        "Histogram of the degree, square roots of the counts", true);
    places["statistics_degree"] = definition_list(
        {{"Mean", degree(figures.dolp.mean())},
         {"Median", degree(figures.dolp.quantile(0.5))},
         {"95th percentile", degree(figures.dolp.quantile(0.95))},
         {"99th percentile", degree(figures.dolp.quantile(0.99))},
         {"Pixels above 0.1",
          per_cent(figures.dolp.share_above(static_cast<unsigned>(0.1 * full_scale)))},
         {"Pixels at 1", per_cent(figures.dolp.share_above(full_scale - 1))}});
}

void add_raw_frame(Places& places, Report const& report) {
    polarization::Inspection const& frame = report.inspection;
    std::vector<double> const counts(frame.histogram.begin(), frame.histogram.end());
    double const saturated =
        static_cast<double>(frame.saturated) / static_cast<double>(frame.samples());
    places["histogram_samples"] = histogram_svg(
        counts, linear_ticks(frame.histogram_end),
        "Histogram of the samples, square roots of the counts", true);
    places["statistics_samples"] = definition_list(
        {{"Mean", decimal(frame.mean, 1)},
         {"Range", std::to_string(frame.smallest) + " to " + std::to_string(frame.largest)},
         {"Full scale", std::to_string(frame.full_scale())},
         {"Samples at the full scale", per_cent(saturated)},
         {"Different values", std::to_string(frame.depth.distinct_values)}});
    places["mosaic"] = mosaic_table(report.mosaic, frame.positions);
    places["balance"] = "<p class=\"balance\">" + html_text(frame.balance.explanation()) + "</p>";
    for (std::string const& warning : inspection_warnings(frame)) {
        places["notices"] += "<p class=\"notice\">" + html_text(warning) + "</p>\n";
    }
}

void add_head(Places& places, Report const& report, Figures const& figures) {
    Report_planes const& planes = report.planes;
    unsigned const full_scale = planes.full_scale;
    double const mean = figures.s0.mean() * figures.s0_unit;
    double const most = 2.0 * report.scale.largest_sample();
    places["title"] = html_text(report.name);
    places["generator"] = html_text(report.generator);
    places["facts"] = std::to_string(planes.width) + " × " + std::to_string(planes.height) +
                      " pixels · " + std::to_string(report.scale.bit_depth()) + " bits · phase " +
                      std::to_string(report.mosaic.phase()) + " · " +
                      (report.mode == polarization::Mode::fast ? "fast" : "calibrated") + " mode";
    places["tiles"] =
        tile(
            "Mean intensity S0", decimal(mean, 1),
            per_cent(mean / most) + " of the largest possible") +
        tile(
            "Mean direction", decimal(figures.angle.mean, 1) + "°",
            "concentration " + decimal(figures.angle.concentration, 2)) +
        tile(
            "Median degree",
            decimal(static_cast<double>(figures.dolp.quantile(0.5)) / full_scale, 3),
            "95th percentile " +
                decimal(static_cast<double>(figures.dolp.quantile(0.95)) / full_scale, 3)) +
        tile(
            "Saturated samples",
            per_cent(
                static_cast<double>(report.inspection.saturated) /
                static_cast<double>(report.inspection.samples())),
            "at the full scale " + std::to_string(report.inspection.full_scale()));
    places["last_row"] = std::to_string(planes.height - 1);
    places["last_column"] = std::to_string(planes.width - 1);
    places["settings"] = definition_list(report.settings);
}

std::string conventions(Report const& report) {
    std::string const full_scale = std::to_string(report.planes.full_scale);
    std::string const step = decimal(report.scale.sample_units_per_step(), 6);
    std::string text =
        "<p>S0 is half the sum of the four samples of a 2×2 neighbourhood, in sample units; one "
        "step of its plane is " +
        step +
        " of them.</p>"
        "<p>The angle is 0° along the rows and grows counter-clockwise on a picture with row 0 at "
        "the top. The azimuth plane runs 90° ahead of it: element e is (180° · e / " +
        full_scale +
        " + 90°) modulo 180°.</p>"
        "<p>The degree is √(S1² + S2²) / S0; element e is e / " +
        full_scale +
        ".</p>"
        "<p>The four samples of a neighbourhood do not see the same point. At edges and in fine "
        "texture their differences look like polarisation that is not there.</p>";
    text += report.mode == polarization::Mode::fast
                ? "<p>Fast mode: plain sums and differences of samples in all but the last "
                  "columns and rows.</p>"
                : "<p>Calibrated mode: every pixel with the weights of its position.</p>";
    return text;
}

std::string data(Report const& report, Figures const& figures) {
    nlohmann::ordered_json json;
    json["width"] = report.planes.width;
    json["height"] = report.planes.height;
    json["full_scale"] = report.planes.full_scale;
    json["s0_unit"] = figures.s0_unit;
    json["s0_top"] = figures.scales.s0_top;
    json["degree_top"] = figures.scales.degree_top;
    json["hues"] = Colour_tables::hue_count;
    json["levels"] = Colour_tables::level_count;
    json["differences"] = {"s0"};
    json["colours"] = {
        {"s0", base64(figures.tables.s0)},
        {"azimuth", base64(figures.tables.angle)},
        {"dolp", base64(figures.tables.degree)}};
    return json_for_html(json.dump());
}

} // namespace

std::string report_page(Report const& report) {
    // Compression takes most of the time, so the planes go side by side with each other and with
    // the pictures.
    Report_planes const& planes = report.planes;
    auto const packed = [](std::span<std::uint16_t const> plane, Element_order order) {
        return std::async(std::launch::async, packed_plane, plane, order);
    };
    auto s0 = packed(planes.s0, Element_order::differences);
    auto azimuth = packed(planes.azimuth, Element_order::plain);
    auto dolp = packed(planes.dolp, Element_order::plain);
    Figures const figures(report);
    Places places{
        {"theme", std::string(report_theme)},
        {"style", std::string(report_style)},
        {"parts", std::string(report_parts)},
        {"script", std::string(report_script)},
        {"notices", ""},
        {"conventions", conventions(report)},
        {"data", data(report, figures)}};
    add_head(places, report, figures);
    add_intensity(places, report, figures);
    add_angle(places, figures);
    add_degree(places, report, figures);
    add_raw_frame(places, report);
    places["plane_s0"] = s0.get();
    places["plane_azimuth"] = azimuth.get();
    places["plane_dolp"] = dolp.get();
    return filled(report_html, places);
}

} // namespace polarize_tool
