/// @file
/// Calibrations on disk: JSON that people can read, and beside it an array file for the maps, if
/// there are any.
///
/// The array file is NumPy's format 1.0: little-endian float32 of shape (maps, height, width) in C
/// order, the maps in the order of `maps_of`. It is named SENSOR.maps-HASH.npy beside SENSOR.json,
/// with the hash (XXH3 of 64 bits) of all its bytes. Since the numbers are in the name, a new pair
/// never touches the file of the old one: renaming the text is the one step from the old
/// calibration to the new one, wherever a program is killed.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/calibration_json.hpp"
#include "veldrane_mrv/polarization/existing_files.hpp"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

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

/// What `save` writes, for those who write files their own way: the array file first.
struct Calibration_files {
    std::string json;
    /// Empty without maps, as are the others.
    std::filesystem::path array_file;
    std::string array_header;
    std::shared_ptr<Calibration_maps const> maps;
    Calibration_model model;

    /// The array file's bytes, piece by piece, in memory of this object and of the maps.
    std::vector<std::span<std::byte const>> array_parts() const;
};

/// @throws Argument_error as `save`
Calibration_files files_of(Calibration const& calibration, std::filesystem::path const& file);

/// What tells the maps from others: their hash as the text has it, such as
/// "xxh3-64:0123456789abcdef"; empty without maps.
std::string hash_of_maps(Calibration const& calibration);

/// The array file that the calibration at `file` came with, if it still is what `save` called it:
/// once another calibration has taken the place, nobody needs it.
std::optional<std::filesystem::path> array_file_of(std::filesystem::path const& file);

/// Writes beside `file` and renames, so that there is a whole file or none; of a calibration with
/// maps both or none. With the old calibration its array file goes. What killed programs left there
/// an hour ago or earlier is removed.
/// @throws Argument_error if a number is infinite or NaN, a text is not UTF-8, or the parts
///         contradict each other, so that no file could be read again
/// @throws File_error if there is a file that is to be kept, or anything but a regular file, or if
///         the file cannot be written; an old calibration is unchanged then
void save(
    Calibration const& calibration, std::filesystem::path const& file,
    Existing_files existing = Existing_files::keep);

/// @throws File_error if a file cannot be read, is no regular one, is no calibration, is damaged,
///         has weights or a mosaic that are not those of its analysers, or comes from a newer
///         schema; if the array file is missing, has other bytes than those that the text names by
///         their hash, or numbers out of the ranges of `Calibration_maps`
Calibration load_calibration(std::filesystem::path const& file);

} // namespace veldrane_mrv::polarization
