#include "output/results.hpp"

#include "output/image_writing.hpp"

#include <algorithm>
#include <string>
#include <system_error>

namespace polarize_tool {
namespace {

using polarization::Plane;

constexpr char const* angle_degree_suffix = "_angle_degree.png";
constexpr char const* degree_suffix = "_degree.png";
constexpr char const* sidecar_ending = ".json";

} // namespace

std::filesystem::path Results::file_of(Frame_place const& place, std::string const& ending) const {
    return folder / (place.stem() + ending);
}

std::filesystem::path Results::plane_file(Frame_place const& place, Plane plane) const {
    std::string ending = "_";
    ending.append(name_of(plane)).append(".").append(ending_of(format));
    return file_of(place, ending);
}

bool Results::shows_degree(Frame_place const& place) const {
    return pictures.are_wanted.value_or(!place.is_part() && !are_stacked) &&
           processing.planes.contains(Plane::dolp);
}

bool Results::shows_angle(Frame_place const& place) const {
    return shows_degree(place) && processing.planes.contains(Plane::azimuth);
}

std::vector<Plane> Results::planes_of_a_frame() const {
    return are_stacked ? std::vector<Plane>() : processing.planes.list();
}

std::vector<std::filesystem::path> Results::files_of(Frame_place const& place) const {
    std::vector<std::filesystem::path> files;
    if (are_piped()) {
        return files;
    }
    for (Plane const plane : planes_of_a_frame()) {
        files.push_back(plane_file(place, plane));
        files.push_back(plane_file(place, plane).replace_extension(sidecar_ending));
    }
    if (shows_angle(place)) {
        files.push_back(file_of(place, angle_degree_suffix));
    }
    if (shows_degree(place)) {
        files.push_back(file_of(place, degree_suffix));
    }
    return files;
}

bool Results::has_files_of(Frame_place const& place) const {
    std::vector<std::filesystem::path> const files = files_of(place);
    return std::all_of(files.begin(), files.end(), [](std::filesystem::path const& file) {
        std::error_code error;
        return std::filesystem::is_regular_file(file, error) &&
               std::filesystem::file_size(file, error) > 0 && !error;
    });
}

bool Results::masks_pictures(Frame_place const& place) const {
    return shows_degree(place) && pictures.are_masked;
}

Staged_files Results::stage(
    Frame_place const& place, Frame_processor const& processed,
    std::span<std::uint8_t const> validity) const {
    Staged_files files(existing);
    for (Plane const plane : planes_of_a_frame()) {
        std::filesystem::path const file = plane_file(place, plane);
        Array_view const array = processed.array(plane);
        Encoded_array const encoded = encode(array, format);
        if (encoded.samples_follow) {
            files.add(file, {encoded.head, array.bytes()});
        } else {
            files.add(file, encoded.head);
        }
        std::filesystem::path beside = file;
        files.add(
            beside.replace_extension(sidecar_ending),
            sidecar(plane, file, array, place, processing, origin));
    }
    stage_pictures(place, processed, validity, files);
    return files;
}

void Results::stage_pictures(
    Frame_place const& place, Frame_processor const& processed,
    std::span<std::uint8_t const> validity, Staged_files& files) const {
    if (!shows_degree(place)) {
        return;
    }
    Array_view const size = processed.array(Plane::dolp);
    polarization::Picture_source const source{
        processed.stored(Plane::azimuth),
        processed.stored(Plane::dolp),
        size.width(),
        size.height(),
        processing.settings.scale.full_scale(),
        validity};
    if (shows_angle(place)) {
        files.add(
            file_of(place, angle_degree_suffix),
            encode_png(polarization::angle_degree_picture(source)));
    }
    files.add(file_of(place, degree_suffix), encode_png(polarization::degree_picture(source)));
}

} // namespace polarize_tool
