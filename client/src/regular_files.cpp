#include "veldrane_mrv/polarization/regular_files.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <system_error>
#include <time.h>
#include <unistd.h>

namespace veldrane_mrv::polarization::regular_files {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view temporary_start = ".veldrane.part-";
constexpr std::size_t random_bytes = 16;
constexpr std::string_view hexadecimal = "0123456789abcdef";

std::string kind_of(mode_t mode) {
    return S_ISFIFO(mode) ? "a pipe" : S_ISSOCK(mode) ? "a socket" : "a device";
}

// Empty if `file` is no link.
std::string link_of(fs::path const& file) {
    std::error_code error;
    fs::path const target = fs::read_symlink(file, error);
    if (error) {
        return {};
    }
    bool const is_there = fs::exists(file, error) || error;
    return "a link to " + target.string() + (is_there ? "" : ", which is not there");
}

} // namespace

Descriptor::~Descriptor() {
    if (number_ >= 0) {
        ::close(number_);
    }
}

int Descriptor::close() {
    return ::close(std::exchange(number_, -1)) == 0 ? 0 : errno;
}

Input open_to_read(fs::path const& file) {
    // To open a pipe would wait for somebody who writes into it.
    int const how = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    Input input{Descriptor{::open(file.c_str(), how)}, {}, {}};
    if (!input.descriptor.is_open() || ::fstat(input.descriptor.get(), &input.status) != 0) {
        int const error = errno;
        input.problem = std::generic_category().message(error);
        std::string const link = error == ENOENT ? link_of(file) : std::string{};
        if (!link.empty()) {
            input.problem += ": it is " + link + "; mend or remove the link";
        }
    } else if (input.is_folder()) {
        input.problem = "it is a folder";
    } else if (input.is_irregular()) {
        input.problem = "it is no regular file but " + kind_of(input.status.st_mode);
    }
    return input;
}

int read_all(Descriptor const& descriptor, std::size_t limit, std::string& text) {
    std::string piece(65536, '\0');
    while (text.size() <= limit) {
        ssize_t const count = ::read(descriptor.get(), piece.data(), piece.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count == 0) {
            return 0;
        }
        text.append(piece, 0, count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return 0;
}

int read_exactly(Descriptor const& descriptor, std::span<std::byte> bytes) {
    while (!bytes.empty()) {
        ssize_t const count = ::read(descriptor.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count < 0 ? errno : EIO;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return 0;
}

std::optional<Obstacle> obstacle_at(
    fs::path const& file, Existing_files existing, std::string const& permission) {
    struct stat status = {};
    if (::lstat(file.c_str(), &status) != 0) {
        return std::nullopt; // whatever is wrong, writing tells
    }
    if (S_ISDIR(status.st_mode)) {
        return Obstacle{"cannot be written: a folder has this name", "use another folder"};
    }
    if (S_ISLNK(status.st_mode)) {
        return Obstacle{
            "cannot be written: it is " + link_of(file),
            "name the file itself, or choose another place"};
    }
    if (!S_ISREG(status.st_mode)) {
        return Obstacle{
            "cannot be written: it is no regular file but " + kind_of(status.st_mode),
            "choose another place"};
    }
    if (existing == Existing_files::keep) {
        return Obstacle{"exists already", permission + ", or choose another place"};
    }
    return std::nullopt;
}

fs::path temporary_name(fs::path const& final) {
    std::array<std::uint8_t, random_bytes> random{};
    if (::getentropy(random.data(), random.size()) != 0) {
        throw std::system_error(errno, std::generic_category(), "no random numbers");
    }
    std::string name{temporary_start};
    for (std::uint8_t const byte : random) {
        name += hexadecimal[byte >> 4];
        name += hexadecimal[byte & 15];
    }
    return final.parent_path() / name;
}

bool is_temporary_name(std::string_view name) {
    return name.starts_with(temporary_start) &&
           name.size() == temporary_start.size() + 2 * random_bytes &&
           name.find_first_not_of(hexadecimal, temporary_start.size()) == std::string_view::npos;
}

Descriptor create(fs::path const& name) {
    int const how = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    return Descriptor{::open(name.c_str(), how, 0666)};
}

int write_all(Descriptor const& descriptor, std::span<std::byte const> bytes) {
    while (!bytes.empty()) {
        ssize_t const written = ::write(descriptor.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return written < 0 ? errno : EIO;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return 0;
}

int rename(fs::path const& from, fs::path const& to, Existing_files existing) {
    if (existing == Existing_files::keep) {
        if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
            return 0;
        }
        if (errno != EINVAL) { // else a file system that cannot refuse to replace
            return errno;
        }
        struct stat status = {};
        if (::lstat(to.c_str(), &status) == 0) {
            return EEXIST;
        }
    }
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

void remove_leftovers(fs::path const& folder) {
    constexpr time_t longest_run = 3600;
    char const* const name = folder.empty() ? "." : folder.c_str();
    std::unique_ptr<DIR, int (*)(DIR*)> const entries{::opendir(name), &::closedir};
    if (entries == nullptr) {
        return; // what keeps files from being written there, writing them tells
    }
    int const place = ::dirfd(entries.get());
    time_t const newest = ::time(nullptr) - longest_run;
    while (dirent const* const entry = ::readdir(entries.get())) {
        struct stat status = {};
        if (is_temporary_name(entry->d_name) &&
            ::fstatat(place, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode) && status.st_mtime < newest) {
            ::unlinkat(place, entry->d_name, 0);
        }
    }
}

} // namespace veldrane_mrv::polarization::regular_files
