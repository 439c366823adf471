#include "input/input_files.hpp"

#include "terminal/failure.hpp"

#include <optional>
#include <sys/stat.h>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

std::string canonical_name(fs::path const& file) {
    std::error_code error;
    fs::path const found = fs::weakly_canonical(file, error);
    return error ? file.string() : found.string();
}

std::optional<std::pair<dev_t, ino_t>> identity_of(fs::path const& file) {
    struct stat status = {};
    return stat(file.c_str(), &status) == 0 ? std::optional(std::pair(status.st_dev, status.st_ino))
                                            : std::nullopt;
}

bool is_described(fs::path const& file) {
    try {
        return polarization::read_recording_description(file).has_value();
    } catch (File_failure const&) {
        return true; // damaged, but still the user's
    }
}

} // namespace

Input_files::Input_files(
    std::vector<Frame_place> const& frames, Frame_preparation const& preparation) {
    fs::path last; // frames of one file follow one another, and to resolve a name takes long
    for (Frame_place const& frame : frames) {
        if (frame.file != last) {
            last = frame.file;
            add(last);
            if (frame.capture || is_described(last)) { // the first spares reading it again
                add(polarization::description_file_of(last));
            }
        }
    }
    for (fs::path const& file : preparation.dark_files()) {
        add(file);
        if (is_described(file)) {
            add(polarization::description_file_of(file));
        }
    }
}

void Input_files::add(fs::path const& file) {
    if (file.empty()) {
        return;
    }
    names_.insert(canonical_name(file));
    if (auto const identity = identity_of(file)) {
        identities_.insert(*identity);
    }
}

bool Input_files::contains(fs::path const& file) const {
    auto const identity = identity_of(file);
    return (identity && identities_.contains(*identity)) || names_.contains(canonical_name(file));
}

void Input_files::refuse(fs::path const& output, std::string const& option) const {
    if (contains(output)) {
        throw File_failure(output, "is an input and would be lost; choose another " + option);
    }
}

} // namespace polarize_tool
