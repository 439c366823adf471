/// @file
/// Options of the command line with values: how a value is read, and what is said of a wrong one.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace polarize_tool {

/// A number in decimal digits, with zeros in front or not: files are numbered so. Empty for
/// anything else, and for what 64 bits do not hold.
std::optional<std::uint64_t> whole_number(std::string_view text);

/// The same with a sign, a point and an exponent; infinities and NaN are none.
std::optional<double> finite_number(std::string_view text);

/// Inclusive.
struct Whole_range {
    std::uint64_t least = 0;
    std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
};
struct Range {
    double least;
    double most;
};

/// What takes the one value of an option.
/// @throws Usage_error for a value that does not fit
using Value_reader = std::function<void(std::string const& value)>;

/// An option with one value. `shown_value` stands for the value in the help and in messages.
CLI::Option* add_value(
    CLI::App& command, std::string const& names, std::string const& shown_value,
    std::string const& help, Value_reader const& read);

/// Words that are kept as they stand; of an option that may be given again, one each time.
CLI::Option* add_words(
    CLI::App& command, std::string const& names, std::vector<std::string>& words,
    std::string const& help);

/// `read` gets a number of the range.
CLI::Option* add_whole_number(
    CLI::App& command, std::string const& names, Whole_range range, std::string const& help,
    std::function<void(std::uint64_t)> const& read);

template <class Number>
CLI::Option* add_whole_number(
    CLI::App& command, std::string const& names, Number& number, Whole_range range,
    std::string const& help) {
    return add_whole_number(command, names, range, help, [&number](std::uint64_t value) {
        number = static_cast<Number>(value);
    });
}

template <class Number>
CLI::Option* add_whole_number(
    CLI::App& command, std::string const& names, std::optional<Number>& number, Whole_range range,
    std::string const& help) {
    return add_whole_number(command, names, range, help, [&number](std::uint64_t value) {
        number = static_cast<Number>(value);
    });
}

CLI::Option* add_number(
    CLI::App& command, std::string const& names, Range range, std::string const& help,
    std::function<void(double)> const& read);

/// `read` gets the place in `choices` of the word that was given, in whatever case.
CLI::Option* add_choice(
    CLI::App& command, std::string const& names, std::vector<std::string> const& choices,
    std::string const& help, std::function<void(std::size_t)> const& read);

/// The same for words that stand for something.
template <class Choice, class Target>
CLI::Option* add_choice(
    CLI::App& command, std::string const& names, Target& target,
    std::vector<std::pair<std::string, Choice>> const& choices, std::string const& help) {
    std::vector<std::string> words;
    words.reserve(choices.size());
    for (auto const& choice : choices) {
        words.push_back(choice.first);
    }
    return add_choice(command, names, words, help, [&target, choices](std::size_t place) {
        target = choices[place].second;
    });
}

std::string lower_case(std::string text);

/// "tiff, png or npy"
std::string listed(std::vector<std::string> const& words);

} // namespace polarize_tool
