#include "HTInet.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

TEST(HTInet, NameGivesTheWrongAddress)
{
    struct Row {
        const char *name;
        int result;
        std::uint32_t address;
        std::uint16_t port;
    };
    constexpr std::array<Row, 14> kRows = {{
        {"10.1.2.3:8080", 0, 0x0a010203, 8080},
        {"10.1.2.3", 0, 0x0a010203, 99},
        {"10.1.2.3:0", 0, 0x0a010203, 0},
        {"255.255.255.255:65535", 0, 0xffffffff, 65535},
        {"127.0.0.1:80/x", 0, 0x7f000001, 80},
        {"localhost:3128", 0, 0x7f000001, 3128},
        {"", -1, 0, 99},
        {":80", -1, 0, 99},
        {"1.2.3.4:65536", -1, 0, 99},
        {"1.2.3.4:4294967376", -1, 0, 99},
        {"300.1.1.1:80", -1, 0, 99},
        {"1.2.3.4.5", -1, 0, 99},
        {"localhost:", -1, 0, 99},
        {"local host:80", -1, 0, 99},
    }};
    for (const Row &row : kRows) {
        sockaddr_in address{};
        address.sin_port = htons(99);
        EXPECT_EQ(HTParseInet(&address, row.name, HTThread_context()), row.result) << row.name;
        EXPECT_EQ(ntohl(address.sin_addr.s_addr), row.address) << row.name;
        EXPECT_EQ(ntohs(address.sin_port), row.port) << row.name;
    }
}

TEST(HTInet, HostNameOverflows)
{
    const std::string machine = HTHostName();
    EXPECT_FALSE(machine.empty());
    HTSetHostName(std::string(300, 'h').c_str());
    EXPECT_EQ(HTHostName(), std::string(255, 'h'));
    HTSetHostName(machine.c_str());
}

}  // namespace
