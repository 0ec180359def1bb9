#pragma once

#include "archive/samples/Sample.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneArchive
{

/// Bytes of a chunk at most, compressed, with its header.
constexpr std::size_t kMaxChunk = std::size_t{64} * 1024;
/// Samples of a chunk at most.
constexpr std::size_t kMaxChunkSamples = 4096;
constexpr std::size_t kChunkHeader = 40;

/// What the header of a chunk says.
struct ChunkHeader
{
    std::uint32_t size = 0;    ///< of the whole chunk, in bytes
    std::int64_t weld = 0;     ///< id of the weld in the database of its file
    std::uint32_t number = 0;  ///< of the chunk in its weld, from 0
    std::uint32_t samples = 0; ///< number of samples
    std::uint32_t rawSize = 0; ///< of the columns before compression
};

/// Samples as columns, compressed with zstd. Every number comes back bit for bit.
/// \param samples  1 to kMaxChunkSamples
/// \return the chunk; empty if it would exceed kMaxChunk: store the samples as two
std::string encodeChunk(const Sample* samples, std::size_t count, std::int64_t weld, std::uint32_t number);

/// Reads a header.
/// \param data  begins with a chunk
/// \return false if it is not the header of a chunk that could be here
bool readChunkHeader(std::string_view data, ChunkHeader& header);

/// Reads a chunk, whatever its bytes.
/// \param[out] samples  the chunk's samples are appended
/// \return false if the chunk is damaged
bool decodeChunk(std::string_view chunk, ChunkHeader& header, std::vector<Sample>& samples);

/// \return the data compressed by zstd in one frame
std::string pack(std::string_view data);
/// \return false if the data is damaged or larger than \p limit
bool unpack(std::string_view data, std::size_t limit, std::string& output);

} // namespace TelvaneArchive
