// Which requests reach a file or a handler, and what the others are told.
#include "view/view_request.hpp"

#include <gtest/gtest.h>

namespace {

using namespace polarize_tool;

std::string const token(64, 'a');

Request_rules const& rules() {
    static Request_rules const all = {
        own_hosts("127.0.0.1", 8080),
        token,
        {{"/", {"text/html", "page"}}, {"/page/main.js", {"text/javascript", "script"}}},
        {{"/frame", [](Query const&) { return Answer{}; }}}};
    return all;
}

Request_head request_for(std::string_view target) {
    return {
        .method = "GET",
        .target = target,
        .host = {"127.0.0.1:8080", 1},
        .token = {token, 1},
        .fetch_site = {"same-origin", 1}};
}

int status_of(Request_head const& request) {
    Decision const decision = rules().decide(request);
    auto const* const refused = std::get_if<Refusal>(&decision);
    return refused == nullptr ? 200 : refused->answer.status;
}

std::string content_of(std::string_view target) {
    Decision const decision = rules().decide(request_for(target));
    auto const* const file = std::get_if<Page_file const*>(&decision);
    return file == nullptr ? "" : std::string((*file)->content);
}

TEST(View_request, finds_files_by_their_exact_name) {
    EXPECT_EQ(content_of("/"), "page");
    EXPECT_EQ(content_of("/page/main.js"), "script");
    for (char const* const target :
         {"",
          "//",
          "/?",
          "/?a=b",
          "/page",
          "/page/",
          "/page/main.js?",
          "/page/MAIN.JS",
          "/page/./main.js",
          "/page/../page/main.js",
          "/page//main.js",
          "/page%2fmain.js",
          "/%70age/main.js",
          "/../../etc/passwd",
          "/page/..%2f..%2fetc/passwd",
          "/page\\main.js",
          "http://127.0.0.1:8080/",
          "*",
          "/page/main.js#",
          "/Frame",
          "/frame/",
          "/frame/?a=b"}) {
        EXPECT_EQ(status_of(request_for(target)), 404) << target;
    }
}

TEST(View_request, needs_no_token_for_a_file) {
    Request_head request = request_for("/");
    request.token = {};
    request.fetch_site = {"none", 1};
    EXPECT_EQ(status_of(request), 200);
}

TEST(View_request, gives_handlers_the_decoded_parameters) {
    Decision const decision =
        rules().decide(request_for("/frame?after=-1&region=1,2,3%2c4&name=a+%C3%A4%3D=b&empty="));
    auto const* const call = std::get_if<Call>(&decision);
    ASSERT_NE(call, nullptr);
    Query const expected = {
        {"after", "-1"}, {"region", "1,2,3,4"}, {"name", "a \u00e4==b"}, {"empty", ""}};
    EXPECT_EQ(call->query, expected);
    EXPECT_EQ(status_of(request_for("/frame")), 200);
    EXPECT_EQ(status_of(request_for("/frame?")), 200);
}

TEST(View_request, refuses_parameters_that_are_not_clear) {
    for (char const* const parameters :
         {"a", "=", "=b", "a=1&a=2", "a=1&%61=2", "a=1&", "&a=1", "a=1&&b=2", "a=%", "a=%4",
          "a=%4g", "a=%00", "a=%0a", "a=%ff", "a=%c0%af", "a=%e2%80%ae", "a=\xff"}) {
        EXPECT_EQ(status_of(request_for("/frame?" + std::string(parameters))), 400) << parameters;
    }
    std::string parameters = "/frame?p0=";
    for (int index = 1; index < 16; ++index) {
        parameters += "&p" + std::to_string(index) + "=";
    }
    EXPECT_EQ(status_of(request_for(parameters)), 200);
    EXPECT_EQ(status_of(request_for(parameters + "&p16=")), 400);
}

TEST(View_request, answers_to_its_own_names_alone) {
    for (char const* const host : {"127.0.0.1:8080", "localhost:8080"}) {
        Request_head request = request_for("/");
        request.host = {host, 1};
        EXPECT_EQ(status_of(request), 200) << host;
        request.host.count = 2;
        EXPECT_EQ(status_of(request), 421) << host;
    }
    for (char const* const host :
         {"", "127.0.0.1", "127.0.0.1:80", "127.0.0.1:80800", "127.evil.example:8080",
          "127.0.0.1.evil.example:8080", "evil.example", "LOCALHOST:8080", "localhost.:8080",
          "127.1:8080", "[::1]:8080", " 127.0.0.1:8080", "127.0.0.1:8080,a", "a@127.0.0.1:8080"}) {
        Request_head request = request_for("/");
        request.host = {host, 1};
        EXPECT_EQ(status_of(request), 421) << host;
    }
    Request_head request = request_for("/");
    request.host = {};
    EXPECT_EQ(status_of(request), 421);
}

TEST(View_request, knows_the_names_of_each_address) {
    using Names = std::set<std::string, std::less<>>;
    EXPECT_EQ(own_hosts("::1", 9000), (Names{"[::1]:9000", "localhost:9000"}));
    EXPECT_EQ(own_hosts("10.0.0.7", 9000), (Names{"10.0.0.7:9000"}));
    EXPECT_EQ(
        own_hosts("127.0.0.1", 80),
        (Names{"127.0.0.1", "127.0.0.1:80", "localhost", "localhost:80"}));
    Names hosts;
    for (char const* const host : {"lab:80", "lab.example:443", "lab:8080", "[::1]"}) {
        add_host(hosts, host);
    }
    EXPECT_EQ(
        hosts, (Names{"lab", "lab:80", "lab.example", "lab.example:443", "lab:8080", "[::1]"}));
}

TEST(View_request, refuses_other_methods_bodies_and_long_targets) {
    for (char const* const method : {"POST", "HEAD", "OPTIONS", "CONNECT", "get", "GETT", ""}) {
        Request_head request = request_for("/");
        request.method = method;
        EXPECT_EQ(status_of(request), 405) << method;
    }
    Request_head request = request_for("/");
    request.has_body = true;
    EXPECT_EQ(status_of(request), 413);
    EXPECT_EQ(status_of(request_for("/frame?a=" + std::string(2048, 'b'))), 414);
}

TEST(View_request, calls_handlers_for_its_own_page_with_the_token_alone) {
    for (Field const& wrong :
         {Field{}, Field{"", 1}, Field{std::string_view(token).substr(1), 1}, Field{token, 2}}) {
        Request_head request = request_for("/frame");
        request.token = wrong;
        EXPECT_EQ(status_of(request), 403);
        auto const decision = rules().decide(request);
        EXPECT_EQ(std::get<Refusal>(decision).is_guess, wrong.count > 0);
    }
    for (Field const& site :
         {Field{"cross-site", 1}, Field{"same-site", 1}, Field{"", 1}, Field{"same-origin", 2}}) {
        Request_head request = request_for("/frame");
        request.fetch_site = site;
        EXPECT_EQ(status_of(request), 403);
    }
    Request_head request = request_for("/frame");
    request.fetch_site = {};
    EXPECT_EQ(status_of(request), 200);
}

} // namespace
