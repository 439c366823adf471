/// @file
/// Runs a scenario in a process of its own: what happens at exit can be read only from outside, and
/// the loader takes its search path from the environment at the start.

#pragma once

#include <iosfwd>
#include <string>

namespace lifecycle {

/// How the client comes by the module.
enum class Client { loads_it, is_linked_with_it };

void PrintTo(Client client, std::ostream* stream);

struct Scenario {
    /// Space-separated steps of lifecycle_scenario after "load", which comes first in every one.
    std::string steps;
    /// Which logging library is on the loader's search path, by the name of its build.
    std::string logging_library = "complete";
    Client client = Client::loads_it;
    /// Steps that come before "load".
    std::string first_steps = "";
};

/// The lines that the scenario wrote. Fails the running test unless the process ended with exit
/// code 0. Lines that begin with '#' carry figures of the one run; they are printed, not returned.
std::string log_of(Scenario const& scenario);

} // namespace lifecycle
