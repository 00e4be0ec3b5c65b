// Compresses texts as servers do.
#pragma once

#include <brotli/encode.h>
#include <zlib.h>
#include <zstd.h>

#include <string>
#include <string_view>
#include <vector>

using Pieces = std::vector<std::string_view>;

// Each packs the pieces, with a flush behind each as servers do that send a page while they make
// it, into the `out.size()` bytes of `*out`, which are enough. They return the packed length.
inline std::size_t deflatePieces(int windowBits, const Pieces &pieces, bool ends, std::string *out)
{
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    stream.next_out = reinterpret_cast<Bytef *>(out->data());
    stream.avail_out = static_cast<uInt>(out->size());
    for (const std::string_view piece : pieces) {
        stream.next_in = reinterpret_cast<const Bytef *>(piece.data());
        stream.avail_in = static_cast<uInt>(piece.size());
        deflate(&stream, Z_SYNC_FLUSH);
    }
    deflate(&stream, ends ? Z_FINISH : Z_SYNC_FLUSH);
    deflateEnd(&stream);
    return stream.total_out;
}

inline std::size_t brotliPieces(const Pieces &pieces, bool ends, std::string *out)
{
    BrotliEncoderState *const state = BrotliEncoderCreateInstance(nullptr, nullptr, nullptr);
    BrotliEncoderSetParameter(state, BROTLI_PARAM_QUALITY, 2);
    auto *to = reinterpret_cast<std::uint8_t *>(out->data());
    std::size_t room = out->size();
    for (const std::string_view piece : pieces) {
        const auto *in = reinterpret_cast<const std::uint8_t *>(piece.data());
        std::size_t left = piece.size();
        BrotliEncoderCompressStream(state, BROTLI_OPERATION_FLUSH, &left, &in, &room, &to, nullptr);
    }
    std::size_t none = 0;
    const auto last = ends ? BROTLI_OPERATION_FINISH : BROTLI_OPERATION_FLUSH;
    BrotliEncoderCompressStream(state, last, &none, nullptr, &room, &to, nullptr);
    BrotliEncoderDestroyInstance(state);
    return out->size() - room;
}

inline std::size_t zstdPieces(const Pieces &pieces, bool ends, std::string *out)
{
    ZSTD_CCtx *const stream = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(stream, ZSTD_c_checksumFlag, 1);
    ZSTD_outBuffer to{out->data(), out->size(), 0};
    for (const std::string_view piece : pieces) {
        ZSTD_inBuffer in{piece.data(), piece.size(), 0};
        ZSTD_compressStream2(stream, &to, &in, ZSTD_e_flush);
    }
    ZSTD_inBuffer none{nullptr, 0, 0};
    ZSTD_compressStream2(stream, &to, &none, ends ? ZSTD_e_end : ZSTD_e_flush);
    ZSTD_freeCCtx(stream);
    return to.pos;
}

// The coding is "gzip", "deflate", "br", "zstd", or "raw", which is deflate without a frame. The
// end of the body is left out unless `ends`.
inline std::string pack(std::string_view coding, const Pieces &pieces, bool ends = true)
{
    std::size_t room = 4096;
    const char *last = nullptr;
    for (const std::string_view piece : pieces) {
        room += 8192 + (piece.data() == last ? 0 : 2 * piece.size());  // repetitions pack well
        last = piece.data();
    }
    std::string out(room, '\0');
    out.resize(coding == "br"     ? brotliPieces(pieces, ends, &out)
               : coding == "zstd" ? zstdPieces(pieces, ends, &out)
                                  : deflatePieces(coding == "gzip"  ? MAX_WBITS + 16
                                                  : coding == "raw" ? -MAX_WBITS
                                                                    : MAX_WBITS,
                                                  pieces, ends, &out));
    return out;
}
