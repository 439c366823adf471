/// @file
/// The view's server with handlers for tests.
/// usage: view_test_server [WRITE_MILLISECONDS [HEADER_MILLISECONDS [IDLE_MILLISECONDS]]]
/// Prints port and token, and ends with its standard input.
///   /page.txt         a file
///   /echo?text=T      T
///   /bytes?count=N    N bytes
///   /slow             waits for a while
///   /nothing          no content
///   /fault            throws
///   /memory           throws for want of memory
#include "view/view_server.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using namespace polarize_tool;
using std::chrono::milliseconds;

std::string value_of(Query const& query, std::string_view name) {
    auto const found = query.find(name);
    return found == query.end() ? "" : found->second;
}

Answer text(std::string body) {
    return {200, "text/plain; charset=utf-8", std::move(body)};
}

Handlers handlers() {
    return {
        {"/echo", [](Query const& query) { return text(value_of(query, "text")); }},
        {"/bytes",
         [](Query const& query) {
             return text(std::string(std::stoul(value_of(query, "count")), 'b'));
         }},
        {"/slow",
         [](Query const&) {
             std::this_thread::sleep_for(milliseconds(200));
             return text("slow");
         }},
        {"/nothing",
         [](Query const&) {
             return Answer{204, "", ""};
         }},
        {"/memory", [](Query const&) -> Answer { throw std::bad_alloc(); }},
        {"/fault", [](Query const&) -> Answer { throw std::runtime_error("words of a library"); }},
    };
}

bool input_has_ended() {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    char byte;
    return poll(&input, 1, 0) == 1 && read(STDIN_FILENO, &byte, 1) <= 0;
}

} // namespace

int main(int argument_count, char** arguments) {
    try {
        View_server_options options;
        View_limits& limits = options.limits;
        milliseconds* const times[] = {&limits.write_time, &limits.header_time, &limits.idle_time};
        for (int index = 1; index < argument_count && index <= 3; ++index) {
            *times[index - 1] = milliseconds(std::atoi(arguments[index]));
        }
        View_server server(
            options, {{"/page.txt", {"text/plain; charset=utf-8", "the page"}}}, handlers());
        std::printf("%u %s\n", unsigned{server.port()}, server.token().c_str());
        std::fflush(stdout);
        server.run(input_has_ended);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "view_test_server: %s\n", error.what());
        return 1;
    }
}
