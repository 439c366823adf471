// Where the server listens, and how it ends. What it answers is the matter of view_attacks_test.
#include "terminal/failure.hpp"
#include "view/view_server.hpp"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace polarize_tool;

std::string refusal_of(View_server_options const& options) {
    try {
        View_server const server(options, {}, {});
    } catch (Usage_error const& error) {
        return error.what();
    }
    return "";
}

TEST(View_server, refuses_a_port_that_is_taken) {
    View_server const first({}, {}, {});
    View_server_options options;
    options.port = first.port();
    EXPECT_EQ(
        refusal_of(options), "--port is " + std::to_string(first.port()) +
                                 ", which another program uses; give another one, or leave it out "
                                 "for one that is free");
}

TEST(View_server, refuses_an_address_that_is_none_of_the_machine) {
    View_server_options options;
    options.address = "camera.example";
    EXPECT_EQ(
        refusal_of(options), "--listen is camera.example; give an address of this machine in "
                             "numbers, such as 127.0.0.1 or ::1");
    options.address = "192.0.2.1"; // of the range that is nobody's
    EXPECT_EQ(
        refusal_of(options),
        "--listen is 192.0.2.1, which is no address of this machine; give one that `ip address` "
        "shows, or leave it out for this machine alone");
}

// A system that gives some threads but not all.
[[noreturn]] void serve_with_little_memory() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    constexpr std::size_t stacks_of_some = std::size_t{200} << 20;
    std::size_t const bytes = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    rlimit const limit{bytes + stacks_of_some, bytes + stacks_of_some};
    setrlimit(RLIMIT_AS, &limit);
    View_server_options options;
    options.threads = 200;
    try {
        View_server const server(options, {}, {});
    } catch (std::system_error const&) {
        _exit(3);
    }
    _exit(0);
}

TEST(View_server, says_that_there_are_too_few_threads) {
#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
    GTEST_SKIP() << "what watches takes more memory than it leaves";
#endif
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            alarm(30);
            serve_with_little_memory();
        },
        testing::ExitedWithCode(3), "");
}

TEST(View_server, tells_where_it_is) {
    View_server const server({}, {}, {});
    EXPECT_EQ(server.origin(), "http://127.0.0.1:" + std::to_string(server.port()));
    EXPECT_EQ(server.token().size(), 64U);
}

int connection_to(std::uint16_t port) {
    int const socket_number = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_number, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return socket_number;
}

void ask(int connection, View_server const& server, std::string const& path) {
    std::string const request = "GET " + path +
                                " HTTP/1.1\r\nHost: localhost:" + std::to_string(server.port()) +
                                "\r\nPolarization-Token: " + server.token() + "\r\n\r\n";
    EXPECT_EQ(
        send(connection, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
}

// "200" of "HTTP/1.1 200 OK".
std::string status_on(int connection) {
    std::string line(12, '\0');
    EXPECT_EQ(recv(connection, line.data(), line.size(), MSG_WAITALL), 12);
    return line.substr(9);
}

TEST(View_server, makes_nothing_more_while_too_much_goes_out) {
    std::atomic<bool> stops = false;
    View_server_options options;
    options.limits.bytes_going_out = std::size_t{16} << 20;
    std::atomic<std::size_t> at_gate = 0;
    std::atomic<bool> is_open = false;
    auto const large = [&](Query const&) {
        ++at_gate;
        is_open.wait(false);
        return Answer{200, "text/plain", std::string(std::size_t{32} << 20, 'x')};
    };
    // The gate opens when as many are made as may be and the others wait, and on the thread that
    // sends: what it has not begun to send counts as well.
    int rounds = 0;
    auto const stop_requested = [&] {
        if (!is_open && at_gate == options.threads && ++rounds == 4) {
            is_open = true;
            is_open.notify_all();
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        return stops.load();
    };
    View_server server(options, {}, {{"/large", large}});
    std::thread serving([&] { server.run(stop_requested); });
    std::vector<int> stalled(12);
    for (int& one : stalled) {
        one = connection_to(server.port());
        ask(one, server, "/large");
    }
    std::size_t made = 0;
    for (int const one : stalled) {
        made += status_on(one) == "200" ? 1U : 0U;
    }
    EXPECT_EQ(made, options.threads);
    int const other = connection_to(server.port());
    ask(other, server, "/large");
    EXPECT_EQ(status_on(other), "503");
    for (int const one : stalled) {
        close(one);
    }
    // The server learns of it when it writes on.
    std::string status = "503";
    for (int tries = 0; status == "503" && tries < 500; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        int const again = connection_to(server.port());
        ask(again, server, "/large");
        status = status_on(again);
        close(again);
    }
    EXPECT_EQ(status, "200");
    close(other);
    stops = true;
    serving.join();
}

TEST(View_server, ends_with_a_handler_at_work_and_connections_open) {
    std::atomic<bool> is_at_work = false;
    std::atomic<bool> is_over = false;
    std::atomic<bool> stops = false;
    auto const waits = [&](Query const&) {
        is_at_work = true;
        is_at_work.notify_all();
        stops.wait(false);
        is_over = true;
        return Answer{};
    };
    View_server server({}, {}, {{"/wait", waits}});
    std::thread serving([&] { server.run([&stops] { return stops.load(); }); });
    int const idle = connection_to(server.port());
    int const busy = connection_to(server.port());
    ask(busy, server, "/wait");
    is_at_work.wait(false);
    stops = true;
    stops.notify_all();
    serving.join();
    EXPECT_TRUE(is_over);
    char byte;
    EXPECT_EQ(recv(idle, &byte, 1, 0), 0);
    close(idle);
    close(busy);
}

} // namespace
