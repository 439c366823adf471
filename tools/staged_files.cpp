#include "staged_files.hpp"

#include "failure.hpp"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>
#include <unordered_set>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(fs::path const& file, int error) {
    std::string const problem = std::string("cannot be written: ") + std::strerror(error);
    if (error == ENOSPC || error == EDQUOT || error == EROFS) {
        throw Output_exhausted(file, problem + "; choose a place with room with -o");
    }
    throw File_failure(file, problem);
}

// What forbids one new file in a folder forbids them all.
[[noreturn]] void fail_to_create(fs::path const& file, int error) {
    if (error == EACCES || error == EPERM) {
        throw Output_exhausted(
            file, std::string("cannot be written: ") + std::strerror(error) +
                      "; choose another folder with -o");
    }
    fail(file, error);
}

class Descriptor {
public:
    Descriptor(fs::path const& file, int how)
        : number_(open(file.c_str(), O_WRONLY | O_CLOEXEC | how, 0666)) {}
    ~Descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;

    bool write(Staged_files::Bytes bytes) const {
        while (!bytes.empty()) {
            ssize_t const written = ::write(number_, bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written <= 0) {
                return false;
            }
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        }
        return true;
    }

    bool is_open() const { return number_ >= 0; }

    // File systems on a network report a full disk here at the latest.
    bool close() { return ::close(std::exchange(number_, -1)) == 0; }

private:
    int number_;
};

void write_all(
    Descriptor& descriptor, fs::path const& file,
    std::initializer_list<Staged_files::Bytes> parts) {
    for (Staged_files::Bytes const bytes : parts) {
        if (!descriptor.write(bytes)) {
            fail(file, errno != 0 ? errno : EIO);
        }
    }
    if (!descriptor.close()) {
        fail(file, errno);
    }
}

// remove() takes no folder that holds anything, but it would take a file that came in its place.
void remove_empty(std::vector<fs::path> const& folders) {
    for (fs::path const& folder : folders) {
        rmdir(folder.c_str());
    }
}

// Temporary files by their names, in a set that is never destroyed: whoever ends the program may be
// later than static destructors. A name is noted before its file is made, and forgotten when the
// file has another name or is removed.
class Temporary_names {
public:
    static Temporary_names& all() {
        static auto* const names = new Temporary_names;
        return *names;
    }

    std::mutex& mutex() { return mutex_; }
    void note(fs::path const& name) { names_.insert(name.native()); }
    void forget(fs::path const& name) { names_.erase(name.native()); }

    void remove_for_good() {
        mutex_.lock(); // and never released
        for (std::string const& name : names_) {
            unlink(name.c_str());
        }
    }

private:
    std::mutex mutex_; // held while files are made, renamed and removed, not while they are filled
    std::unordered_set<std::string> names_;
};

int rename_error(fs::path const& from, fs::path const& to, Existing_files existing) {
    if (existing == Existing_files::keep) {
        if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
            return 0;
        }
        if (errno != EINVAL) { // else a file system that cannot refuse to replace
            return errno;
        }
        std::error_code error;
        if (fs::exists(to, error)) {
            return EEXIST;
        }
    }
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

} // namespace

Made_folder::Made_folder(fs::path const& folder) {
    if (folder.empty()) {
        return;
    }
    std::error_code error;
    std::vector<fs::path> missing;
    for (fs::path place = folder; !place.empty() && !fs::exists(place, error);
         place = place.parent_path()) {
        missing.push_back(place);
    }
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder, error)) {
        remove_empty(missing);
        throw File_failure(
            folder, "cannot be made a folder for the results: " +
                        (error ? error.message() : "it is a file"));
    }
    made_ = std::move(missing);
}

Made_folder::~Made_folder() {
    remove_empty(made_);
}

void remove_staged_files() {
    Temporary_names::all().remove_for_good();
}

void refuse_existing(fs::path const& file, Existing_files existing) {
    std::error_code error;
    if (fs::is_directory(file, error)) {
        throw File_failure(file, "cannot be written: a folder has this name; use another folder");
    }
    if (existing == Existing_files::keep && fs::exists(file, error)) {
        throw File_failure(
            file, "exists already; give --overwrite to replace it, or choose another place");
    }
}

Staged_files::Staged_files(Staged_files&& other) noexcept
    : existing_(other.existing_), files_(std::exchange(other.files_, {})) {}

Staged_files& Staged_files::operator=(Staged_files&& other) noexcept {
    std::swap(existing_, other.existing_);
    files_.swap(other.files_);
    return *this;
}

Staged_files::~Staged_files() {
    if (files_.empty()) {
        return;
    }
    Temporary_names& names = Temporary_names::all();
    std::lock_guard const lock(names.mutex());
    for (Staged_file const& file : files_) {
        std::error_code ignored;
        fs::remove(file.temporary, ignored);
        names.forget(file.temporary);
    }
}

void Staged_files::add(fs::path const& file, std::initializer_list<Bytes> parts) {
    refuse_existing(file, existing_);
    // Several threads may stage files of one name.
    static std::atomic<unsigned> count = 0;
    fs::path temporary = file;
    temporary += ".part-" + std::to_string(getpid()) + "-" + std::to_string(count++);
    Temporary_names& names = Temporary_names::all();
    std::unique_lock lock(names.mutex());
    names.note(temporary);
    Descriptor descriptor(temporary, O_CREAT | O_TRUNC);
    if (!descriptor.is_open()) {
        int const error = errno;
        names.forget(temporary);
        fail_to_create(file, error);
    }
    files_.push_back({temporary, file});
    lock.unlock();
    write_all(descriptor, file, parts);
}

void Staged_files::append(Bytes bytes) {
    Descriptor descriptor(files_.back().temporary, O_APPEND);
    if (!descriptor.is_open()) {
        fail(files_.back().final, errno);
    }
    write_all(descriptor, files_.back().final, {bytes});
}

void Staged_files::add(fs::path const& file, std::string const& text) {
    add(file, Bytes(reinterpret_cast<std::uint8_t const*>(text.data()), text.size()));
}

void Staged_files::publish() {
    // Found out before the first rename, a name that is taken leaves nothing half done.
    for (Staged_file const& file : files_) {
        refuse_existing(file.final, existing_);
    }
    Temporary_names& names = Temporary_names::all();
    std::lock_guard const lock(names.mutex());
    for (std::size_t index = 0; index < files_.size(); ++index) {
        int const error = rename_error(files_[index].temporary, files_[index].final, existing_);
        if (error != 0) {
            withdraw(index);
            fail(files_[index].final, error);
        }
        names.forget(files_[index].temporary);
    }
    files_.clear();
}

// What was replaced is lost, but no part of a set stands alone.
void Staged_files::withdraw(std::size_t count) const {
    for (std::size_t index = 0; index < count; ++index) {
        std::error_code ignored;
        fs::remove(files_[index].final, ignored);
    }
}

} // namespace polarize_tool
