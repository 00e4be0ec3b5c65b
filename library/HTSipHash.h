// Hashes of texts that outsiders choose, such as URLs and names of hosts: whoever does not know the
// key cannot make texts whose hashes are equal or near, with which a table would become as slow as
// a list. Any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

using HTSipKey = std::array<std::uint64_t, 2>;

// SipHash-1-3 of `bytes`, whose words are read in the byte order of the machine.
[[nodiscard]] std::uint64_t HTSipHash(const HTSipKey &key, std::string_view bytes);

// The same with a key that differs from process to process, so that the result must not leave this
// one. The key is made at the first call, which never waits for random numbers.
[[nodiscard]] std::uint64_t HTKeyedHash(std::string_view bytes);

// The hasher of a standard container whose keys are texts.
struct HTKeyedHasher {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return HTKeyedHash(text); }
};
