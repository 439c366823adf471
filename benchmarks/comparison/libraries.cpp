#include "comparison/libraries.hpp"

#include "comparison/subprocess.hpp"
#include "comparison/usage_error.hpp"

#include <algorithm>

namespace {

std::shared_ptr<Loaded_library> load(std::string const& path) {
    try {
        return std::make_shared<Loaded_library>(path);
    } catch (std::exception const& error) {
        throw Usage_error(error.what());
    }
}

/// What stands between the version's underscore and the time of the build.
std::string commit_in(std::string const& identification) {
    std::size_t const version = identification.find("Version = ");
    std::size_t const start = identification.find('_', std::min(version, identification.size()));
    if (version == std::string::npos || start == std::string::npos) {
        return "unknown";
    }
    return identification.substr(start + 1, identification.find(' ', start) - start - 1);
}

} // namespace

Libraries load_libraries(
    std::string const& under_test, std::vector<std::string> const& others,
    std::vector<std::string> taken) {
    Libraries libraries{{"library", load(under_test)}};
    taken.emplace_back("library");
    for (std::string const& argument : others) {
        std::size_t const equals = argument.find('=');
        if (equals == 0 || equals == std::string::npos || equals + 1 == argument.size()) {
            throw Usage_error(
                "--library '" + argument +
                "' is not of the form NAME=PATH; write for example before=PATH.so");
        }
        std::string const name = argument.substr(0, equals);
        if (std::find(taken.begin(), taken.end(), name) != taken.end()) {
            throw Usage_error(
                "--library '" + argument + "': the name '" + name +
                "' already stands for something else in the results; choose another");
        }
        libraries.emplace_back(name, load(argument.substr(equals + 1)));
        taken.push_back(name);
    }
    return libraries;
}

std::vector<std::string> notes_on(Libraries const& libraries, std::string const& sources) {
    std::vector<std::string> notes;
    std::string commits;
    bool is_mixed = false;
    std::string const first = commit_in(libraries[0].second->identification());
    for (auto const& [name, library] : libraries) {
        std::string const commit = commit_in(library->identification());
        is_mixed |= commit != first;
        commits.append(commits.empty() ? "" : ", ").append(name).append(" of ").append(commit);
    }
    if (is_mixed) {
        notes.push_back("The builds are of different commits: " + commits + ".");
    }
    Finished_process const changes =
        run_process({"git", "-C", sources, "status", "--porcelain", "--untracked-files=no"});
    if (changes.exit_status == 0 && !changes.output.empty()) {
        notes.push_back(
            "The tree has changes that are not committed, so that a commit need not name all that "
            "was measured.");
    }
    return notes;
}
