/// @file
/// An open file that takes planes in large pieces.
#pragma once

#include "veldrane_mrv/polarization/regular_files.hpp"

#include <cstdint>
#include <filesystem>
#include <span>

namespace polarize_tool {

/// Throws what a file that cannot be written fails with.
/// @param error the system's number
/// @throws Output_exhausted if no other file would fare better there, else File_failure
[[noreturn]] void fail_to_write(std::filesystem::path const& file, int error);

/// A file under way. Several threads may write into ranges of their own at once.
class Bulk_file {
public:
    using Bytes = std::span<std::uint8_t const>;
    using Descriptor = veldrane_mrv::polarization::regular_files::Descriptor;

    /// @param descriptor open for writing, without O_APPEND
    /// @param name the file's in messages: the final one
    Bulk_file(Descriptor descriptor, std::filesystem::path name);

    /// Writes the parts one behind the other from `offset` on, in bytes from the file's start.
    /// Whatever lies between that and the file's end reads as zeros.
    /// @throws File_failure, Output_exhausted
    void write(std::uint64_t offset, std::span<Bytes const> parts);

    /// File systems on a network report a full disk here at the latest.
    /// @throws File_failure, Output_exhausted
    void close();

    Descriptor const& descriptor() const { return descriptor_; }

private:
    Descriptor descriptor_;
    std::filesystem::path name_;
};

} // namespace polarize_tool
