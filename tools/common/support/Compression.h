#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace TelvaneTool
{

enum class Compression
{
    None,
    Gzip,
    Zstd,
};

/// \return ".gz" or ".zst" if the path ends with it, otherwise an empty text
std::string_view compressionSuffix(std::string_view path);

/// \return the compression that the suffix of the path indicates
Compression compressionOfPath(std::string_view path);

/// \return the compression of data with this beginning; \p data needs 4 bytes to recognise all
Compression compressionOfData(std::string_view data);

/// Compresses a stream.
class Compressor
{
public:
    virtual ~Compressor() = default;
    /// \param last  true ends the stream
    /// \return data from which everything so far can be decompressed
    virtual std::string compress(std::string_view data, bool last) = 0;
};

/// \return null for Compression::None
std::unique_ptr<Compressor> makeCompressor(Compression compression);

/// Decompresses a stream, or several in a row.
class Decompressor
{
public:
    virtual ~Decompressor() = default;
    /// \param[out] output  the decompressed data is appended
    /// \return false if the data is damaged; \p output then has what came before
    virtual bool decompress(std::string_view data, std::string& output) = 0;
};

/// \return null for Compression::None
std::unique_ptr<Decompressor> makeDecompressor(Compression compression);

} // namespace TelvaneTool
