/// @file
/// Files that appear whole or not at all.
#ifndef VELDRANE_TOOLS_STAGED_FILES_HPP
#define VELDRANE_TOOLS_STAGED_FILES_HPP

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace polarize_tool {

/// Whether a result may take the place of a file that is there.
enum class Existing_files { replace, keep };

/// Makes `folder` and what is missing above it.
/// @throws File_failure
void make_folder(std::filesystem::path const& folder);

/// @throws File_failure if `file` exists and is to be kept, or is a folder
void refuse_existing(std::filesystem::path const& file, Existing_files existing);

/// Files that are to appear together. Each is first written beside its place under another name;
/// publish() renames them all. Whatever was not published is removed.
class Staged_files {
public:
    using Bytes = std::span<std::uint8_t const>;

    explicit Staged_files(Existing_files existing = Existing_files::replace)
        : existing_(existing) {}
    ~Staged_files();
    Staged_files(Staged_files&& other) noexcept;
    /// Exchanges the two.
    Staged_files& operator=(Staged_files&& other) noexcept;

    /// Writes the parts one behind the other.
    /// @throws File_failure if the file cannot be written in full
    void add(std::filesystem::path const& file, std::initializer_list<Bytes> parts);
    void add(std::filesystem::path const& file, Bytes bytes) { add(file, {bytes}); }
    void add(std::filesystem::path const& file, std::string const& text);

    /// Writes behind what the file added last holds.
    /// @throws File_failure
    void append(Bytes bytes);

    /// @throws File_failure; no file of this set has appeared then
    void publish();

    bool empty() const { return files_.empty(); }

private:
    struct Staged_file {
        std::filesystem::path temporary;
        std::filesystem::path final;
    };
    void withdraw(std::size_t count) const;

    Existing_files existing_;
    std::vector<Staged_file> files_;
};

} // namespace polarize_tool

#endif
