#include "view/view_server.hpp"

#include "terminal/failure.hpp"
#include "view/view_connection.hpp"
#include "view/view_request.hpp"
#include "view/view_token.hpp"
#include "view/view_workers.hpp"

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace polarize_tool {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;

tcp::endpoint endpoint_of(View_server_options const& options) {
    Error error;
    auto const address = asio::ip::make_address(options.address, error);
    if (error) {
        throw Usage_error(
            "--listen is " + options.address +
            "; give an address of this machine in numbers, such as 127.0.0.1 or ::1");
    }
    return {address, options.port};
}

[[noreturn]] void refuse_to_listen(Error const& error, View_server_options const& options) {
    std::string const port = "--port is " + std::to_string(options.port);
    if (error == asio::error::address_in_use) {
        throw Usage_error(
            port + ", which another program uses; give another one, or leave it out for one that "
                   "is free");
    }
    if (error == asio::error::access_denied) {
        throw Usage_error(
            port + ", which the system does not let you use; give one from 1024 on, or leave it "
                   "out for one that is free");
    }
    if (error == boost::system::errc::address_not_available) {
        throw Usage_error(
            "--listen is " + options.address +
            ", which is no address of this machine; give one that `ip address` shows, or leave it "
            "out for this machine alone");
    }
    if (error == asio::error::invalid_argument) {
        throw Usage_error(
            "--listen is " + options.address +
            ", at which the system does not listen; give another one that `ip address` shows");
    }
    throw std::system_error(error, "listening");
}

tcp::acceptor acceptor_at(asio::io_context& context, View_server_options const& options) {
    tcp::endpoint const endpoint = endpoint_of(options);
    Error error;
    tcp::acceptor acceptor(context);
    acceptor.open(endpoint.protocol(), error);
    if (!error) {
        // A port whose last connections linger can be had again at once.
        acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    }
    if (!error) {
        acceptor.bind(endpoint, error);
    }
    if (!error) {
        acceptor.listen(tcp::acceptor::max_listen_connections, error);
    }
    if (error) {
        refuse_to_listen(error, options);
    }
    return acceptor;
}

} // namespace

class View_server::Listening {
public:
    Listening(View_server_options options, Page_files files, Handlers handlers)
        : options_{std::move(options)}, acceptor_{acceptor_at(context_, options_)},
          rules_{own_hosts(address(), port()), new_token(), std::move(files), std::move(handlers)},
          workers_{options_.threads} {
        for (std::string const& host : options_.hosts) {
            add_host(rules_.hosts, host);
        }
        for (std::string const& name : options_.names) {
            add_host(rules_.hosts, name + ":" + std::to_string(port()));
        }
    }

    std::uint16_t port() const { return acceptor_.local_endpoint().port(); }
    std::string address() const { return acceptor_.local_endpoint().address().to_string(); }
    std::string const& token() const { return rules_.token; }

    void run(std::function<bool()> const& stop_requested) {
        while (!stop_requested()) {
            try {
                if (!is_accepting_) {
                    context_.restart(); // it has stopped if there was nothing else to wait for
                    accept();
                }
                context_.run_for(round_time);
            } catch (std::bad_alloc const&) {
                // Whatever asked for the memory has ended with it: a connection, or to accept them.
                std::this_thread::sleep_for(round_time);
            }
        }
        stop();
    }

private:
    using Connections = std::vector<std::weak_ptr<View_connection>>;
    static constexpr std::chrono::milliseconds round_time{50};

    void stop() {
        Error ignored;
        acceptor_.close(ignored);
        pause_.cancel();
        for (auto const& one : connections_) {
            if (auto const connection = one.lock()) {
                connection->close();
            }
        }
        workers_.stop();
        context_.poll();
    }

    void accept() {
        acceptor_.async_accept([this](Error const& error, tcp::socket socket) {
            is_accepting_ = false;
            if (error == asio::error::operation_aborted) {
                return;
            }
            if (error) {
                accept_later();
                return;
            }
            accept();
            admit(std::move(socket));
        });
        is_accepting_ = true;
    }

    // Whatever the system is short of, to ask at once would only keep it busy.
    void accept_later() {
        pause_.expires_after(std::chrono::milliseconds(100));
        pause_.async_wait([this](Error const& error) {
            is_accepting_ = false;
            if (!error) {
                accept();
            }
        });
        is_accepting_ = true;
    }

    void admit(tcp::socket socket) {
        std::erase_if(connections_, [](auto const& one) { return one.expired(); });
        if (connections_.size() >= options_.limits.connections && !make_room()) {
            return;
        }
        auto const connection = std::make_shared<View_connection>(std::move(socket), surroundings_);
        connections_.push_back(connection);
        connection->start();
    }

    // Who has asked with the token is not kept out by who has not: strangers go first, whatever
    // they do, and among them, as among the others, who has been idle longest. No answer to who has
    // the token is broken off. A newcomer is a stranger until it asks, and who floods this machine
    // from within may keep it one.
    bool make_room() {
        auto const rank = [](std::shared_ptr<View_connection> const& one) {
            return std::pair(one->is_trusted(), one->idle_since());
        };
        std::shared_ptr<View_connection> chosen;
        for (auto const& one : connections_) {
            auto const connection = one.lock();
            bool const may_go = connection && !(connection->is_trusted() && connection->is_busy());
            if (may_go && (!chosen || rank(connection) < rank(chosen))) {
                chosen = connection;
            }
        }
        if (!chosen) {
            return false;
        }
        chosen->close();
        std::erase_if(connections_, [&chosen](auto const& one) { return one.lock() == chosen; });
        return true;
    }

    View_server_options options_;
    asio::io_context context_{1};
    tcp::acceptor acceptor_;
    asio::steady_timer pause_{context_};
    bool is_accepting_ = false; // or will again after a pause
    Connections connections_;
    Request_rules rules_;
    View_workers workers_; // ends before what its handlers and their answers need
    Connection_surroundings surroundings_{
        rules_, options_.limits, workers_.context(), std::make_shared<std::atomic<std::size_t>>(0)};
};

View_server::View_server(View_server_options options, Page_files files, Handlers handlers) try
    : listening_{
          std::make_unique<Listening>(std::move(options), std::move(files), std::move(handlers))} {
} catch (boost::system::system_error const& error) {
    throw std::system_error(error.code(), "the view");
}

View_server::~View_server() = default;

std::uint16_t View_server::port() const {
    return listening_->port();
}

std::string const& View_server::token() const {
    return listening_->token();
}

std::string View_server::origin() const {
    std::string const address = listening_->address();
    bool const is_long = address.find(':') != address.npos;
    return "http://" + (is_long ? "[" + address + "]" : address) + ":" + std::to_string(port());
}

void View_server::run(std::function<bool()> const& stop_requested) {
    listening_->run(stop_requested);
}

} // namespace polarize_tool
