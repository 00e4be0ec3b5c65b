// Compressed bodies, in blocks of any size: any bytes give the same text as in one block, and what
// was packed (in a format that the input's length chooses) comes back whole.
//
// Input: a line of block sizes, a line with the coding, then the body.
#include "AgentState.h"
#include "Feed.h"
#include "Fuzz.h"
#include "Pack.h"
#include "parse/CAparseCoded.h"

namespace {

std::string decoded(std::string_view coding, std::string_view body, const Cuts &cuts)
{
    CAURL url("http://h/");
    std::string text;
    std::string copy;
    CAParseCoded parser(&url, HTThread_context(), CANewDecoder(coding), new Recorder(&url, &text),
                        new Recorder(&url, &copy));
    feed(&parser, body, cuts);
    require(copy == body, "the copy has what came");
    require(text.size() <= CAParseCoded::kMostDecoded, "no more than the limit");
    return text;
}

}  // namespace

void fuzz(std::string_view input)
{
    const std::string_view sizes = takeLine(&input);
    const std::string_view coding = takeLine(&input);
    if (CANewDecoder(coding) == nullptr) {
        return;
    }
    const std::string most = decoded(coding, input, everyByte(input.size()));
    for (const Cuts &cuts : {Cuts{}, cutsOf(sizes, input.size())}) {
        const std::string text = decoded(coding, input, cuts);
        // A fault in br or zstd hides the text just before it, if both come in one block.
        const bool mayLack = coding.find_first_of("bBsS") != coding.npos;
        require(mayLack ? most.starts_with(text) : most == text, "the same in blocks");
    }

    Pieces pieces;
    std::size_t begin = 0;
    for (const std::size_t end : cutsOf(sizes, input.size())) {
        pieces.push_back(input.substr(begin, end - begin));
        begin = end;
    }
    pieces.push_back(input.substr(begin));
    const char *const formats[] = {"gzip", "deflate", "br", "zstd"};
    const char *const format = formats[input.size() % std::size(formats)];
    const std::string packed = pack(format, pieces);
    require(decoded(format, packed, cutsOf(sizes, packed.size())) == input, "back whole");
}
