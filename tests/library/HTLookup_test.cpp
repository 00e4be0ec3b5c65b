#include "HTLookup.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <atomic>
#include <cstring>
#include <string_view>
#include <vector>

#include "htthread.h"

namespace {

std::atomic<bool> isMute = false;

}  // namespace

// In front of the resolver's: "mute.test" gets no answer for a while, "quick.test" at once.
extern "C" int gethostbyname_r(const char *name, hostent *entry, char *buffer, std::size_t size,
                               hostent **result, int *error)
{
    if (!std::string_view(name).ends_with(".test")) {
        static auto *const real =
            reinterpret_cast<decltype(&gethostbyname_r)>(dlsym(RTLD_NEXT, "gethostbyname_r"));
        return real(name, entry, buffer, size, result, error);
    }
    for (int i = 0; i < 3000 && isMute && std::string_view(name) == "mute.test"; ++i) {
        HTSleep(10);
    }
    char **const list = reinterpret_cast<char **>(buffer);
    list[0] = buffer + 2 * sizeof(char *);
    list[1] = nullptr;
    std::memcpy(list[0], "\x7f\0\0\x01", 4);
    *entry = {nullptr, nullptr, AF_INET, 4, list};
    *result = entry;
    return 0;
}

namespace {

in_port_t portOf(const sockaddr_storage &address)
{
    return ntohs(reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

TEST(HTLookup, ResolverHoldsTheCaller)
{
    isMute = true;
    {
        HTLookup mute("mute.test:80", AF_INET, 0);
        EXPECT_FALSE(mute.wait(50));
        EXPECT_EQ(mute.address().ss_family, AF_UNSPEC);
    }
    HTLookup name("quick.test", AF_INET, htons(99));
    EXPECT_TRUE(name.wait(30000));
    EXPECT_EQ(name.address().ss_family, AF_INET);
    EXPECT_EQ(portOf(name.address()), 99);
    HTLookup address("127.0.0.1:80", AF_INET, 0);
    EXPECT_TRUE(address.wait(0));
    EXPECT_EQ(portOf(address.address()), 80);

    std::vector<std::unique_ptr<HTLookup>> many;
    for (int i = 0; i < HTLookup::kMost; ++i) {
        many.push_back(std::make_unique<HTLookup>("mute.test", AF_INET, 0));
    }
    EXPECT_FALSE(many.front()->wait(0));
    EXPECT_FALSE(many.back()->wait(50));
    EXPECT_EQ(HTLookup::working(), HTLookup::kMost);
    isMute = false;
    for (const auto &lookup : {many.front().get(), many.back().get()}) {
        EXPECT_TRUE(lookup->wait(30000)) << "it does not begin when a thread is free";
        EXPECT_EQ(lookup->address().ss_family, AF_INET);
    }
    for (int i = 0; i < 3000 && HTLookup::working() > 0; ++i) {
        HTSleep(10);
    }
    EXPECT_EQ(HTLookup::working(), 0);
}

}  // namespace
