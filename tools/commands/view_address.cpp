#include "commands/view_address.hpp"

#include "input/option_values.hpp"
#include "terminal/failure.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <optional>

namespace polarize_tool {
namespace {

constexpr char const* port_help =
    "Where the page is served; 0 is a port that is free. Give one for a tunnel or a bookmark";

constexpr char const* listen_help =
    "Serve at this address of the machine, in numbers, and so to other machines. What goes there "
    "and back is not encrypted: put TLS in front, or use a tunnel instead, which needs no --listen";

constexpr char const* host_help =
    "Answer a browser that knows the page under this name too, as it stands in its address between "
    "// and the next /: the name of a reverse proxy, or localhost:9000 for a tunnel from another "
    "port. May be given again";

// Both families in one, as IPv6 maps IPv4 into itself.
std::optional<std::array<unsigned char, 16>> bytes_of(std::string const& listen) {
    std::array<unsigned char, 16> bytes = {};
    if (inet_pton(AF_INET6, listen.c_str(), bytes.data()) == 1) {
        return bytes;
    }
    bytes[10] = bytes[11] = 0xff;
    if (inet_pton(AF_INET, listen.c_str(), bytes.data() + 12) == 1) {
        return bytes;
    }
    return std::nullopt;
}

bool is_mapped(std::array<unsigned char, 16> const& bytes) {
    constexpr std::array<unsigned char, 12> prefix = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    return std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

bool is_any(std::string const& listen) {
    auto const bytes = bytes_of(listen);
    return bytes && std::all_of(
                        bytes->begin() + (is_mapped(*bytes) ? 12 : 0), bytes->end(),
                        [](unsigned char byte) { return byte == 0; });
}

bool can_be_host(std::string const& host) {
    constexpr std::size_t longest = 261; // a name of 255 bytes and a port
    return host.size() <= longest && std::ranges::all_of(host, [](char letter) {
               bool const is_alphanumeric = (letter >= '0' && letter <= '9') ||
                                            (letter >= 'a' && letter <= 'z') ||
                                            (letter >= 'A' && letter <= 'Z');
               return is_alphanumeric || std::string(".-_:[]").find(letter) != std::string::npos;
           });
}

} // namespace

void add_address_options(CLI::App& command, View_address& address) {
    std::string const group = "Page";
    add_whole_number(command, "--port", address.port, {0, 65535}, port_help)
        ->default_str("0")
        ->group(group);
    command.add_option("--listen", address.listen, listen_help)
        ->type_name("ADDRESS")
        ->capture_default_str()
        ->group(group);
    add_words(command, "--host", address.hosts, host_help)->type_name("NAME[:PORT]")->group(group);
}

void check_address(View_address const& address) {
    if (!bytes_of(address.listen)) {
        throw Usage_error(
            "--listen is " + address.listen +
            "; give an address of this machine in numbers, such as 192.168.1.20 or ::1");
    }
    for (std::string const& host : address.hosts) {
        if (!can_be_host(host)) {
            throw Usage_error(
                "--host is " + host +
                "; give what stands between // and the next / in the browser's address, such as "
                "lab.example or localhost:9000");
        }
    }
    if (is_any(address.listen) && address.hosts.empty()) {
        throw Usage_error(
            "--listen is " + address.listen +
            ", which stands for every address of this machine, but no browser can name it; add "
            "--host NAME:PORT, or give one address");
    }
}

bool is_on_this_machine(View_address const& address) {
    auto const bytes = bytes_of(address.listen);
    if (!bytes) {
        return false;
    }
    std::array<unsigned char, 16> loopback = {};
    loopback.back() = 1;
    return *bytes == loopback || (is_mapped(*bytes) && (*bytes)[12] == 127);
}

std::string page_address(
    View_address const& address, std::string const& origin, std::string const& token) {
    return (is_any(address.listen) ? "http://" + address.hosts.front() : origin) +
           "/#token=" + token;
}

} // namespace polarize_tool
