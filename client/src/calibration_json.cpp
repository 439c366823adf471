#include "veldrane_mrv/polarization/calibration_json.hpp"

#include "contradiction.hpp"
#include "json_node.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <cmath>
#include <limits>
#include <sstream>

namespace veldrane_mrv::polarization {
namespace {

double finite(double number, std::string const& figure) {
    if (!std::isfinite(number)) {
        throw Argument_error(
            figure, std::isnan(number) ? "NaN" : "infinite", "give a finite number");
    }
    return number;
}

Json matrices_json(Matrices const& matrices) {
    Json all = Json::array();
    for (auto const& matrix : matrices.by_position) {
        Json rows = Json::array();
        for (std::size_t row = 0; row < 4; ++row) {
            Json weights = Json::array();
            for (std::size_t column = 0; column < 4; ++column) {
                float const weight = matrix[4 * row + column];
                if (std::abs(weight) > largest_weight && std::isfinite(weight)) {
                    throw Argument_error(
                        "weight of a matrix", std::to_string(weight),
                        "give weights of at most 65536; those of a sensor are near 1");
                }
                weights.push_back(finite(weight, "weight of a matrix"));
            }
            rows.push_back(weights);
        }
        all.push_back(rows);
    }
    return all;
}

Json analysers_json(std::array<Analyser, 4> const& analysers) {
    Json all = Json::array();
    for (Analyser const& analyser : analysers) {
        Json one = {
            {"throughput", finite(analyser.throughput, "throughput")},
            {"diattenuation", finite(analyser.diattenuation, "diattenuation")},
            {"orientation_degrees", finite(analyser.orientation, "orientation")},
            {"dark_level", nullptr},
            {"residual", finite(analyser.residual, "residual")}};
        if (analyser.dark_level) {
            one["dark_level"] = finite(*analyser.dark_level, "dark level");
        }
        all.push_back(one);
    }
    return all;
}

Json outlying_json(std::vector<Outlying_frame> const& frames) {
    Json all = Json::array();
    for (Outlying_frame const& frame : frames) {
        all.push_back(
            {{"source", frame.source},
             {"angle_degrees", finite(frame.polariser_angle, "polariser angle")},
             {"residual", finite(frame.residual, "residual")}});
    }
    return all;
}

Json quality_json(Calibration const& calibration) {
    Calibration_quality const& quality = calibration.quality;
    Json flags = Json::array();
    for (Quality_flag const flag : quality.flags) {
        flags.push_back(name_of(flag));
    }
    return {
        {"rms_residual", finite(quality.rms_residual, "rms residual")},
        {"condition_number", finite(quality.condition_number, "condition number")},
        {"frame_count", quality.frame_count},
        {"worst_angle_gap_degrees", finite(quality.worst_angle_gap, "worst angle gap")},
        {"source_level", finite(quality.source_level, "source level")},
        {"common_offset_degrees", common_offset(calibration.analysers, calibration.mosaic)},
        {"flags", flags},
        {"outlying_frames", outlying_json(quality.outlying_frames)}};
}

std::size_t schema_version(Node const& root) {
    std::string const foreign = "give a calibration file that this software wrote";
    Node const schema = [&] {
        try {
            return root["schema"];
        } catch (File_error const&) {
            root.refuse("this is no calibration, the key \"schema\" is missing", foreign);
        }
    }();
    schema.require_object({"name", "version"});
    if (schema["name"].text() != calibration_schema_name) {
        schema["name"].refuse("this is \"" + schema["name"].text() + "\", no calibration", foreign);
    }
    std::size_t const version = schema["version"].count();
    if (version > calibration_schema_version) {
        schema["version"].refuse(
            "version " + std::to_string(version) + " is newer than " +
                std::to_string(calibration_schema_version) + ", the newest known",
            "update this software, or calibrate again with this one");
    }
    if (version == 0) {
        schema["version"].refuse("there is no version 0");
    }
    return version;
}

Mosaic read_mosaic(Node const& node) {
    try {
        return Mosaic::parse(node.text());
    } catch (Argument_error const& error) {
        node.refuse(error.what());
    }
}

Matrices read_matrices(Node const& node) {
    Matrices matrices{};
    node.require_array(4);
    for (std::size_t position = 0; position < 4; ++position) {
        node[position].require_array(4);
        for (std::size_t row = 0; row < 4; ++row) {
            Node const weights = node[position][row];
            weights.require_array(4);
            for (std::size_t column = 0; column < 4; ++column) {
                matrices.by_position[position][4 * row + column] = weights[column].weight();
            }
        }
    }
    return matrices;
}

Analyser read_analyser(Node const& node) {
    node.require_object(
        {"throughput", "diattenuation", "orientation_degrees", "dark_level", "residual"});
    Analyser analyser;
    analyser.throughput = node["throughput"].number(std::numeric_limits<double>::min());
    analyser.diattenuation = node["diattenuation"].number(0);
    analyser.orientation = node["orientation_degrees"].number();
    if (Node const level = node["dark_level"]; !level.is_null()) {
        analyser.dark_level = level.number();
    }
    analyser.residual = node["residual"].number(0);
    return analyser;
}

Quality_flag read_flag(Node const& node) {
    std::string const name = node.text();
    for (Quality_flag const flag : all_quality_flags) {
        if (name_of(flag) == name) {
            return flag;
        }
    }
    node.refuse("there is no flag \"" + name + "\"");
}

std::vector<Outlying_frame> read_outlying_frames(Node const& node) {
    std::vector<Outlying_frame> frames;
    for (std::size_t index = 0; index < node.array_size(); ++index) {
        Node const frame = node[index];
        frame.require_object({"source", "angle_degrees", "residual"});
        frames.push_back(
            {frame["source"].text(), frame["angle_degrees"].number(), frame["residual"].number(0)});
    }
    return frames;
}

Calibration_quality read_quality(Node const& node, std::size_t version) {
    if (version == 1) {
        node.require_object(
            {"rms_residual", "condition_number", "frame_count", "worst_angle_gap_degrees",
             "source_level", "flags"});
    } else {
        node.require_object(
            {"rms_residual", "condition_number", "frame_count", "worst_angle_gap_degrees",
             "source_level", "common_offset_degrees", "flags", "outlying_frames"});
    }
    Calibration_quality quality;
    quality.rms_residual = node["rms_residual"].number(0);
    quality.condition_number = node["condition_number"].number(0);
    quality.frame_count = node["frame_count"].count();
    quality.worst_angle_gap = node["worst_angle_gap_degrees"].number(0);
    quality.source_level = node["source_level"].number(0);
    Node const flags = node["flags"];
    for (std::size_t index = 0; index < flags.array_size(); ++index) {
        quality.flags.push_back(read_flag(flags[index]));
    }
    if (version > 1) {
        quality.outlying_frames = read_outlying_frames(node["outlying_frames"]);
    }
    return quality;
}

// A region exchanges the analysers, and their sum is rounded in another order.
void check_offset(Node const& node, Calibration const& calibration) {
    constexpr double tolerance = 1e-9;
    double const offset = common_offset(calibration.analysers, calibration.mosaic);
    if (std::abs(node.number() - offset) > tolerance) {
        std::ostringstream text;
        text.precision(std::numeric_limits<double>::max_digits10);
        text << "this is " << node.number() << ", not the " << offset << " of the analysers";
        node.refuse(text.str());
    }
}

Provenance read_provenance(Node const& node) {
    node.require_object({"software_version", "time", "sensor", "sources"});
    Provenance provenance;
    provenance.software_version = node["software_version"].text();
    provenance.time = node["time"].text();
    provenance.sensor = node["sensor"].text();
    Node const sources = node["sources"];
    for (std::size_t index = 0; index < sources.array_size(); ++index) {
        provenance.sources.push_back(sources[index].text());
    }
    return provenance;
}

} // namespace

std::string calibration_to_json(Calibration const& calibration) {
    if (auto const contradiction = find_contradiction(calibration)) {
        throw Argument_error(
            "calibration's " + contradiction->key, contradiction->problem,
            "give a mosaic and weights that follow from the analysers");
    }
    Provenance const& provenance = calibration.provenance;
    Json const json = {
        {"schema", {{"name", calibration_schema_name}, {"version", calibration_schema_version}}},
        {"mosaic", calibration.mosaic.to_string()},
        {"matrices", matrices_json(calibration.matrices)},
        {"analysers", analysers_json(calibration.analysers)},
        {"quality", quality_json(calibration)},
        {"provenance",
         {{"software_version", provenance.software_version},
          {"time", provenance.time},
          {"sensor", provenance.sensor},
          {"sources", Json(provenance.sources)}}}};
    try {
        return json.dump(2) + "\n";
    } catch (Json::type_error const&) {
        throw Argument_error("provenance", "not UTF-8", "give names of valid UTF-8");
    }
}

Calibration calibration_from_json(std::string const& text, std::filesystem::path const& name) {
    Json const json = parse_json(text, name);
    Node const root{name, json, ""};
    std::size_t const version = schema_version(root);
    root.require_object({"schema", "mosaic", "matrices", "analysers", "quality", "provenance"});
    Calibration calibration{
        read_mosaic(root["mosaic"]),
        read_matrices(root["matrices"]),
        {},
        read_quality(root["quality"], version),
        read_provenance(root["provenance"])};
    Node const analysers = root["analysers"];
    analysers.require_array(calibration.analysers.size());
    for (std::size_t position = 0; position < calibration.analysers.size(); ++position) {
        calibration.analysers[position] = read_analyser(analysers[position]);
    }
    if (auto const contradiction = find_contradiction(calibration)) {
        Node{name, json, contradiction->key}.refuse("this is " + contradiction->problem);
    }
    if (version > 1) {
        check_offset(root["quality"]["common_offset_degrees"], calibration);
    }
    return calibration;
}

} // namespace veldrane_mrv::polarization
