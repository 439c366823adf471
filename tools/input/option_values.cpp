#include "input/option_values.hpp"

#include "terminal/failure.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace polarize_tool {
namespace {

// from_chars knows neither a base in the text nor the locale, and it tells numbers that do not fit.
template <class Number>
std::optional<Number> number_in(std::string_view text) {
    Number number{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const is_whole = error == std::errc() && end == text.data() + text.size();
    return is_whole ? std::optional(number) : std::nullopt;
}

std::string shown(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", number);
    return text;
}

// The longest of its names, by which messages call it.
std::string long_name(std::string const& names) {
    return names.substr(names.rfind(',') + 1);
}

} // namespace

std::optional<std::uint64_t> whole_number(std::string_view text) {
    return number_in<std::uint64_t>(text);
}

std::optional<double> finite_number(std::string_view text) {
    bool const has_plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
    std::optional<double> const number = number_in<double>(text.substr(has_plus ? 1 : 0));
    return number && std::isfinite(*number) ? number : std::nullopt;
}

CLI::Option* add_value(
    CLI::App& command, std::string const& names, std::string const& shown_value,
    std::string const& help, Value_reader const& read) {
    return command
        .add_option(
            names,
            [read](std::vector<std::string> const& values) {
                read(values.front());
                return true;
            },
            help)
        ->type_name(shown_value);
}

CLI::Option* add_words(
    CLI::App& command, std::string const& names, std::vector<std::string>& words,
    std::string const& help) {
    return command
        .add_option(
            names,
            [&words](std::vector<std::string> const& values) {
                words = values;
                return true;
            },
            help)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::Option* add_whole_number(
    CLI::App& command, std::string const& names, Whole_range range, std::string const& help,
    std::function<void(std::uint64_t)> const& read) {
    constexpr std::uint64_t largest_shown = std::uint64_t{1} << 24; // no user is near the others
    std::string const least = std::to_string(range.least);
    std::string const most = std::to_string(range.most);
    return add_value(
        command, names, range.most > largest_shown ? "N" : least + ".." + most, help,
        [=, name = long_name(names)](std::string const& value) {
            std::optional<std::uint64_t> const number = whole_number(value);
            if (!number || *number < range.least || *number > range.most) {
                throw Usage_error(
                    name + " is " + value + "; give a whole number from " + least + " to " + most +
                    " in decimal digits");
            }
            read(*number);
        });
}

CLI::Option* add_number(
    CLI::App& command, std::string const& names, Range range, std::string const& help,
    std::function<void(double)> const& read) {
    std::string const least = shown(range.least);
    std::string const most = shown(range.most);
    return add_value(
        command, names, least + ".." + most, help,
        [=, name = long_name(names)](std::string const& value) {
            std::optional<double> const number = finite_number(value);
            if (!number || *number < range.least || *number > range.most) {
                bool const is_finite = std::isfinite(number_in<double>(value).value_or(0.0));
                throw Usage_error(
                    name + " is " + (is_finite ? value : "no finite number") +
                    "; give a decimal number from " + least + " to " + most);
            }
            read(*number);
        });
}

CLI::Option* add_choice(
    CLI::App& command, std::string const& names, std::vector<std::string> const& choices,
    std::string const& help, std::function<void(std::size_t)> const& read) {
    std::string shown_choices;
    for (std::string const& choice : choices) {
        shown_choices += (shown_choices.empty() ? "" : "|") + choice;
    }
    return add_value(
        command, names, shown_choices, help,
        [choices, read, name = long_name(names)](std::string const& value) {
            auto const found =
                std::find_if(choices.begin(), choices.end(), [&value](std::string const& choice) {
                    return lower_case(choice) == lower_case(value);
                });
            if (found == choices.end()) {
                throw Usage_error(name + " is " + value + "; give " + listed(choices));
            }
            read(static_cast<std::size_t>(found - choices.begin()));
        });
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char letter) {
        return static_cast<char>(std::tolower(letter));
    });
    return text;
}

std::string listed(std::vector<std::string> const& words) {
    std::string text;
    for (std::size_t index = 0; index < words.size(); ++index) {
        bool const is_last = index + 1 == words.size();
        text += index == 0 ? "" : is_last ? " or " : ", ";
        text += words[index];
    }
    return text;
}

} // namespace polarize_tool
