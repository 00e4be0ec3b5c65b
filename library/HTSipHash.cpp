#include "HTSipHash.h"

#include <sys/auxv.h>
#include <sys/random.h>

#include <bit>
#include <chrono>
#include <cstring>

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

// Soon after the system's start there may be no random numbers yet. What the kernel gave this
// process when it started it, and the clock, must do then.
HTSipKey makeKey()
{
    HTSipKey key{};
    if (getrandom(key.data(), sizeof(key), GRND_NONBLOCK) == ssize_t{sizeof(key)}) {
        return key;
    }
    if (const auto given = std::uintptr_t{getauxval(AT_RANDOM)}; given != 0) {
        std::memcpy(key.data(), reinterpret_cast<const void *>(given), sizeof(key));
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    key[0] ^= static_cast<std::uint64_t>(now);
    return key;
}

class SipHash {
public:
    explicit SipHash(const HTSipKey &key)
        : a_(key[0] ^ 0x736f6d6570736575U),
          b_(key[1] ^ 0x646f72616e646f6dU),
          c_(key[0] ^ 0x6c7967656e657261U),
          d_(key[1] ^ 0x7465646279746573U)
    {
    }

    void add(std::uint64_t word)
    {
        d_ ^= word;
        mix();
        a_ ^= word;
    }
    std::uint64_t finish()
    {
        c_ ^= 0xffU;
        for (int round = 0; round < 3; ++round) {
            mix();
        }
        return a_ ^ b_ ^ c_ ^ d_;
    }

private:
    void mix()
    {
        a_ += b_;
        c_ += d_;
        b_ = std::rotl(b_, 13) ^ a_;
        d_ = std::rotl(d_, 16) ^ c_;
        a_ = std::rotl(a_, 32) + d_;
        c_ += b_;
        b_ = std::rotl(b_, 17) ^ c_;
        d_ = std::rotl(d_, 21) ^ a_;
        c_ = std::rotl(c_, 32);
    }

    std::uint64_t a_;
    std::uint64_t b_;
    std::uint64_t c_;
    std::uint64_t d_;
};

}  // namespace

std::uint64_t HTSipHash(const HTSipKey &key, std::string_view bytes)
{
    SipHash hash(key);
    const std::uint64_t length = bytes.size();
    std::uint64_t word = 0;
    for (; bytes.size() >= kWord; bytes.remove_prefix(kWord)) {
        std::memcpy(&word, bytes.data(), kWord);
        hash.add(word);
    }
    word = 0;
    if (!bytes.empty()) {
        std::memcpy(&word, bytes.data(), bytes.size());
    }
    hash.add(word | length << 56U);
    return hash.finish();
}

std::uint64_t HTKeyedHash(std::string_view bytes)
{
    static const HTSipKey key = makeKey();
    return HTSipHash(key, bytes);
}
