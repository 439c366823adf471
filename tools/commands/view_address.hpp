/// @file
/// Where `view` serves its page, and by which names browsers may ask for it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace polarize_tool {

struct View_address {
    std::string listen = "127.0.0.1"; ///< numeric, IPv4 or IPv6
    std::uint16_t port = 0;           ///< 0 is one that is free
    std::vector<std::string> hosts;   ///< further values of Host, exact
};

/// --port, --listen and --host.
void add_address_options(CLI::App& command, View_address& address);

/// Makes each name one that a browser sends.
/// @throws Usage_error for an address or a name that cannot be one, and for all addresses of the
///         machine without a name that leads to the port there
void check_address(View_address& address);

/// Names without a port that are to have the one that is served at, as no browser could name all
/// addresses of the machine.
std::vector<std::string> names_without_port(View_address const& address);

/// Whether no other machine reaches it.
bool is_on_this_machine(View_address const& address);

/// What a browser is given, as long as the server of `origin` runs.
/// @param origin such as "http://127.0.0.1:8080"
std::string page_address(
    View_address const& address, std::string const& origin, std::string const& token);

} // namespace polarize_tool
