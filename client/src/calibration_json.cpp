#include "veldrane_mrv/polarization/calibration_json.hpp"

#include "array_file.hpp"
#include "calibration_text.hpp"
#include "contradiction.hpp"
#include "json_node.hpp"
#include "map_faults.hpp"
#include "maps_json.hpp"
#include "quality_json.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

namespace veldrane_mrv::polarization {
namespace {

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

Json noise_json(Noise_model const& noise) {
    return {
        {"electrons_per_count", finite(noise.electrons_per_count, "electrons per count")},
        {"read_noise_electrons", finite(noise.read_noise, "read noise")}};
}

Noise_model read_noise(Node const& node) {
    node.require_object({"electrons_per_count", "read_noise_electrons"});
    return {
        node["electrons_per_count"].number(std::numeric_limits<double>::min()),
        node["read_noise_electrons"].number(0)};
}

void check_parts(Calibration const& calibration) {
    auto const refuse = [](Contradiction const& contradiction, std::string const& remedy) {
        throw Argument_error("calibration's " + contradiction.key, contradiction.problem, remedy);
    };
    if (auto const contradiction = find_contradiction(calibration)) {
        refuse(*contradiction, "give a mosaic and weights that follow from the analysers");
    }
    bool const needs_maps = calibration.model != Calibration_model::position;
    if (needs_maps != (calibration.maps != nullptr)) {
        refuse(
            {"model", std::string{name_of(calibration.model)} +
                          (needs_maps ? " without maps" : " with maps")},
            "give maps for the models gain and pixel only");
    }
    if (auto const& noise = calibration.noise;
        noise && !(noise->electrons_per_count > 0 && noise->read_noise >= 0)) {
        refuse(
            {"noise", std::to_string(noise->electrons_per_count) + " electrons per count and " +
                          std::to_string(noise->read_noise) + " electrons of read noise"},
            "give one above 0, and one of at least 0");
    }
    if (!needs_maps) {
        return;
    }
    std::string const remedy = "give maps as Calibration_maps describes them";
    if (auto const fault = find_description_fault(*calibration.maps)) {
        refuse(*fault, remedy);
    }
    if (auto fault = find_number_fault(calibration.model, *calibration.maps)) {
        refuse({"maps/" + fault->key, fault->problem}, remedy);
    }
}

// What older programs read stays as it was.
int version_of(Calibration const& calibration) {
    bool const is_plain = calibration.model == Calibration_model::position && !calibration.noise &&
                          calibration.quality.models.empty();
    return is_plain ? 2 : 3;
}

std::string dumped(Json const& json, std::string const& what) {
    try {
        return json.dump(2);
    } catch (Json::type_error const&) {
        throw Argument_error(what, "not UTF-8", "give names of valid UTF-8");
    }
}

} // namespace

std::string calibration_to_json(Calibration const& calibration, std::string const& array_stem) {
    check_parts(calibration);
    int const version = version_of(calibration);
    Provenance const& provenance = calibration.provenance;
    Json json = {
        {"schema", {{"name", calibration_schema_name}, {"version", version}}},
        {"mosaic", calibration.mosaic.to_string()}};
    if (version > 2) {
        json["model"] = name_of(calibration.model);
    }
    json["matrices"] = matrices_json(calibration.matrices);
    json["analysers"] = analysers_json(calibration.analysers);
    if (calibration.maps) {
        dumped(array_stem, "name of the array file");
        json["maps"] = maps_json(calibration.model, *calibration.maps, array_stem);
    }
    if (calibration.noise) {
        json["noise"] = noise_json(*calibration.noise);
    }
    json["quality"] = quality_json(calibration, version);
    json["provenance"] = {
        {"software_version", provenance.software_version},
        {"time", provenance.time},
        {"sensor", provenance.sensor},
        {"sources", Json(provenance.sources)}};
    std::string const text = dumped(json, "provenance") + "\n";
    return calibration.maps ? with_bad_pixels(text, *calibration.maps) : text;
}

Calibration_text parse_calibration(std::string const& text, std::filesystem::path const& name) {
    Json const json = parse_json(text, name);
    Node const root{name, json, ""};
    std::size_t const version = schema_version(root);
    if (version > 2) {
        root.require_object(
            {"schema", "mosaic", "matrices", "analysers", "quality", "provenance", "model", "noise",
             "maps"});
    } else {
        root.require_object({"schema", "mosaic", "matrices", "analysers", "quality", "provenance"});
    }
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
    if (version > 2) {
        calibration.model = read_model(root["model"]);
        if (root.has("noise")) {
            calibration.noise = read_noise(root["noise"]);
        }
    }
    if (calibration.model == Calibration_model::position) {
        if (root.has("maps")) {
            root["maps"].refuse("the model position has none");
        }
        return {calibration, std::nullopt};
    }
    Maps_text const maps = read_maps(root["maps"], calibration.model);
    if (auto const fault = find_description_fault(maps.maps)) {
        Node{name, json, fault->key}.refuse("this is " + fault->problem);
    }
    return {calibration, maps};
}

Calibration calibration_from_json(std::string const& text, std::filesystem::path const& name) {
    Calibration_text const parsed = parse_calibration(text, name);
    if (parsed.maps) {
        throw File_error(
            name, 0, "maps", "their numbers are in an array file, not in the text",
            "load the calibration from its two files");
    }
    return parsed.calibration;
}

Calibration calibration_from_json(
    std::string const& text, std::filesystem::path const& name,
    std::span<std::span<float const> const> maps) {
    Calibration_text parsed = parse_calibration(text, name);
    auto const planes = maps_of(parsed.calibration.model);
    if (maps.size() != planes.size()) {
        throw File_error(
            name, 0, "maps",
            std::to_string(planes.size()) + " are expected, not " + std::to_string(maps.size()),
            "give those of the model");
    }
    if (!parsed.maps) {
        return parsed.calibration;
    }
    auto const copied = std::make_shared<Calibration_maps>(parsed.maps->maps);
    for (std::size_t index = 0; index < planes.size(); ++index) {
        ((*copied).*planes[index].numbers).assign(maps[index].begin(), maps[index].end());
    }
    return complete(parsed, copied, name);
}

} // namespace veldrane_mrv::polarization
