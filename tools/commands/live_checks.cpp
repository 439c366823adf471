#include "commands/live_checks.hpp"

#include "input/input_files.hpp"
#include "output/stack.hpp"
#include "output/stack_format.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/recording_description.hpp"

#include <cstdint>
#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

bool has_description(fs::path const& recording) {
    try {
        return polarization::read_recording_description(recording).has_value();
    } catch (File_failure const&) {
        return false; // damaged: nobody can tell whose
    }
}

// The folder itself may not be there yet.
fs::path nearest_folder(fs::path const& folder) {
    std::error_code error;
    fs::path nearest = fs::absolute(folder, error);
    while (!fs::exists(nearest, error) && nearest.has_relative_path()) {
        nearest = nearest.parent_path();
    }
    return nearest;
}

// What begins anew gives its room back.
double bytes_of_parts(Results const& results, std::string const& stem) {
    constexpr double block = 512;
    double bytes = 0;
    for (fs::path const& file : Frame_stack::files_of(results, {stem, {}})) {
        struct stat status = {};
        if (file.extension() == ".part" && lstat(file.c_str(), &status) == 0) {
            bytes += block * static_cast<double>(status.st_blocks);
        }
    }
    return bytes;
}

} // namespace

void refuse_other_description(fs::path const& recording) {
    fs::path const description = polarization::description_file_of(recording);
    std::error_code error;
    if (fs::is_regular_file(description, error) && !has_description(recording)) {
        throw File_failure(
            description, "is no description of a recording and would be lost; choose another FILE "
                         "with --record");
    }
}

void refuse_lost_inputs(
    fs::path const& recording, fs::path const& calibration, Frame_preparation const& preparation) {
    Input_files inputs({}, preparation);
    inputs.add(calibration);
    for (fs::path const& dark : preparation.dark_files()) {
        inputs.add(polarization::description_file_of(dark));
    }
    for (fs::path const& file : {recording, polarization::description_file_of(recording)}) {
        for (char const* const ending : {"", ".part"}) {
            inputs.refuse(file.string() + ending, "FILE with --record");
        }
    }
}

void check_room_of_stack(
    Results const& results, polarization::Size const& size, std::size_t frames) {
    double bytes = 0; // more than any integer holds, it may be
    for (polarization::Plane const plane : results.processing.planes.list()) {
        Stack_format const format(
            results.format, results.processing.kind_of(plane), size,
            polarization::elements_per_pixel(plane), 1);
        bytes += static_cast<double>(format.frame_bytes()) * static_cast<double>(frames);
    }
    struct statvfs disk = {};
    // Some file systems do not tell, and say 0 of 0.
    if (statvfs(nearest_folder(results.folder).c_str(), &disk) != 0 || disk.f_blocks == 0) {
        return;
    }
    double const free = static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize) +
                        bytes_of_parts(results, "live");
    if (bytes > free) {
        char text[80];
        std::snprintf(
            text, sizeof text, "takes %.3g GB, but %.3g GB are free", bytes / 1e9, free / 1e9);
        throw Usage_error(
            "--frames is " + std::to_string(frames) + ", and its stack in " +
            results.folder.string() + " " + text +
            "; give fewer --frames or --planes, or a place with room with -o");
    }
}

} // namespace polarize_tool
