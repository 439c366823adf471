#include "results.hpp"

#include "image_writing.hpp"
#include "pictures.hpp"

namespace polarize_tool {
namespace {

constexpr char const* angle_degree_suffix = "_angle_degree.png";
constexpr char const* degree_suffix = "_degree.png";

std::filesystem::path plane_file(
    std::filesystem::path const& folder, std::string const& stem, Plane plane) {
    return folder / (stem + "_" + std::string(name_of(plane)) + ".tif");
}

bool shows_degree(std::set<Plane> const& planes) {
    return planes.contains(Plane::dolp);
}

bool shows_angle(std::set<Plane> const& planes) {
    return planes.contains(Plane::dolp) && planes.contains(Plane::azimuth);
}

} // namespace

std::vector<std::filesystem::path> result_files(
    std::filesystem::path const& folder, std::string const& stem, std::set<Plane> const& planes) {
    std::vector<std::filesystem::path> files;
    for (Plane const plane : planes) {
        files.push_back(plane_file(folder, stem, plane));
    }
    if (shows_angle(planes)) {
        files.push_back(folder / (stem + angle_degree_suffix));
    }
    if (shows_degree(planes)) {
        files.push_back(folder / (stem + degree_suffix));
    }
    return files;
}

void write_results(
    std::filesystem::path const& folder, std::string const& stem, Frame const& frame,
    Transform_result const& result, Transform_settings const& settings) {
    Staged_files files;
    for (Plane const plane : settings.planes) {
        auto const file = plane_file(folder, stem, plane);
        if (plane == Plane::normalized_stokes) {
            constexpr std::size_t channels = 2;
            files.add(
                file, encode_tiff(result.normalized_stokes, frame.width, frame.height, channels));
        } else {
            files.add(file, encode_tiff(result.plane(plane), frame.width, frame.height));
        }
    }
    auto const full_scale =
        static_cast<unsigned>(output_scale(settings.bit_depth, settings.full_scale).maximum_output);
    Picture_source const source{
        result.plane(Plane::azimuth), result.plane(Plane::dolp), frame.width, frame.height,
        full_scale};
    if (shows_angle(settings.planes)) {
        files.add(folder / (stem + angle_degree_suffix), encode_png(angle_degree_picture(source)));
    }
    if (shows_degree(settings.planes)) {
        files.add(folder / (stem + degree_suffix), encode_png(degree_picture(source)));
    }
    files.publish();
}

} // namespace polarize_tool
