// Names by which browsers may ask for the page, and the address that they are given.
#include "commands/view_address.hpp"
#include "terminal/failure.hpp"

#include <gtest/gtest.h>

namespace {

using namespace polarize_tool;
using Names = std::vector<std::string>;

TEST(View_address, is_that_of_the_server) {
    View_address address;
    check_address(address);
    EXPECT_EQ(page_address(address, "http://[::1]:7", "a"), "http://[::1]:7/#token=a");
    EXPECT_EQ(names_without_port(address), Names{});
}

TEST(View_address, of_all_addresses_is_the_first_name_with_the_port_that_is_had) {
    for (char const* const any : {"0.0.0.0", "::"}) {
        View_address address{any, 0, {"lab.example", "[fe80::1]", "other.example:80"}};
        check_address(address);
        EXPECT_EQ(
            page_address(address, "http://0.0.0.0:4711", "a"), "http://lab.example:4711/#token=a");
        EXPECT_EQ(names_without_port(address), (Names{"lab.example", "[fe80::1]"}));
        address.hosts = {"lab.example:8080"};
        EXPECT_THROW(check_address(address), Usage_error);
        address.port = 8080;
        check_address(address);
        EXPECT_EQ(
            page_address(address, "http://[::]:8080", "a"), "http://lab.example:8080/#token=a");
        EXPECT_EQ(names_without_port(address), Names{});
    }
}

TEST(View_address, has_names_as_browsers_send_them) {
    View_address address;
    address.hosts = {"LAB.example:9000", "[FE80::1]:9000", "127.0.0.1:1", "a_b-c.", "lab:65535"};
    check_address(address);
    EXPECT_EQ(
        address.hosts,
        (Names{"lab.example:9000", "[fe80::1]:9000", "127.0.0.1:1", "a_b-c.", "lab:65535"}));
}

} // namespace
