#include "parse/CAdecode.h"

#include <brotli/decode.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <array>

#include "HTString.h"

std::size_t CADecoder::decode(std::string_view *input, char *out, std::size_t room)
{
    if (state_ != State::Reading) {
        return 0;
    }
    const Step did = step(*input, out, room);
    input->remove_prefix(did.used);
    mayEnd_ = did.then == Step::Then::MemberEnds || (mayEnd_ && did.made == 0);
    if (did.then == Step::Then::BodyEnds) {
        state_ = State::Ended;
    } else if (did.then == Step::Then::Fails) {
        // Some servers send rubbish after the last member. The body is complete all the same.
        state_ = mayEnd_ ? State::Ended : State::Broken;
    }
    return did.made;
}

namespace {

unsigned char firstByte(std::string_view input)
{
    return static_cast<unsigned char>(input.front());
}

// gzip, whose body may have several members, and deflate, which means zlib's format. Some servers
// send deflate without the frame of that format.
class Inflater : public CADecoder {
public:
    enum class Format : std::uint8_t { Gzip, Deflate };

    explicit Inflater(Format format) : format_(format) {}
    ~Inflater() override
    {
        if (isOpen_) {
            inflateEnd(&stream_);
        }
    }
    Inflater(const Inflater &) = delete;
    Inflater &operator=(const Inflater &) = delete;

private:
    bool open(std::string_view input);
    Step step(std::string_view input, char *out, std::size_t room) override;

    const Format format_;
    bool isOpen_ = false;
    z_stream stream_{};
};

// The first byte tells the two kinds of deflate apart. zlib's has the method, 8, in its low bits;
// without the frame these bits would be a block that is stored, and filled up with a bit that no
// encoder sets.
bool Inflater::open(std::string_view input)
{
    constexpr int kGzip = 16;
    constexpr unsigned kMethod = 8;
    const bool isRaw = format_ == Format::Deflate && (firstByte(input) & 0x0FU) != kMethod;
    const int window = isRaw ? -MAX_WBITS : format_ == Format::Gzip ? MAX_WBITS + kGzip : MAX_WBITS;
    isOpen_ = inflateInit2(&stream_, window) == Z_OK;
    return isOpen_;
}

CADecoder::Step Inflater::step(std::string_view input, char *out, std::size_t room)
{
    if (!isOpen_ && (input.empty() || !open(input))) {
        return {0, 0, input.empty() ? Step::Then::GoOn : Step::Then::Fails};
    }
    stream_.next_in = reinterpret_cast<const Bytef *>(input.data());
    stream_.avail_in = static_cast<uInt>(input.size());
    stream_.next_out = reinterpret_cast<Bytef *>(out);
    stream_.avail_out = static_cast<uInt>(room);
    const int result = inflate(&stream_, Z_SYNC_FLUSH);
    Step did{input.size() - stream_.avail_in, room - stream_.avail_out, Step::Then::GoOn};
    if (result == Z_STREAM_END && format_ == Format::Gzip) {
        inflateReset(&stream_);
        did.then = Step::Then::MemberEnds;
    } else if (result == Z_STREAM_END) {
        did.then = Step::Then::BodyEnds;
    } else if (result != Z_OK && result != Z_BUF_ERROR) {  // the latter asks for more input
        did.then = Step::Then::Fails;
    }
    return did;
}

// br. The window has the size of the standard, at most: the larger one stays off.
class Unbrotli : public CADecoder {
    // What the library has decoded is lost when it finds a fault in the same call. It therefore
    // gets no more than this at once.
    static constexpr std::size_t kSlice = 512;

    struct Destroy {
        void operator()(BrotliDecoderState *state) const { BrotliDecoderDestroyInstance(state); }
    };

    Step step(std::string_view input, char *out, std::size_t room) override;

    const std::unique_ptr<BrotliDecoderState, Destroy> state_{
        BrotliDecoderCreateInstance(nullptr, nullptr, nullptr)};
};

CADecoder::Step Unbrotli::step(std::string_view input, char *out, std::size_t room)
{
    if (state_ == nullptr) {
        return {0, 0, Step::Then::Fails};
    }
    const std::size_t offered = std::min(input.size(), kSlice);
    std::size_t left = offered;
    const auto *in = reinterpret_cast<const std::uint8_t *>(input.data());
    std::size_t free = room;
    auto *to = reinterpret_cast<std::uint8_t *>(out);
    const BrotliDecoderResult result =
        BrotliDecoderDecompressStream(state_.get(), &left, &in, &free, &to, nullptr);
    const Step::Then then = result == BROTLI_DECODER_RESULT_ERROR     ? Step::Then::Fails
                            : result == BROTLI_DECODER_RESULT_SUCCESS ? Step::Then::BodyEnds
                                                                      : Step::Then::GoOn;
    return {offered - left, room - free, then};
}

// zstd, whose body may have several frames.
class Unzstd : public CADecoder {
public:
    Unzstd();

private:
    static constexpr int kWindowLog = 23;  // 8 MiB, which is what HTTP allows

    struct Free {
        void operator()(ZSTD_DCtx *stream) const { ZSTD_freeDCtx(stream); }
    };

    [[nodiscard]] std::size_t sliceOf(std::string_view input) const;
    Step step(std::string_view input, char *out, std::size_t room) override;

    const std::unique_ptr<ZSTD_DCtx, Free> stream_{ZSTD_createDCtx()};
    bool atStart_ = true;     // of a frame
    bool wasFull_ = false;    // there was no room for more decoded bytes
    std::size_t wanted_ = 8;  // bytes that the library asks for
};

Unzstd::Unzstd()
{
    if (stream_ != nullptr) {
        ZSTD_DCtx_setParameter(stream_.get(), ZSTD_d_windowLogMax, kWindowLog);
    }
}

// The frames of the standard, and those that are skipped. The library would read older formats,
// too, with windows of any size.
bool isStandardFrame(std::string_view input)
{
    return firstByte(input) == 0x28 || (firstByte(input) & 0xF0U) == 0x50;
}

// What the library has decoded is lost when it finds a fault in the same call. It therefore gets no
// more at once than the rest of a block. What it asks for includes the header of the next block.
std::size_t Unzstd::sliceOf(std::string_view input) const
{
    constexpr std::size_t kNextHeader = 3;
    const std::size_t slice = wanted_ > kNextHeader ? wanted_ - kNextHeader : wanted_;
    return wasFull_ ? 0 : std::min(input.size(), slice);
}

CADecoder::Step Unzstd::step(std::string_view input, char *out, std::size_t room)
{
    if (stream_ == nullptr || (atStart_ && !input.empty() && !isStandardFrame(input))) {
        return {0, 0, Step::Then::Fails};
    }
    ZSTD_inBuffer in{input.data(), sliceOf(input), 0};
    ZSTD_outBuffer to{out, room, 0};
    atStart_ = atStart_ && in.size == 0;
    const std::size_t result = ZSTD_decompressStream(stream_.get(), &to, &in);
    if (ZSTD_isError(result) != 0) {
        return {in.pos, 0, Step::Then::Fails};
    }
    wasFull_ = to.pos == room;
    wanted_ = result;
    if (result != 0) {
        return {in.pos, to.pos, Step::Then::GoOn};
    }
    atStart_ = true;
    wanted_ = 8;
    return {in.pos, to.pos, Step::Then::MemberEnds};
}

std::unique_ptr<CADecoder> newGunzip()
{
    return std::make_unique<Inflater>(Inflater::Format::Gzip);
}

std::unique_ptr<CADecoder> newInflate()
{
    return std::make_unique<Inflater>(Inflater::Format::Deflate);
}

std::unique_ptr<CADecoder> newUnbrotli()
{
    return std::make_unique<Unbrotli>();
}

std::unique_ptr<CADecoder> newUnzstd()
{
    return std::make_unique<Unzstd>();
}

struct Coding {
    std::string_view name;
    std::unique_ptr<CADecoder> (*make)();
};

constexpr std::array<Coding, 5> kCodings = {{{"gzip", newGunzip},
                                             {"x-gzip", newGunzip},
                                             {"deflate", newInflate},
                                             {"br", newUnbrotli},
                                             {"zstd", newUnzstd}}};

}  // namespace

std::unique_ptr<CADecoder> CANewDecoder(std::string_view coding)
{
    const auto *const known =
        std::find_if(kCodings.begin(), kCodings.end(),
                     [&](const Coding &row) { return HTEqualsNoCase(row.name, coding); });
    return known == kCodings.end() ? nullptr : known->make();
}
