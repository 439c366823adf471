/// @file
/// How far an unfinished stack has come.
#pragma once

#include "output/bulk_writing.hpp"

#include <cstddef>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace polarize_tool {

/// A text file: what the stack is to hold, as its JSON file will say it, and behind that a line for
/// each frame that is done, with its number. Of a run that was killed the last line may be torn.
class Stack_record {
public:
    /// Opens the file, or makes it, without content. No other run has it open as long as this is
    /// there, so that all files of the stack are this run's.
    /// @throws File_failure also if another run has
    explicit Stack_record(std::filesystem::path const& file);

    /// Whether it came as far as a description.
    bool has_begun() const { return !text_.empty(); }
    /// As it was found.
    /// @throws File_failure if it is none
    nlohmann::ordered_json description() const;
    /// Which of `count` frames were done when it was found. Before `add`.
    /// @throws File_failure if a line is no number of one
    std::vector<bool> done(std::size_t count);

    /// Takes back what it holds.
    void clear();

    /// In place of what it holds, whole or not at all.
    /// @throws File_failure, Output_exhausted
    void begin(nlohmann::ordered_json const& description, std::vector<bool> const& done);

    /// One thread at a time. What fails leaves no trace.
    /// @throws File_failure, Output_exhausted
    void add(std::size_t number);

    /// While no other run can be at work.
    void remove() const;

private:
    void append(std::string const& text);

    std::filesystem::path name_;
    Bulk_file file_;
    std::uint64_t size_ = 0;
    std::string text_; // that was there
};

/// Of a record or the JSON file of a stack.
/// @throws File_failure if the text does not begin with one
nlohmann::ordered_json parse_description(
    std::filesystem::path const& file, std::string const& text);

} // namespace polarize_tool
