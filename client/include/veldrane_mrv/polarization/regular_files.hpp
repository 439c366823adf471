/// @file
/// Files as they are read and written here: regular ones and no others, opened without waiting for
/// anybody, written under a name that nobody can foresee and then renamed. Whatever lies above this
/// layer opens its files the same way.
#pragma once

#include "veldrane_mrv/polarization/existing_files.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace veldrane_mrv::polarization::regular_files {

/// An open file, closed in the end.
class Descriptor {
public:
    explicit Descriptor(int number) : number_{number} {}
    Descriptor(Descriptor&& other) noexcept : number_{std::exchange(other.number_, -1)} {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor();

    bool is_open() const { return number_ >= 0; }
    int get() const { return number_; }
    /// For a library that closes the file itself.
    int release() { return std::exchange(number_, -1); }
    /// File systems on a network report a full disk here at the latest.
    /// @return 0, or the error's number
    int close();

private:
    int number_;
};

/// A file to read. Its kind is that of the open file: a name may get another meaning at any time.
struct Input {
    Descriptor descriptor;
    struct stat status;
    /// Why it cannot be read, such as "No such file or directory" or "it is a folder"; else empty.
    std::string problem;

    /// A file, but none with bytes of its own.
    bool is_folder() const { return descriptor.is_open() && S_ISDIR(status.st_mode); }
    bool is_irregular() const {
        return descriptor.is_open() && !S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode);
    }
};
Input open_to_read(std::filesystem::path const& file);

/// Appends all bytes of an open file to `text`, or `limit` and some more.
/// @return 0, or the error's number
int read_all(Descriptor const& descriptor, std::size_t limit, std::string& text);

/// Fills `bytes` from where the file is read next.
/// @return 0, or the error's number; EIO if the file ends before
int read_exactly(Descriptor const& descriptor, std::span<std::byte> bytes);

/// What keeps a result from its place.
struct Obstacle {
    std::string problem;
    std::string remedy;
};
/// @param permission how to ask for the replacement of a file that is there
std::optional<Obstacle> obstacle_at(
    std::filesystem::path const& file, Existing_files existing, std::string const& permission);

/// A name for the file while it is written, beside the final one.
std::filesystem::path temporary_name(std::filesystem::path const& final);
bool is_temporary_name(std::string_view name);

/// A new file. Neither a link nor anything else that is there already is opened. A descriptor that
/// is not open leaves the reason in errno.
Descriptor create(std::filesystem::path const& name);

/// @return 0, or the error's number
int write_all(Descriptor const& descriptor, std::span<std::byte const> bytes);

/// @return 0, or the error's number
int rename(
    std::filesystem::path const& from, std::filesystem::path const& to, Existing_files existing);

/// Temporary files of runs that were killed: those of a folder that nobody has touched for an hour.
void remove_leftovers(std::filesystem::path const& folder);

} // namespace veldrane_mrv::polarization::regular_files
