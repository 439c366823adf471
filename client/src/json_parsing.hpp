/// @file
/// A JSON text of a user's as a tree, or what is wrong with it.
#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

namespace veldrane_mrv::polarization {

/// Keeps the keys in the order in which people want to read them.
using Json = nlohmann::ordered_json;

inline constexpr char const* damaged = "restore the file, or calibrate again";

/// `name` stands for the file in messages.
/// @throws File_error with the line if the text is no JSON; with the key's path if it is JSON that
///         no calibration is: too deep, too many keys, a key twice in one object, a number too
///         large
Json parse_json(std::string const& text, std::filesystem::path const& name);

} // namespace veldrane_mrv::polarization
