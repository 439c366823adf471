#include "veldrane_mrv/polarization/recording_writer.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

namespace fs = std::filesystem;
using regular_files::Descriptor;

// Of a frame in the description: three numbers of at most 20 digits, each with a comma and a blank.
constexpr std::uint64_t bytes_of_capture = 66;
constexpr std::uint64_t reserved_at_once = std::uint64_t{1} << 20;

fs::path part_of(fs::path file) {
    return file += ".part";
}

void refuse_existing(fs::path const& file, Existing_files existing) {
    if (auto const obstacle =
            regular_files::obstacle_at(file, existing, "give --overwrite to replace it")) {
        throw File_failure(file, obstacle->problem + "; " + obstacle->remedy);
    }
}

// Another's writer holds a lock on its samples as long as it lives.
void refuse_under_way(fs::path const& part) {
    Descriptor const other(open(part.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (other.is_open() && flock(other.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw File_failure(part, "is a recording under way; choose another name");
    }
}

// Shares the lock of the open file, which thereby outlives the closing of what was written.
Descriptor locked(Descriptor const& samples) {
    flock(samples.get(), LOCK_EX | LOCK_NB); // a file system that has no locks does without
    return Descriptor(fcntl(samples.get(), F_DUPFD_CLOEXEC, 0));
}

std::span<std::byte const> bytes_of(std::string const& text) {
    return std::as_bytes(std::span(text));
}

} // namespace

Recording_writer::Recording_writer(
    fs::path const& file, Recording_description description, Existing_files existing)
    : file_{file}, description_file_{description_file_of(file)},
      description_{std::move(description)}, existing_{existing},
      frame_bytes_{description_.layout().frame_bytes()},
      samples_part_{created(part_of(file_))}, lock_{locked(samples_part_)} {
    try {
        description_part_.emplace(created(part_of(description_file_)));
        description_.frames.reset();
        description_.captures.clear();
        if (description_.begin.empty()) {
            description_.begin = current_time();
        }
        if (description_.software.empty()) {
            description_.software = "veldrane-polarize " + std::string(software_version());
        }
        reserve_description();
        write_description(recording_description_text(description_));
    } catch (...) {
        remove_parts();
        throw;
    }
}

Recording_writer::~Recording_writer() {
    if (!is_finished_ && frames() == 0) {
        remove_parts();
    }
}

Descriptor Recording_writer::created(fs::path const& part) const {
    for (fs::path const& name : {file_, description_file_}) {
        refuse_existing(name, existing_);
    }
    if (existing_ == Existing_files::replace) {
        refuse_existing(part, existing_); // only regular files
        refuse_under_way(part);
        unlink(part.c_str());
    }
    Descriptor descriptor = regular_files::create(part);
    if (!descriptor.is_open()) {
        int const error = errno;
        if (error == EEXIST) {
            throw File_failure(
                part, "is a recording that was broken off or is under way; keep it under another "
                      "name, or give --overwrite to replace it");
        }
        throw File_failure(
            file_, "cannot be written: " + std::generic_category().message(error) +
                       "; choose another place");
    }
    return descriptor;
}

void Recording_writer::fail(int error) const {
    throw File_failure(
        file_, "cannot be written: " + std::generic_category().message(error) + "; " +
                   std::to_string(frames()) + (frames() == 1 ? " frame is" : " frames are") +
                   " kept; make room, or choose another place");
}

// A disk that is full in the end still takes the description.
void Recording_writer::reserve_description() {
    if ((frames() + 1) * bytes_of_capture + reserved_at_once / 2 <= reserved_) {
        return;
    }
    auto const from = static_cast<off_t>(reserved_);
    int const descriptor = description_part_->get();
    if (fallocate(descriptor, FALLOC_FL_KEEP_SIZE, from, static_cast<off_t>(reserved_at_once)) !=
            0 &&
        (errno == ENOSPC || errno == EDQUOT)) {
        fail(errno);
    }
    reserved_ += reserved_at_once; // other errors: a file system that cannot
}

void Recording_writer::write_description(std::string const& text) {
    lseek(description_part_->get(), 0, SEEK_SET);
    if (int const error = regular_files::write_all(*description_part_, bytes_of(text))) {
        fail(error);
    }
    if (ftruncate(description_part_->get(), static_cast<off_t>(text.size())) != 0) {
        fail(errno);
    }
}

void Recording_writer::remove_parts() const {
    unlink(part_of(file_).c_str());
    if (description_part_) {
        unlink(part_of(description_file_).c_str());
    }
}

void Recording_writer::append(std::span<std::byte const> samples, Capture const& capture) {
    if (samples.size() != frame_bytes_) {
        throw Argument_error(
            "a frame to record", std::to_string(samples.size()) + " bytes",
            "give " + std::to_string(frame_bytes_));
    }
    reserve_description();
    description_.captures.push_back(capture);
    if (int const error = regular_files::write_all(samples_part_, samples)) {
        description_.captures.pop_back();
        auto const whole = static_cast<off_t>(size_);
        static_cast<void>(ftruncate(samples_part_.get(), whole) == 0);
        lseek(samples_part_.get(), whole, SEEK_SET);
        fail(error);
    }
    size_ += frame_bytes_;
}

void Recording_writer::finish(Receiving_counts const& counts) {
    if (frames() == 0) {
        remove_parts();
        is_finished_ = true;
        return;
    }
    description_.frames = frames();
    description_.counts = counts;
    write_description(recording_description_text(description_));
    for (Descriptor* const part : {&samples_part_, &*description_part_}) {
        if (int const error = part->close()) {
            fail(error);
        }
    }
    for (fs::path const& name : {file_, description_file_}) {
        refuse_existing(name, existing_);
    }
    // Nobody takes the new samples for what the old description tells.
    if (existing_ == Existing_files::replace) {
        unlink(description_file_.c_str());
    }
    for (fs::path const& name : {file_, description_file_}) {
        if (int const error = regular_files::rename(part_of(name), name, existing_)) {
            fail(error);
        }
    }
    is_finished_ = true;
}

} // namespace veldrane_mrv::polarization
