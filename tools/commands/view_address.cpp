#include "commands/view_address.hpp"

#include "input/option_values.hpp"
#include "terminal/failure.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

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

bool has_only(std::string_view text, std::string_view letters) {
    return text.find_first_not_of(letters) == text.npos;
}

// A name, and a port or "", from NAME:PORT; [::1] has no port.
std::pair<std::string, std::string> parts_of(std::string const& host) {
    std::size_t const colon = host.ends_with(']') ? host.npos : host.rfind(':');
    return colon == host.npos ? std::pair(host, std::string())
                              : std::pair(host.substr(0, colon), host.substr(colon + 1));
}

// As browsers send it: they write numbers in one way only, and letters small.
bool can_be_name(std::string const& name) {
    if (name.starts_with('[') && name.ends_with(']')) {
        std::array<unsigned char, 16> bytes = {};
        std::string const inner = name.substr(1, name.size() - 2);
        return has_only(inner, "0123456789abcdef:") &&
               inet_pton(AF_INET6, inner.c_str(), bytes.data()) == 1;
    }
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789.-_";
    bool const is_number = has_only(name, "0123456789.");
    return !name.empty() && name.size() <= 255 && has_only(name, letters) &&
           (!is_number || bytes_of(name));
}

bool can_be_host(std::string const& host) {
    auto const [name, port] = parts_of(host);
    bool const has_port = name.size() < host.size();
    bool const is_port = !port.empty() && port.size() <= 5 && port.front() != '0' &&
                         has_only(port, "0123456789") && std::stoul(port) <= 65535;
    return can_be_name(name) && (!has_port || is_port);
}

// Addresses that several machines have, or that mean another one on each network.
bool is_of_many(std::array<unsigned char, 16> const& bytes) {
    if (is_mapped(bytes)) {
        return bytes[12] >= 224;
    }
    return bytes[0] == 0xff || (bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80);
}

void check_listen(std::string const& listen) {
    auto const bytes = bytes_of(listen);
    if (!bytes) {
        throw Usage_error(
            "--listen is " + listen +
            "; give an address of this machine in numbers, such as 192.168.1.20 or ::1");
    }
    if (is_mapped(*bytes) && listen.find(':') != listen.npos) {
        std::array<char, INET_ADDRSTRLEN> text = {};
        inet_ntop(AF_INET, bytes->data() + 12, text.data(), text.size());
        throw Usage_error(
            "--listen is " + listen + ", as which no browser names it; give " + text.data());
    }
    if (is_of_many(*bytes)) {
        throw Usage_error(
            "--listen is " + listen +
            ", an address that no browser can name this machine by; give another one, or use a "
            "tunnel");
    }
}

// A browser gets to all addresses of the machine by the first name.
void check_name_of_any(View_address const& address) {
    if (address.hosts.empty()) {
        throw Usage_error(
            "--listen is " + address.listen +
            ", which stands for every address of this machine, but no browser can name it; add "
            "--host NAME, or give one address");
    }
    auto const [name, port] = parts_of(address.hosts.front());
    if (!port.empty() && port != std::to_string(address.port)) {
        throw Usage_error(
            "--host is " + address.hosts.front() + ", but with --listen " + address.listen +
            " its port has to be --port, which is " + std::to_string(address.port) +
            "; give them the same one, or --host " + name);
    }
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

void check_address(View_address& address) {
    check_listen(address.listen);
    for (std::string& host : address.hosts) {
        std::ranges::transform(host, host.begin(), [](char letter) {
            return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter | 0x20) : letter;
        });
        if (!can_be_host(host)) {
            throw Usage_error(
                "--host is " + host +
                "; give what stands between // and the next / in the browser's address, such as "
                "lab.example or localhost:9000");
        }
    }
    if (is_any(address.listen)) {
        check_name_of_any(address);
    }
}

std::vector<std::string> names_without_port(View_address const& address) {
    std::vector<std::string> names;
    if (is_any(address.listen)) {
        std::ranges::copy_if(address.hosts, std::back_inserter(names), [](auto const& host) {
            return parts_of(host).second.empty();
        });
    }
    return names;
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
    if (!is_any(address.listen)) {
        return origin + "/#token=" + token;
    }
    std::string const port = origin.substr(origin.rfind(':'));
    return "http://" + parts_of(address.hosts.front()).first + port + "/#token=" + token;
}

} // namespace polarize_tool
