// What an earlier run left of a stack, taken up by this one.
#include "output/stack.hpp"

#include "terminal/failure.hpp"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;
namespace regular_files = veldrane_mrv::polarization::regular_files;
using Json = nlohmann::ordered_json;

constexpr char const* begin_anew = "; give --overwrite to begin anew";

// Of a description that says something else, the file would throw its reader's own text.
polarization::Size told_size(fs::path const& told_by, Json const& told) {
    Json const& plane = told["planes"].front();
    auto const number = [&](char const* key) {
        if (!plane.is_object() || !plane.contains(key) || !plane[key].is_number_unsigned()) {
            throw File_failure(
                told_by, std::string("planes, ") + key + ": is no number" + begin_anew);
        }
        return plane[key].get<std::size_t>();
    };
    return {number("width"), number("height")};
}

} // namespace

void Frame_stack::check_same(fs::path const& told_by, Json const& told) const {
    Json const wanted = description();
    for (auto const& [key, value] : wanted.items()) {
        if (key != "missing" && (!told.contains(key) || told[key] != value)) {
            throw File_failure(
                told_by, "tells of other " + key + " than this run; give the frames and options " +
                             "that it was begun with, or --overwrite to begin anew");
        }
    }
}

void Frame_stack::take_up(fs::path const& told_by, Json const& told) {
    set_size(told_size(told_by, told));
    check_same(told_by, told);
}

void Frame_stack::pass_over_done() {
    for (std::size_t number = 0; number < done_.size(); ++number) {
        done_[number] = has_data_[number] && results_.has_files_of(recording_.frames[number]);
    }
}

void Frame_stack::take_up_unfinished() {
    take_up(record_name_, record_->description());
    has_data_ = record_->done(has_data_.size());
    pass_over_done();
    for (Plane_file& plane : planes_) {
        plane.is_part = fs::exists(fs::symlink_status(plane.part));
    }
    open_files();
}

// A stack in which nothing is missing is left alone.
void Frame_stack::take_up_finished() {
    refuse_existing(sidecar_, Existing_files::replace);
    regular_files::Input const input = regular_files::open_to_read(sidecar_);
    std::string text;
    constexpr std::size_t no_limit = std::numeric_limits<std::size_t>::max();
    if (!input.problem.empty() || regular_files::read_all(input.descriptor, no_limit, text) != 0) {
        throw File_failure(sidecar_, "cannot be read" + std::string(begin_anew));
    }
    Json const told = parse_description(sidecar_, text);
    has_data_.assign(has_data_.size(), true);
    for (Json const& number : told.value("missing", Json::array())) {
        if (number.is_number_unsigned() && number.get<std::size_t>() < has_data_.size()) {
            has_data_[number.get<std::size_t>()] = false;
        }
    }
    take_up(sidecar_, told);
    pass_over_done();
    for (Plane_file& plane : planes_) {
        plane.is_part = false;
    }
    open_files();
    // A run that was to begin anew, and was killed before it did, left them at their full length.
    for (Plane_file const& plane : planes_) {
        unlink(plane.part.c_str());
    }
    if (unfinished() > 0) {
        record_->begin(description(), has_data_);
    } else {
        record_->remove();
        record_.reset();
    }
}

// A run that was killed while it gave the files their names has done so with some.
void Frame_stack::open_files() {
    for (Plane_file& plane : planes_) {
        fs::path const& place = plane.is_part ? plane.part : plane.name;
        refuse_existing(place, Existing_files::replace); // only regular files
        regular_files::Descriptor descriptor(
            ::open(place.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status = {};
        if (!descriptor.is_open() || fstat(descriptor.get(), &status) != 0) {
            throw File_failure(
                place, "cannot be opened: " + std::generic_category().message(errno) + begin_anew);
        }
        if (std::cmp_not_equal(status.st_size, plane.format.file_bytes())) {
            throw File_failure(
                place, "has " + std::to_string(status.st_size) + " bytes in place of " +
                           std::to_string(plane.format.file_bytes()) + begin_anew);
        }
        plane.file.emplace(std::move(descriptor), plane.name);
    }
}

} // namespace polarize_tool
