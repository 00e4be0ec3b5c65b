#include "report/CAdropped.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstring>

#include "report/CAjson.h"

namespace {

using Seed = std::array<std::uint64_t, 2>;

// Without random numbers, the clock must do.
Seed makeSeed()
{
    Seed seed{};
    if (getrandom(seed.data(), sizeof(seed), GRND_NONBLOCK) != ssize_t{sizeof(seed)}) {
        const auto now = std::chrono::system_clock::now().time_since_epoch().count();
        seed = {static_cast<std::uint64_t>(now), ~static_cast<std::uint64_t>(now)};
    }
    return seed;
}

// SipHash-1-3: who does not know the seed cannot make texts whose hashes are equal or near.
class SipHash {
public:
    explicit SipHash(const Seed &seed)
        : a_(seed[0] ^ 0x736f6d6570736575U),
          b_(seed[1] ^ 0x646f72616e646f6dU),
          c_(seed[0] ^ 0x6c7967656e657261U),
          d_(seed[1] ^ 0x7465646279746573U)
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

std::uint64_t CADropped::keyOf(std::string_view url)
{
    static const Seed seed = makeSeed();
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    SipHash hash(seed);
    const std::uint64_t length = url.size();
    std::uint64_t word = 0;
    for (; url.size() >= kWord; url.remove_prefix(kWord)) {
        std::memcpy(&word, url.data(), kWord);
        hash.add(word);
    }
    word = 0;
    std::copy(url.begin(), url.end(), reinterpret_cast<char *>(&word));
    hash.add(word | length << 56U);
    return hash.finish();
}

bool CADropped::add(std::uint64_t key, const Url &url)
{
    if (known_.find(key) != known_.end()) {
        return false;
    }
    const std::size_t quoted = CAQuotedLength(url.text);
    if (urls_.size() >= kMostUrls || quotedBytes_ + quoted > kMostText) {
        ++more_;
        return true;
    }
    quotedBytes_ += quoted;
    urls_.push_back(url);
    urls_.back().text = copy(url.text);
    known_.emplace(key, &urls_.back());
    return true;
}

void CADropped::request(std::uint64_t key)
{
    const auto [known, isNew] = known_.try_emplace(key, nullptr);
    if (!isNew && known->second != nullptr) {
        known->second->why = CADrop::None;
        known->second = nullptr;
    }
}

std::string_view CADropped::copy(std::string_view text)
{
    if (text.empty()) {
        return {};
    }
    auto *const memory = static_cast<char *>(memory_.allocate(text.size(), 1));
    std::copy(text.begin(), text.end(), memory);
    return {memory, text.size()};
}
