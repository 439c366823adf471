/// @file
/// The view's server: HTTP for a browser on this machine, for who has the token and for nobody
/// else.
#pragma once

#include "view/view_answer.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace polarize_tool {

/// What a connection may take. Nobody who keeps to HTTP comes near.
struct View_limits {
    std::size_t connections = 32; ///< then the one that was idle longest makes room for a new one
    std::chrono::milliseconds header_time{5000};          ///< for a header, from its first byte
    std::chrono::milliseconds idle_time{60'000};          ///< between two requests
    std::chrono::milliseconds write_time{15'000};         ///< for any part of an answer to go out
    std::chrono::milliseconds guess_pause{200};           ///< before the answer to a wrong token
    std::size_t bytes_going_out = std::size_t{512} << 20; ///< of all; then no thread makes more
    int requests_per_second = 400;                        ///< of one connection; further ones wait
    int burst = 100;                                      ///< of requests that come without waiting
};

struct View_server_options {
    std::string address = "127.0.0.1"; ///< numeric, IPv4 or IPv6
    std::uint16_t port = 0;            ///< 0 is one that is free
    std::vector<std::string> hosts;    ///< further values of Host, such as those of a proxy
    std::vector<std::string> names{};  ///< further ones to which the port that is had is added
    std::size_t threads = 8;           ///< handlers that run at a time
    View_limits limits{};
};

/// Serves files without the token and calls handlers with it. GET only; every answer forbids the
/// browser all that the page does not need, and nothing is answered to another page or another name
/// of the machine.
class View_server {
public:
    /// Listens; requests that come now wait for `run`.
    /// @throws Usage_error if the address or the port cannot be had
    /// @throws std::system_error if the system gives no thread, socket or random numbers
    View_server(View_server_options options, Page_files files, Handlers handlers);
    ~View_server();
    View_server(View_server const&) = delete;
    View_server& operator=(View_server const&) = delete;

    std::uint16_t port() const;
    /// What a handler's request carries in Polarization-Token.
    std::string const& token() const;
    /// "http://127.0.0.1:8080", without the token.
    std::string origin() const;

    /// Serves until `stop_requested`, which is asked twenty times a second, says so; then all
    /// connections are closed and the handlers waited for. Once in the server's life.
    void run(std::function<bool()> const& stop_requested);

private:
    class Listening;
    std::unique_ptr<Listening> listening_;
};

} // namespace polarize_tool
