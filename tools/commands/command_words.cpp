#include "commands/command_words.hpp"

#include "input/option_values.hpp"
#include "terminal/failure.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>
#include <utility>

namespace polarize_tool {
namespace {

bool is_flag(CLI::Option const& option) {
    return option.get_items_expected_max() == 0;
}

// Whether its value can be left out.
bool is_optional_value(CLI::Option const& option) {
    return !is_flag(option) && option.get_items_expected_min() == 0;
}

bool is_repeatable(CLI::Option const& option) {
    return option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
}

bool looks_like_option(std::string const& word) {
    return word.size() > 1 && word.front() == '-';
}

// Letters to change, insert or leave out.
std::size_t distance(std::string const& a, std::string const& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            std::size_t const changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

// The long name that `name` may have been meant for, empty if none is near.
std::string nearest_name(CLI::App const& command, std::string const& name) {
    std::string nearest;
    std::size_t least = 1 + name.size() / 4;
    for (CLI::Option const* const option : command.get_options()) {
        for (std::string const& long_name : option->get_lnames()) {
            std::string const candidate = "--" + long_name;
            bool const is_begun = name.size() > 4 && candidate.starts_with(name);
            std::size_t const apart = is_begun ? 0 : distance(lower_case(name), candidate);
            if (apart < least || (apart == least && nearest.empty())) {
                least = apart;
                nearest = candidate;
            }
        }
    }
    return nearest;
}

std::vector<std::string> names_of(std::vector<CLI::App const*> const& commands) {
    std::vector<std::string> names;
    for (CLI::App const* const command : commands) {
        names.push_back(command->get_name());
    }
    return names;
}

std::vector<CLI::App const*> all_commands(CLI::App const& program) {
    return program.get_subcommands([](CLI::App const*) { return true; });
}

/// The words behind a command.
class Word_check {
public:
    Word_check(CLI::App const& command, std::vector<std::string> words)
        : command_{command}, words_{std::move(words)}, plain_{command.get_name()} {}

    std::vector<std::string> operator()() {
        while (place_ < words_.size() && help_.empty()) {
            std::string const& word = words_[place_++];
            if (word == "--") {
                while (place_ < words_.size()) {
                    take_name(words_[place_++]);
                }
            } else if (word.starts_with("--")) {
                take_long(word);
            } else if (looks_like_option(word)) {
                take_short(word);
            } else {
                take_name(word);
            }
        }
        if (!help_.empty()) {
            return {command_.get_name(), help_};
        }
        check_requirements();
        check_combinations();
        return plain_;
    }

private:
    CLI::Option const& found(std::string const& name, std::string const& word) const {
        CLI::Option const* const option = command_.get_option_no_throw(name);
        if (option != nullptr) {
            return *option;
        }
        std::string const nearest = nearest_name(command_, name);
        std::error_code ignored;
        throw Usage_error(
            word + " is no option of " + command_.get_name() + "; " +
            (std::filesystem::exists(word, ignored) ? "for the file of that name write ./" + word
             : nearest.empty() ? "veldrane-polarize " + command_.get_name() + " --help lists them"
                               : "did you mean " + nearest + "?"));
    }

    void take_long(std::string const& word) {
        std::size_t const equals = word.find('=');
        std::string const name = word.substr(0, equals);
        CLI::Option const& option = found(name, name);
        if (is_flag(option)) {
            if (equals != std::string::npos) {
                throw Usage_error(word + " gives a flag a value; write " + name + " alone");
            }
            take_flag(option, name);
        } else if (is_optional_value(option) && equals == std::string::npos && !has_value_next()) {
            note_once(option);
            plain_.push_back(name);
        } else {
            take_value(
                option, equals != std::string::npos ? word.substr(equals + 1) : next_value(option));
        }
    }

    void take_short(std::string const& word) {
        for (std::size_t index = 1; index < word.size(); ++index) {
            std::string const name = {'-', word[index]};
            CLI::Option const& option = found(name, word);
            if (is_flag(option)) {
                take_flag(option, name);
                continue;
            }
            std::string const rest = word.substr(index + 1);
            if (rest.starts_with('=')) {
                throw Usage_error(
                    word + " is no option; write " + name + " " + rest.substr(1) +
                    ", the value behind a blank");
            }
            take_value(option, rest.empty() ? next_value(option) : rest);
            return;
        }
    }

    bool has_value_next() const {
        return place_ < words_.size() && !words_[place_].starts_with("--") &&
               !(words_[place_].size() == 2 && looks_like_option(words_[place_]) &&
                 command_.get_option_no_throw(words_[place_]) != nullptr);
    }

    std::string next_value(CLI::Option const& option) {
        if (!has_value_next()) {
            throw Usage_error(option.get_name() + " has no value; give " + usage_of(option));
        }
        return words_[place_++];
    }

    static std::string usage_of(CLI::Option const& option) {
        return option.get_name() + " " + option.get_type_name();
    }

    void take_value(CLI::Option const& option, std::string const& value) {
        std::string const name = option.get_name();
        if (value.empty()) {
            throw Usage_error(
                name + " is empty; give " + usage_of(option) +
                (option.get_required() ? "" : " or leave it out"));
        }
        note_once(option);
        plain_.insert(plain_.end(), {name, value});
    }

    void note_once(CLI::Option const& option) {
        if (!given_.insert(&option).second && !is_repeatable(option)) {
            throw Usage_error(option.get_name() + " is given twice; give it once");
        }
    }

    void take_flag(CLI::Option const& option, std::string const& name) {
        if (&option == command_.get_help_ptr() || &option == command_.get_help_all_ptr()) {
            help_ = option.get_name();
            return;
        }
        given_.insert(&option);
        std::string const meaning = option.get_flag_value(name.substr(name.rfind('-', 1) + 1), "");
        auto const [first, is_new] = flags_.emplace(&option, std::pair(name, meaning));
        if (first->second.second != meaning) {
            throw Usage_error(name + " contradicts " + first->second.first + "; give one of them");
        }
        if (is_new) {
            plain_.push_back(name);
        }
    }

    void take_name(std::string const& word) {
        auto const positionals = command_.get_options(
            [](CLI::Option const* option) { return option->get_positional(); });
        if (positionals.empty()) {
            throw Usage_error(
                "'" + word + "' is no option, and " + command_.get_name() +
                " takes nothing else; leave it out");
        }
        CLI::Option const& option = *positionals.front();
        if (word.empty()) {
            throw Usage_error(
                "a " + option.get_type_name() +
                " is an empty name; give the name of a file or folder");
        }
        std::error_code ignored;
        if (finite_number(word) && !std::filesystem::exists(word, ignored)) {
            throw Usage_error(
                word + " is neither a file nor the value of an option; leave it out, or write ./" +
                word + " for a file");
        }
        given_.insert(&option);
        // Brackets around a word are a list to the parser, and a few words have other meanings.
        bool const is_special =
            looks_like_option(word) || word == "++" || (word.front() == '[' && word.back() == ']');
        plain_.push_back(is_special ? "./" + word : word);
    }

    void check_requirements() const {
        for (CLI::Option const* const option : command_.get_options()) {
            if (option->get_required() && !given_.contains(option)) {
                std::string const name = option->get_name();
                throw Usage_error(
                    option->get_positional()
                        ? name + " are required; give at least one " + option->get_type_name()
                        : name + " is required; give " + usage_of(*option));
            }
        }
    }

    void check_combinations() const {
        for (CLI::Option const* const option : command_.get_options()) {
            if (!given_.contains(option)) {
                continue;
            }
            for (CLI::Option const* const other : option->get_needs()) {
                if (!given_.contains(other)) {
                    throw Usage_error(
                        option->get_name() + " is nothing without " + other->get_name() +
                        "; give both or neither");
                }
            }
            for (CLI::Option const* const other : option->get_excludes()) {
                if (given_.contains(other)) {
                    throw Usage_error(
                        option->get_name() + " and " + other->get_name() +
                        " exclude each other; give one of them");
                }
            }
        }
    }

    CLI::App const& command_;
    std::vector<std::string> words_;
    std::size_t place_ = 0;
    std::vector<std::string> plain_;
    std::set<CLI::Option const*> given_;
    // The name and the meaning with which each flag was first given.
    std::map<CLI::Option const*, std::pair<std::string, std::string>> flags_;
    std::string help_;
};

[[noreturn]] void refuse_option_before_command(CLI::App const& program, std::string const& word) {
    std::string const name = word.substr(0, word.find('='));
    std::vector<std::string> const owners =
        names_of(program.get_subcommands([&name](CLI::App const* command) {
            return command->get_option_no_throw(name) != nullptr;
        }));
    std::string const nearest = nearest_name(program, name);
    throw Usage_error(
        !owners.empty() ? name + " is an option of " + listed(owners) +
                              "; write it behind the command, as in veldrane-polarize " +
                              owners.front() + " " + name
        : nearest.empty() ? word + " is no option of the program; begin with a command: " +
                                listed(names_of(all_commands(program)))
                          : word + " is no option of the program; did you mean " + nearest + "?");
}

} // namespace

std::vector<std::string> checked_words(
    CLI::App const& program, std::vector<std::string> const& words) {
    auto const commands = all_commands(program);
    auto const command_named = [&commands](std::string const& word) {
        auto const found =
            std::find_if(commands.begin(), commands.end(), [&word](CLI::App const* command) {
                return command->get_name() == word;
            });
        return found == commands.end() ? nullptr : *found;
    };
    if (words.empty()) {
        throw Usage_error("a subcommand is required: " + listed(names_of(commands)));
    }
    if (words.front().empty()) {
        throw Usage_error("the subcommand is empty; give " + listed(names_of(commands)));
    }
    if (looks_like_option(words.front())) {
        CLI::Option const* const option = program.get_option_no_throw(words.front());
        if (option == nullptr) {
            refuse_option_before_command(program, words.front());
        }
        bool const is_about_command = words.size() > 1 && command_named(words[1]) != nullptr;
        return is_about_command ? std::vector{option->get_name(), words[1]}
                                : std::vector{option->get_name()};
    }
    CLI::App const* const command = command_named(words.front());
    if (command == nullptr) {
        throw Usage_error(
            "unknown subcommand '" + words.front() + "'; there are: " + listed(names_of(commands)));
    }
    return Word_check(*command, {words.begin() + 1, words.end()})();
}

} // namespace polarize_tool
