/// @file
/// One browser's connection to the view: request, answer, request. Asynchronous, on the server's
/// thread but for the calls.
#pragma once

#include "view/view_http.hpp"
#include "view/view_server.hpp"

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/serializer.hpp>
#include <chrono>
#include <memory>
#include <optional>

namespace polarize_tool {

/// What all connections of a server share. Outlives them.
struct Connection_surroundings {
    Request_rules const& rules;
    View_limits const& limits;
    boost::asio::io_context& workers;
    std::shared_ptr<std::atomic<std::size_t>> bytes_going_out; ///< of the answers of all
};

class View_connection : public std::enable_shared_from_this<View_connection> {
public:
    using Clock = std::chrono::steady_clock;

    View_connection(
        boost::asio::ip::tcp::socket socket, Connection_surroundings const& surroundings);
    ~View_connection();
    View_connection(View_connection const&) = delete;
    View_connection& operator=(View_connection const&) = delete;

    /// From now on it keeps itself alive until it ends.
    void start();
    void close();

    /// A request came with the token.
    bool is_trusted() const { return is_trusted_; }
    /// It is being answered, not waited for.
    bool is_busy() const { return is_busy_; }
    /// When it began or was answered last.
    Clock::time_point idle_since() const { return idle_since_; }

private:
    using Error = boost::beast::error_code;

    void wait_for_request();
    void read_header();
    void take(Error const& error);
    void answer_in_time(Decision decision);
    void answer(Decision decision);
    void call(Call call);
    Answer made(Call const& call);
    void write(Answer answer);
    void write_rest();
    void next();
    void count_out(std::size_t bytes);

    Connection_surroundings const& surroundings_;
    std::shared_ptr<std::atomic<std::size_t>> bytes_of_all_; // it may outlive its surroundings
    std::size_t own_bytes_ = 0;
    boost::beast::tcp_stream stream_;
    boost::asio::steady_timer pause_;
    boost::beast::flat_buffer buffer_{2 * longest_header};
    std::optional<Request_parser> parser_;
    std::optional<Response> response_;
    std::optional<boost::beast::http::response_serializer<boost::beast::http::string_body>>
        serializer_;
    bool keeps_alive_ = false;
    bool is_trusted_ = false;
    bool is_busy_ = false;
    bool is_first_ = true;
    Clock::time_point idle_since_ = Clock::now();
    Clock::time_point next_request_ = Clock::now(); // by the rate that is allowed
};

} // namespace polarize_tool
