#include "HTInet.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(HTInet, NameGivesTheWrongAddress)
{
    const struct {
        const char *name;
        std::uint32_t address;  // 0: refused
        std::uint16_t port;
    } rows[] = {
        {"10.1.2.3:8080", 0x0a010203, 8080},
        {"10.1.2.3", 0x0a010203, 99},
        {"255.255.255.255:65535", 0xffffffff, 65535},
        {"127.0.0.1:80/x", 0x7f000001, 80},
        {"localhost:3128", 0x7f000001, 3128},
        {":80", 0, 99},
        {"1.2.3.4:65536", 0, 99},
        {"1.2.3.4:4294967376", 0, 99},
        {"300.1.1.1:80", 0, 99},
        {"localhost:x", 0, 99},
    };
    for (const auto &row : rows) {
        sockaddr_in address{};
        address.sin_port = htons(99);
        EXPECT_EQ(HTParseInet(&address, row.name, nullptr) == 0, row.address != 0) << row.name;
        EXPECT_EQ(ntohl(address.sin_addr.s_addr), row.address) << row.name;
        EXPECT_EQ(ntohs(address.sin_port), row.port) << row.name;
    }
}

TEST(HTInet, HostNameOverflows)
{
    HTSetHostName(std::string(300, 'h').c_str());
    EXPECT_EQ(HTHostName(), std::string(255, 'h'));
}

}  // namespace
