// Each call of compress() ends with a flush, so that a file whose writer was killed can be read up to there.

#include "common/support/Compression.h"

#include <array>
#include <new>
#include <zlib.h>
#include <zstd.h>

namespace TelvaneTool
{

namespace
{

constexpr std::string_view kGzipSuffix = ".gz";
constexpr std::string_view kZstdSuffix = ".zst";
constexpr std::string_view kGzipMark("\x1F\x8B", 2);
constexpr std::string_view kZstdMark("\x28\xB5\x2F\xFD", 4);
constexpr int kGzipWindow = 15 + 16; ///< the largest window, with the header and trailer of gzip
constexpr int kGzipMemory = 8;       ///< the default of zlib
using Piece = std::array<char, 65536>;

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() > end.size() && text.substr(text.size() - end.size()) == end;
}

Bytef* bytesOf(std::string_view data)
{
    return reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
}

class GzipCompressor : public Compressor
{
public:
    GzipCompressor()
    {
        if (deflateInit2(&m_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, kGzipMemory,
                         Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~GzipCompressor() override { deflateEnd(&m_stream); }
    GzipCompressor(const GzipCompressor&) = delete;
    GzipCompressor& operator=(const GzipCompressor&) = delete;

    std::string compress(std::string_view data, bool last) override
    {
        std::string output;
        Piece piece;
        m_stream.next_in = bytesOf(data);
        m_stream.avail_in = static_cast<uInt>(data.size());
        do {
            m_stream.next_out = reinterpret_cast<Bytef*>(piece.data());
            m_stream.avail_out = static_cast<uInt>(piece.size());
            deflate(&m_stream, last ? Z_FINISH : Z_SYNC_FLUSH);
            output.append(piece.data(), piece.size() - m_stream.avail_out);
        } while (m_stream.avail_out == 0);
        return output;
    }

private:
    z_stream m_stream = {};
};

class GzipDecompressor : public Decompressor
{
public:
    GzipDecompressor()
    {
        if (inflateInit2(&m_stream, kGzipWindow) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~GzipDecompressor() override { inflateEnd(&m_stream); }
    GzipDecompressor(const GzipDecompressor&) = delete;
    GzipDecompressor& operator=(const GzipDecompressor&) = delete;

    bool decompress(std::string_view data, std::string& output) override
    {
        Piece piece;
        m_stream.next_in = bytesOf(data);
        m_stream.avail_in = static_cast<uInt>(data.size());
        do {
            m_stream.next_out = reinterpret_cast<Bytef*>(piece.data());
            m_stream.avail_out = static_cast<uInt>(piece.size());
            const int result = inflate(&m_stream, Z_NO_FLUSH);
            output.append(piece.data(), piece.size() - m_stream.avail_out);
            if (result == Z_STREAM_END) {
                inflateReset(&m_stream);
            } else if (result != Z_OK && result != Z_BUF_ERROR) {
                return false;
            }
        } while (m_stream.avail_in != 0 || m_stream.avail_out == 0);
        return true;
    }

private:
    z_stream m_stream = {};
};

struct ZstdDeleter
{
    void operator()(ZSTD_CStream* stream) const { ZSTD_freeCStream(stream); }
    void operator()(ZSTD_DStream* stream) const { ZSTD_freeDStream(stream); }
};

template <class Stream>
std::unique_ptr<Stream, ZstdDeleter> owned(Stream* stream)
{
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    return std::unique_ptr<Stream, ZstdDeleter>(stream);
}

class ZstdCompressor : public Compressor
{
public:
    std::string compress(std::string_view data, bool last) override
    {
        std::string output;
        Piece piece;
        ZSTD_inBuffer input = {data.data(), data.size(), 0};
        std::size_t left = 1;
        while (left != 0 && ZSTD_isError(left) == 0) {
            ZSTD_outBuffer target = {piece.data(), piece.size(), 0};
            left = ZSTD_compressStream2(m_stream.get(), &target, &input, last ? ZSTD_e_end : ZSTD_e_flush);
            output.append(piece.data(), target.pos);
        }
        return output;
    }

private:
    std::unique_ptr<ZSTD_CStream, ZstdDeleter> m_stream = owned(ZSTD_createCStream());
};

class ZstdDecompressor : public Decompressor
{
public:
    bool decompress(std::string_view data, std::string& output) override
    {
        Piece piece;
        ZSTD_inBuffer input = {data.data(), data.size(), 0};
        bool full = true;
        while (input.pos < input.size || full) {
            ZSTD_outBuffer target = {piece.data(), piece.size(), 0};
            const std::size_t result = ZSTD_decompressStream(m_stream.get(), &target, &input);
            output.append(piece.data(), target.pos);
            if (ZSTD_isError(result) != 0) {
                return false;
            }
            full = target.pos == target.size;
        }
        return true;
    }

private:
    std::unique_ptr<ZSTD_DStream, ZstdDeleter> m_stream = owned(ZSTD_createDStream());
};

} // namespace

std::string_view compressionSuffix(std::string_view path)
{
    for (const std::string_view suffix : {kGzipSuffix, kZstdSuffix}) {
        if (endsWith(path, suffix)) {
            return suffix;
        }
    }
    return {};
}

Compression compressionOfPath(std::string_view path)
{
    const std::string_view suffix = compressionSuffix(path);
    if (suffix.empty()) {
        return Compression::None;
    }
    return suffix == kGzipSuffix ? Compression::Gzip : Compression::Zstd;
}

Compression compressionOfData(std::string_view data)
{
    if (data.substr(0, kGzipMark.size()) == kGzipMark) {
        return Compression::Gzip;
    }
    return data.substr(0, kZstdMark.size()) == kZstdMark ? Compression::Zstd : Compression::None;
}

std::unique_ptr<Compressor> makeCompressor(Compression compression)
{
    switch (compression) {
    case Compression::Gzip:
        return std::make_unique<GzipCompressor>();
    case Compression::Zstd:
        return std::make_unique<ZstdCompressor>();
    case Compression::None:
        break;
    }
    return nullptr;
}

std::unique_ptr<Decompressor> makeDecompressor(Compression compression)
{
    switch (compression) {
    case Compression::Gzip:
        return std::make_unique<GzipDecompressor>();
    case Compression::Zstd:
        return std::make_unique<ZstdDecompressor>();
    case Compression::None:
        break;
    }
    return nullptr;
}

} // namespace TelvaneTool
