// Compresses texts as servers do.
#pragma once

#include <brotli/encode.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using Pieces = std::vector<std::string_view>;

// These pack the pieces into `*out`, which has room enough, and return the packed length. They
// flush behind each piece, except the last one if the body ends.
inline std::size_t deflatePieces(int windowBits, const Pieces &pieces, bool ends, std::string *out)
{
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    stream.next_out = reinterpret_cast<Bytef *>(out->data());
    stream.avail_out = static_cast<uInt>(out->size());
    for (const std::string_view &piece : pieces) {
        stream.next_in = reinterpret_cast<const Bytef *>(piece.data());
        stream.avail_in = static_cast<uInt>(piece.size());
        deflate(&stream, ends && &piece == &pieces.back() ? Z_FINISH : Z_SYNC_FLUSH);
    }
    deflateEnd(&stream);
    return stream.total_out;
}

inline std::size_t brotliPieces(const Pieces &pieces, bool ends, std::string *out)
{
    BrotliEncoderState *const state = BrotliEncoderCreateInstance(nullptr, nullptr, nullptr);
    BrotliEncoderSetParameter(state, BROTLI_PARAM_QUALITY, 2);
    auto *to = reinterpret_cast<std::uint8_t *>(out->data());
    std::size_t room = out->size();
    for (const std::string_view &piece : pieces) {
        const auto *in = reinterpret_cast<const std::uint8_t *>(piece.data());
        std::size_t left = piece.size();
        const bool isLast = ends && &piece == &pieces.back();
        const auto then = isLast ? BROTLI_OPERATION_FINISH : BROTLI_OPERATION_FLUSH;
        BrotliEncoderCompressStream(state, then, &left, &in, &room, &to, nullptr);
    }
    BrotliEncoderDestroyInstance(state);
    return out->size() - room;
}

inline std::size_t zstdPieces(const Pieces &pieces, bool ends, std::string *out)
{
    ZSTD_CCtx *const stream = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(stream, ZSTD_c_checksumFlag, 1);
    ZSTD_outBuffer to{out->data(), out->size(), 0};
    for (const std::string_view &piece : pieces) {
        ZSTD_inBuffer in{piece.data(), piece.size(), 0};
        const bool isLast = ends && &piece == &pieces.back();
        ZSTD_compressStream2(stream, &to, &in, isLast ? ZSTD_e_end : ZSTD_e_flush);
    }
    ZSTD_freeCCtx(stream);
    return to.pos;
}

// The coding is "gzip", "deflate", "br", "zstd", or "raw", which is deflate without a frame.
inline std::string pack(std::string_view coding, const Pieces &pieces, bool ends = true)
{
    std::size_t total = 0;
    for (const std::string_view piece : pieces) {
        total += piece.size();
    }
    // More than 16 MiB must be such as packs well.
    std::string out(8192 + 64 * pieces.size() + 2 * std::min(total, std::size_t{1} << 24), '\0');
    const int bits = coding == "raw" ? -MAX_WBITS : MAX_WBITS + (coding == "gzip" ? 16 : 0);
    out.resize(coding == "br"     ? brotliPieces(pieces, ends, &out)
               : coding == "zstd" ? zstdPieces(pieces, ends, &out)
                                  : deflatePieces(bits, pieces, ends, &out));
    return out;
}
