/// @file
/// Files that appear whole or not at all.
#pragma once

#include "veldrane_mrv/polarization/existing_files.hpp"

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace polarize_tool {

using veldrane_mrv::polarization::Existing_files;

/// A folder for results and what was missing above it, made now. Those that are still empty in the
/// end are removed again, unless they were there before.
class Made_folder {
public:
    /// Of an empty name nothing is made.
    /// @throws File_failure
    explicit Made_folder(std::filesystem::path const& folder);
    ~Made_folder();
    Made_folder(Made_folder const&) = delete;
    Made_folder& operator=(Made_folder const&) = delete;

private:
    std::vector<std::filesystem::path> made_; // the deepest first
};

/// @throws File_failure if `file` exists and is to be kept, or is anything but a regular file
void refuse_existing(std::filesystem::path const& file, Existing_files existing);

/// Removes all temporary files of this process, for one that ends without running destructors.
/// Waits for sets that are just being published, and a moment for files that are just being made;
/// from then on no file is made or renamed.
void remove_staged_files();

/// Files that are to appear together. Each is first written beside its place under another name;
/// publish() renames them all. Whatever was not published is removed, and with the first file of a
/// folder what killed runs left there an hour ago or earlier.
class Staged_files {
public:
    using Bytes = std::span<std::uint8_t const>;

    explicit Staged_files(Existing_files existing = Existing_files::replace)
        : existing_{existing} {}
    ~Staged_files();
    Staged_files(Staged_files&& other) noexcept;
    /// Exchanges the two.
    Staged_files& operator=(Staged_files&& other) noexcept;

    /// Writes the parts one behind the other.
    /// @throws File_failure if the file cannot be written in full
    void add(std::filesystem::path const& file, std::initializer_list<Bytes> parts) {
        add(file, parts, existing_);
    }
    /// For a file with a rule of its own.
    void add(
        std::filesystem::path const& file, std::initializer_list<Bytes> parts,
        Existing_files existing);
    void add(std::filesystem::path const& file, Bytes bytes) { add(file, {bytes}); }
    void add(std::filesystem::path const& file, std::string const& text);

    /// Writes behind what the file added last holds.
    /// @throws File_failure, also if it is not the file that was added any more
    void append(Bytes bytes);

    /// @throws File_failure; no file of this set has appeared then
    void publish();

    bool empty() const { return files_.empty(); }

private:
    struct Staged_file {
        std::filesystem::path temporary;
        std::filesystem::path final;
        Existing_files existing = Existing_files::replace;
        dev_t device = 0;
        ino_t number = 0;
    };
    void withdraw(std::size_t count) const;

    Existing_files existing_;
    std::vector<Staged_file> files_;
};

} // namespace polarize_tool
