#include "output/stack.hpp"

#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;
namespace regular_files = veldrane_mrv::polarization::regular_files;
using Json = nlohmann::ordered_json;

fs::path file_of(Results const& results, Recording const& recording, std::string const& ending) {
    return results.folder / (recording.stem + ending);
}

fs::path plane_file(Results const& results, Recording const& recording, polarization::Plane plane) {
    std::string ending = "_";
    ending.append(name_of(plane)).append(".").append(ending_of(results.format));
    return file_of(results, recording, ending);
}

fs::path part_of(fs::path const& file) {
    return file.string() + ".part";
}

bool is_there(fs::path const& file) {
    struct stat status = {};
    return lstat(file.c_str(), &status) == 0;
}

// As the folder was named, unless by a dot.
std::string name_of_folder(fs::path const& folder) {
    fs::path name = folder.filename();
    if (name.empty() || name == "." || name == "..") {
        std::error_code error;
        name = fs::weakly_canonical(folder.empty() ? "." : folder, error).filename();
    }
    return name.empty() ? "frames" : name.string();
}

std::string gigabytes(std::uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g GB", static_cast<double>(bytes) / 1e9);
    return text;
}

// After fallocate() failed.
void lengthen_without_room(int number, off_t size, fs::path const& file) {
    bool const is_unable = errno == EOPNOTSUPP || errno == ENOSYS || errno == EINVAL;
    if (!is_unable || ftruncate(number, size) != 0) {
        fail_to_write(file, errno);
    }
}

// Room is taken in advance, so that a full disk shows before hours of work.
void take_room(Bulk_file const& part, fs::path const& file, std::uint64_t bytes) {
    int const number = part.descriptor().get();
    auto const size = static_cast<off_t>(bytes);
    while (fallocate(number, 0, 0, size) != 0) {
        if (errno != EINTR) {
            lengthen_without_room(number, size, file);
            return;
        }
        throw_if_interrupted();
    }
}

} // namespace

std::vector<Recording> recordings_of(std::vector<Frame_place> frames) {
    std::vector<Recording> recordings;
    std::map<fs::path, std::size_t> numbers;
    for (Frame_place& frame : frames) {
        fs::path const key = frame.is_part() ? frame.file : frame.file.parent_path() / "";
        auto const [found, is_new] = numbers.emplace(key, recordings.size());
        if (is_new) {
            recordings.push_back({frame.file.stem().string(), {}});
        }
        recordings[found->second].frames.push_back(std::move(frame));
    }
    for (Recording& recording : recordings) {
        Frame_place const& first = recording.frames.front();
        if (!first.is_part() && recording.frames.size() > 1) {
            recording.stem = name_of_folder(first.file.parent_path());
        }
    }
    return recordings;
}

std::vector<fs::path> Frame_stack::files_of(Results const& results, Recording const& recording) {
    std::vector<fs::path> files = {
        file_of(results, recording, "_stack.json"), file_of(results, recording, "_stack.part")};
    for (polarization::Plane const plane : results.processing.planes.list()) {
        files.push_back(plane_file(results, recording, plane));
        files.push_back(part_of(files.back()));
    }
    return files;
}

Frame_stack::Frame_stack(
    Results const& results, Recording const& recording, Earlier_stack earlier,
    std::function<polarization::Size()> const& size_of_frames)
    : results_{results}, recording_{recording}, sidecar_{file_of(
                                                    results, recording, "_stack.json")},
      record_name_{file_of(results, recording, "_stack.part")},
      record_(std::in_place, record_name_), has_data_(recording.frames.size()),
      done_(recording.frames.size()) {
    try {
        open(earlier, size_of_frames);
    } catch (...) {
        if (!record_->has_begun()) {
            record_->remove();
        }
        throw;
    }
    if (record_) {
        leave_unfinished(true);
    }
}

void Frame_stack::open(
    Earlier_stack earlier, std::function<polarization::Size()> const& size_of_frames) {
    bool const is_resumed = earlier == Earlier_stack::resumed;
    if (record_->has_begun() && earlier == Earlier_stack::refused) {
        throw File_failure(
            record_name_,
            "is an unfinished stack; give --resume to go on with it, or --overwrite to begin anew");
    }
    if (record_->has_begun() && is_resumed) {
        take_up_unfinished();
    } else if (is_resumed && is_there(sidecar_)) {
        take_up_finished();
    } else {
        set_size(size_of_frames());
        begin(earlier);
    }
}

Frame_stack::~Frame_stack() = default;

void Frame_stack::set_size(polarization::Size const& size) {
    size_ = size;
    for (polarization::Plane const plane : results_.processing.planes.list()) {
        fs::path const name = plane_file(results_, recording_, plane);
        Stack_format const format(
            results_.format, results_.processing.kind_of(plane), size,
            polarization::elements_per_pixel(plane), recording_.frames.size());
        planes_.push_back({plane, name, part_of(name), format, std::nullopt});
    }
}

// As it comes back from a file: what is no number there is none here.
Json Frame_stack::description() const {
    return Json::parse(
        stack_description(files(), recording_.frames, size_, results_.processing, results_.origin)
            .dump());
}

void Frame_stack::begin(Earlier_stack earlier) {
    auto const rule = [](bool replaces) {
        return replaces ? Existing_files::replace : Existing_files::keep;
    };
    refuse_existing(sidecar_, rule(earlier == Earlier_stack::replaced));
    for (Plane_file const& plane : planes_) {
        refuse_existing(plane.name, rule(earlier == Earlier_stack::replaced));
        refuse_existing(plane.part, rule(earlier != Earlier_stack::refused));
    }
    require_room();
    remove_earlier_parts();
    try {
        make_files();
        record_->begin(description(), has_data_);
    } catch (Output_exhausted const& failure) {
        remove_parts();
        throw File_failure(failure); // other recordings may be shorter
    } catch (...) {
        remove_parts();
        throw;
    }
}

// Those of planes that are not wanted now among them.
void Frame_stack::remove_earlier_parts() {
    if (!record_->has_begun()) {
        return;
    }
    std::vector<fs::path> parts;
    try {
        Json const told = record_->description();
        for (Json const& plane : told["planes"]) {
            fs::path const name = fs::path(plane.at("file").get<std::string>()).filename();
            if (name.string().starts_with(recording_.stem + "_")) {
                parts.push_back(part_of(results_.folder / name));
            }
        }
    } catch (std::runtime_error const&) {
        parts.clear(); // a description that tells nothing
    } catch (Json::exception const&) {
        parts.clear();
    }
    record_->clear();
    for (fs::path const& part : parts) {
        unlink(part.c_str());
    }
}

void Frame_stack::make_files() {
    for (Plane_file& plane : planes_) {
        unlink(plane.part.c_str());
        regular_files::Descriptor descriptor = regular_files::create(plane.part);
        if (!descriptor.is_open()) {
            fail_to_write(plane.name, errno);
        }
        plane.file.emplace(std::move(descriptor), plane.name);
        take_room(*plane.file, plane.name, plane.format.file_bytes());
        auto const head = plane.format.head();
        auto const tail = plane.format.tail();
        plane.file->write(0, std::array<Bulk_file::Bytes, 1>{head});
        plane.file->write(plane.format.tail_offset(), std::array<Bulk_file::Bytes, 1>{tail});
    }
}

void Frame_stack::require_room() const {
    std::uint64_t needed = 0;
    for (Plane_file const& plane : planes_) {
        needed += plane.format.file_bytes();
    }
    struct statvfs disk = {};
    // Some file systems do not tell, and say 0 of 0.
    if (statvfs(results_.folder.c_str(), &disk) != 0 || disk.f_blocks == 0) {
        return;
    }
    std::uint64_t free = std::uint64_t{disk.f_bavail} * disk.f_frsize;
    for (Plane_file const& plane : planes_) { // what begins anew gives its room back
        struct stat status = {};
        constexpr std::uint64_t block = 512;
        if (lstat(plane.part.c_str(), &status) == 0) {
            free += block * static_cast<std::uint64_t>(status.st_blocks);
        }
    }
    if (needed > free) {
        throw File_failure(
            results_.folder, "the stack of " + recording_.frames.front().file.string() + " takes " +
                                 gigabytes(needed) + ", but " + gigabytes(free) +
                                 " are free; choose a place with room with -o");
    }
}

std::size_t Frame_stack::missing() const {
    return static_cast<std::size_t>(std::count(has_data_.begin(), has_data_.end(), false));
}

std::size_t Frame_stack::unfinished() const {
    return static_cast<std::size_t>(std::count(done_.begin(), done_.end(), false));
}

std::vector<fs::path> Frame_stack::files() const {
    std::vector<fs::path> files;
    for (Plane_file const& plane : planes_) {
        files.push_back(plane.name);
    }
    return files;
}

void Frame_stack::write(std::size_t number, Frame_processor const& processed) {
    for (Plane_file& plane : planes_) {
        auto const bytes = processed.array(plane.plane).bytes();
        plane.file->write(plane.format.offset_of(number), std::array<Bulk_file::Bytes, 1>{bytes});
    }
}

void Frame_stack::note_done(std::size_t number) {
    record_->add(number);
    has_data_[number] = true;
    done_[number] = true;
}

// Whatever came of an attempt may be there.
void Frame_stack::fill_missing() {
    for (Plane_file& plane : planes_) {
        std::vector<std::uint8_t> nothing;
        if (plane.format.kind() == polarization::Element_type::float32) {
            std::vector<float> const numbers(
                plane.format.frame_bytes() / sizeof(float),
                std::numeric_limits<float>::quiet_NaN());
            auto const bytes = std::as_bytes(std::span(numbers));
            auto const* const first = reinterpret_cast<std::uint8_t const*>(bytes.data());
            nothing.assign(first, first + bytes.size());
        } else {
            nothing.resize(plane.format.frame_bytes());
        }
        for (std::size_t number = 0; number < has_data_.size(); ++number) {
            if (!has_data_[number]) {
                plane.file->write(
                    plane.format.offset_of(number), std::array<Bulk_file::Bytes, 1>{nothing});
            }
        }
    }
}

void Frame_stack::finish() {
    if (missing() == has_data_.size()) {
        remove_parts();
        end_record();
        return;
    }
    Json told = description();
    if (missing() > 0) {
        fill_missing();
        for (std::size_t number = 0; number < has_data_.size(); ++number) {
            if (!has_data_[number]) {
                told["missing"].push_back(number);
            }
        }
    }
    unlink(sidecar_.c_str()); // it tells of what is being replaced
    for (Plane_file& plane : planes_) {
        plane.file->close();
        if (!plane.is_part) {
            continue;
        }
        refuse_existing(plane.name, Existing_files::replace); // only regular files
        if (int const error =
                regular_files::rename(plane.part, plane.name, Existing_files::replace)) {
            fail_to_write(plane.name, error);
        }
        plane.is_part = false;
    }
    Staged_files files;
    files.add(sidecar_, told.dump(2) + "\n");
    files.publish();
    end_record();
}

void Frame_stack::remove_parts() {
    for (Plane_file& plane : planes_) {
        if (plane.file && plane.is_part) {
            unlink(plane.part.c_str());
        }
        plane.file.reset();
    }
}

void Frame_stack::end_record() {
    record_->remove();
    record_.reset();
    leave_unfinished(false);
}

} // namespace polarize_tool
