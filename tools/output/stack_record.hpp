/// @file
/// How far an unfinished stack has come.
#pragma once

#include "output/bulk_writing.hpp"

#include <cstddef>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <vector>

namespace polarize_tool {

/// A text file: what the stack is to hold, as its JSON file will say it, and behind that a line for
/// each frame that is done, with its number. Of a run that was killed the last line may be torn.
class Stack_record {
public:
    /// Makes the file, whole or not at all, in place of one that is there.
    /// @throws File_failure, Output_exhausted
    static void create(
        std::filesystem::path const& file, nlohmann::ordered_json const& description,
        std::vector<bool> const& done);

    /// @throws File_failure if another run is at work on the stack
    static void require_idle(std::filesystem::path const& file);

    /// Opens one that is there. No other run has it open meanwhile.
    /// @throws File_failure also if another run has, or it is none
    explicit Stack_record(std::filesystem::path const& file);

    nlohmann::ordered_json const& description() const { return description_; }
    /// Which of the first `count` frames are done.
    std::vector<bool> done(std::size_t count) const;

    /// One thread at a time. What fails leaves no trace.
    /// @throws File_failure, Output_exhausted
    void add(std::size_t number);

private:
    Bulk_file file_;
    std::uint64_t size_ = 0;
    nlohmann::ordered_json description_;
    std::vector<std::size_t> numbers_; // that were there when it was opened
};

/// Of a record or the JSON file of a stack.
/// @throws File_failure if the text does not begin with one
nlohmann::ordered_json parse_description(
    std::filesystem::path const& file, std::string const& text);

} // namespace polarize_tool
