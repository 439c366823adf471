#include "output/staged_files.hpp"

#include "output/bulk_writing.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/regular_files.hpp"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;
namespace regular_files = veldrane_mrv::polarization::regular_files;
using regular_files::Descriptor;

// What forbids one new file in a folder forbids them all.
[[noreturn]] void fail_to_create(fs::path const& file, int error) {
    if (error == EACCES || error == EPERM) {
        throw Output_exhausted(
            file, std::string("cannot be written: ") + std::strerror(error) +
                      "; choose another folder with -o");
    }
    fail_to_write(file, error);
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
    void forget(fs::path const& name) { names_.erase(name.native()); }

    // A disk that has gone away may keep an open for ever, so no lock is held meanwhile.
    Descriptor create(fs::path const& name) {
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return !is_ending_; });
            names_.insert(name.native());
            ++being_created_;
        }
        Descriptor descriptor = regular_files::create(name);
        int const error = errno;
        {
            std::lock_guard const lock(mutex_);
            --being_created_;
            if (!descriptor.is_open()) {
                forget(name);
            }
        }
        changed_.notify_all();
        errno = error;
        return descriptor;
    }

    void remove_for_good() {
        constexpr std::chrono::seconds patience(1);
        std::unique_lock lock(mutex_);
        is_ending_ = true;
        changed_.wait_for(lock, patience, [this] { return being_created_ == 0; });
        for (std::string const& name : names_) {
            unlink(name.c_str());
        }
        lock.release(); // and never unlocked
    }

private:
    std::mutex mutex_; // held while files are renamed and removed, not while they are opened
    std::condition_variable changed_;
    std::unordered_set<std::string> names_;
    unsigned being_created_ = 0;
    bool is_ending_ = false;
};

// A folder with very many files takes a while to look through, so once is enough.
void remove_leftovers_once(fs::path const& folder) {
    static std::mutex mutex;
    static std::set<fs::path> visited;
    {
        std::lock_guard const lock(mutex);
        if (!visited.insert(folder).second) {
            return;
        }
    }
    regular_files::remove_leftovers(folder);
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
    auto const obstacle =
        regular_files::obstacle_at(file, existing, "give --overwrite to replace it");
    if (obstacle) {
        throw File_failure(file, obstacle->problem + "; " + obstacle->remedy);
    }
}

Staged_files::Staged_files(Staged_files&& other) noexcept
    : existing_{other.existing_}, files_{std::exchange(other.files_, {})} {}

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
        unlink(file.temporary.c_str());
        names.forget(file.temporary);
    }
}

void Staged_files::add(
    fs::path const& file, std::initializer_list<Bytes> parts, Existing_files existing) {
    refuse_existing(file, existing);
    remove_leftovers_once(file.parent_path());
    files_.push_back({regular_files::temporary_name(file), file, existing});
    Staged_file& staged = files_.back();
    Descriptor descriptor = Temporary_names::all().create(staged.temporary);
    struct stat status = {};
    if (!descriptor.is_open() || fstat(descriptor.get(), &status) != 0) {
        int const error = errno;
        if (!descriptor.is_open()) {
            files_.pop_back(); // of another's file, not to be removed
        }
        fail_to_create(file, error);
    }
    staged.device = status.st_dev;
    staged.number = status.st_ino;
    Bulk_file bulk(std::move(descriptor), file);
    bulk.write(0, {parts.begin(), parts.size()});
    bulk.close();
}

// Opened once more: a run may have more files under way than a process may have open.
void Staged_files::append(Bytes bytes) {
    Staged_file const& file = files_.back();
    int const how = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor descriptor(open(file.temporary.c_str(), how));
    struct stat status = {};
    bool const is_there = descriptor.is_open() && fstat(descriptor.get(), &status) == 0;
    // ENXIO: a pipe without a reader.
    if (!is_there && errno != ENOENT && errno != ELOOP && errno != ENXIO) {
        fail_to_write(file.final, errno);
    }
    if (!is_there || status.st_dev != file.device || status.st_ino != file.number) {
        throw File_failure(
            file.final, "cannot be written: " + file.temporary.string() +
                            " was moved or replaced meanwhile; choose a folder in which nobody "
                            "else can do so");
    }
    Bulk_file bulk(std::move(descriptor), file.final);
    bulk.write(static_cast<std::uint64_t>(status.st_size), {&bytes, 1});
    bulk.close();
}

void Staged_files::add(fs::path const& file, std::string const& text) {
    add(file, Bytes(reinterpret_cast<std::uint8_t const*>(text.data()), text.size()));
}

void Staged_files::publish() {
    // Found out before the first rename, a name that is taken leaves nothing half done.
    for (Staged_file const& file : files_) {
        refuse_existing(file.final, file.existing);
    }
    Temporary_names& names = Temporary_names::all();
    std::lock_guard const lock(names.mutex());
    for (std::size_t index = 0; index < files_.size(); ++index) {
        Staged_file const& file = files_[index];
        int const error = regular_files::rename(file.temporary, file.final, file.existing);
        if (error != 0) {
            withdraw(index);
            fail_to_write(file.final, error);
        }
        names.forget(file.temporary);
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
