/// @file
/// Calibrations on disk, as JSON that people can read.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/calibration_json.hpp"
#include "veldrane_mrv/polarization/existing_files.hpp"

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace veldrane_mrv::polarization {

/// Something is wrong with a file. `what` is one line for a user: "FILE, KEY: PROBLEM; REMEDY".
class File_error : public std::runtime_error {
public:
    /// @param line of what is no JSON, counted from 1; otherwise 0
    /// @param key  path of the key to blame, such as "analysers/2/throughput", or empty
    File_error(
        std::filesystem::path const& file, std::size_t line, std::string const& key,
        std::string const& problem, std::string const& remedy);

    std::filesystem::path const& file() const { return file_; }
    std::size_t line() const { return line_; }
    std::string const& key() const { return key_; }
    std::string const& remedy() const { return remedy_; }

private:
    std::filesystem::path file_;
    std::size_t line_;
    std::string key_;
    std::string remedy_;
};

/// Writes beside `file` and renames, so that there is a whole file or none. What killed programs
/// left there an hour ago or earlier is removed.
/// @throws Argument_error if a number is infinite or NaN, a text is not UTF-8, or the parts
///        contradict each other, so that no file could be read again
/// @throws File_error if there is a file that is to be kept, or anything but a regular file, or if
///        the file cannot be written; an old file is unchanged then
void save(
    Calibration const& calibration, std::filesystem::path const& file,
    Existing_files existing = Existing_files::keep);

/// @throws File_error if the file cannot be read, is no regular one, is no calibration, is damaged,
///        has weights or a mosaic that are not those of its analysers, or comes from a newer schema
Calibration load_calibration(std::filesystem::path const& file);

} // namespace veldrane_mrv::polarization
