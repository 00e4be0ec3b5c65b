#include "HTInet.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

TEST(HTInet, NameGivesTheWrongAddress)
{
    // Address 0: refused, and the port stays at 99.
    std::istringstream rows(R"(
        10.1.2.3:8080   a010203   8080    10.1.2.3      a010203  99    255.255.255.255:1  ffffffff 1
        127.0.0.1:80/x  7f000001  80      localhost:65535  7f000001  65535    :80         0  99
        1.2.3.4:65536   0         99      1.2.3.4:4294967376  0  99    300.1.1.1:80       0  99
        localhost:x     0         99)");
    std::uint32_t wanted = 0;
    int port = 0;
    for (std::string name; rows >> name >> std::hex >> wanted >> std::dec >> port;) {
        sockaddr_in address{};
        address.sin_port = htons(99);
        EXPECT_EQ(HTParseInet(&address, name.c_str(), nullptr) == 0, wanted != 0) << name;
        EXPECT_EQ(ntohl(address.sin_addr.s_addr), wanted) << name;
        EXPECT_EQ(ntohs(address.sin_port), port) << name;
    }
}

TEST(HTInet, NameGivesTheWrongIPv6Address)
{
    // Address "-": refused, and the port stays at 99.
    std::istringstream rows(R"(
        [::1]:3128 ::1   3128   [::1]           ::1     99    [fe80::1%lo]:80/x fe80::1 80
        [::1       -     99     [::1]x          -       99    [::1]:x           -       99
        ::1        -     99     fe80::a         -       99    127.0.0.1:80      -       99
        [h]:80     -     99     [::1]:65536     -       99    [127.0.0.1]       -       99)");
    std::string wanted;
    int port = 0;
    for (std::string name; rows >> name >> wanted >> port;) {
        sockaddr_in6 address{};
        address.sin6_port = htons(99);
        char text[INET6_ADDRSTRLEN];
        EXPECT_EQ(HTParseInet6(&address, name.c_str(), nullptr) == 0, wanted != "-") << name;
        inet_ntop(AF_INET6, &address.sin6_addr, text, sizeof text);
        EXPECT_EQ(text, wanted == "-" ? "::" : wanted) << name;
        EXPECT_EQ(ntohs(address.sin6_port), port) << name;
        EXPECT_EQ(address.sin6_scope_id != 0, wanted == "fe80::1") << name;
    }
}

TEST(HTInet, HostNameOverflows)
{
    HTSetHostName(std::string(300, 'h').c_str());
    EXPECT_EQ(HTHostName(), std::string(255, 'h'));
}

}  // namespace
