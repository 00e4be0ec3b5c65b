// What the fuzz targets share. Each defines fuzz(), driven by libFuzzer in the preset "fuzz"; in
// every other build it replays its corpus.
//
// The first line of an input says how the rest is used, so that a corpus can be read and written.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

// Tries one input.
void fuzz(std::string_view input);

extern "C" [[gnu::used]] inline int LLVMFuzzerTestOneInput(const std::uint8_t *data,
                                                           std::size_t size)
{
    fuzz({reinterpret_cast<const char *>(data), size});
    return 0;
}

// Ends the process when a property does not hold: a finding.
inline void require(bool holds, const char *property)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", property);
        std::abort();
    }
}

// Takes the next line off, without its line feed; what is left when there is none.
inline std::string_view takeLine(std::string_view *input)
{
    const std::string_view line = input->substr(0, input->find('\n'));
    input->remove_prefix(std::min(line.size() + 1, input->size()));
    return line;
}

// The bytes before the first NUL.
inline std::string untilNul(std::string_view bytes)
{
    return std::string(bytes.substr(0, bytes.find('\0')));
}

// Where pieces of these sizes end in a text of `length` bytes. Each character of `sizes` is one: a
// blank is 1, "!" is 2 and so on, a control character 4096. The last is used again and again;
// without any there is one piece.
inline std::vector<std::size_t> cutsOf(std::string_view sizes, std::size_t length)
{
    std::vector<std::size_t> cuts;
    std::size_t at = 0;
    for (std::size_t i = 0; !sizes.empty(); ++i) {
        const auto c = static_cast<unsigned char>(sizes[std::min(i, sizes.size() - 1)]);
        at += c < ' ' ? 4096 : c - ' ' + 1U;
        if (at >= length) {
            break;
        }
        cuts.push_back(at);
    }
    return cuts;
}
