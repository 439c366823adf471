#include "staged_files.hpp"

#include "failure.hpp"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
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

void make_folder(fs::path const& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder, error)) {
        throw File_failure(
            folder, "cannot be made a folder for the results: " +
                        (error ? error.message() : "it is a file"));
    }
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
    for (Staged_file const& file : files_) {
        std::error_code ignored;
        fs::remove(file.temporary, ignored);
    }
}

void Staged_files::add(fs::path const& file, std::initializer_list<Bytes> parts) {
    refuse_existing(file, existing_);
    // Several threads may stage files of one name.
    static std::atomic<unsigned> count = 0;
    fs::path temporary = file;
    temporary += ".part-" + std::to_string(getpid()) + "-" + std::to_string(count++);
    Descriptor descriptor(temporary, O_CREAT | O_TRUNC);
    if (!descriptor.is_open()) {
        fail_to_create(file, errno);
    }
    files_.push_back({temporary, file});
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
    for (std::size_t index = 0; index < files_.size(); ++index) {
        int const error = rename_error(files_[index].temporary, files_[index].final, existing_);
        if (error != 0) {
            withdraw(index);
            fail(files_[index].final, error);
        }
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
