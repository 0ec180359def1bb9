#pragma once

// What the fuzz targets share: stating a promise, keeping the library's diagnostics off the terminal, and
// taking an input apart.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// What a target is: called with every input, in one process. It ends the process when a promise is broken.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Telvane
{

/// Ends the process, so that the input is kept, unless the promise holds.
inline void require(bool holds, const char* promise)
{
    if (!holds) {
        std::fprintf(stderr, "Broken promise: %s\n", promise);
        std::abort();
    }
}

/// The same for two texts that must not differ.
inline void requireSame(std::string_view actual, std::string_view expected, const char* promise)
{
    if (actual != expected) {
        std::fprintf(stderr, "Broken promise: %s\n--- expected\n%.*s\n--- actual\n%.*s\n---\n", promise,
                     static_cast<int>(expected.size()), expected.data(), static_cast<int>(actual.size()),
                     actual.data());
        std::abort();
    }
}

/// Waits until \p holds() for what another thread does without a signal to wait for. No time that any machine
/// takes for it comes near the deadline.
template <class Condition>
void requireSoon(Condition holds, const char* promise)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!holds()) {
        require(std::chrono::steady_clock::now() < deadline, promise);
        std::this_thread::yield();
    }
}

/// Takes everything and keeps nothing.
class NullBuffer : public std::streambuf
{
protected:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
};

/// The library reports nearly every input on the standard streams, which would cost more than everything
/// else. To be called before there are threads; what goes through stdio is still seen.
inline void silenceDiagnostics()
{
    static NullBuffer* const nowhere = [] {
        auto* const buffer = new NullBuffer(); // stays: streams are used until the very end
        std::cout.rdbuf(buffer);
        std::cerr.rdbuf(buffer);
        return buffer;
    }();
    static_cast<void>(nowhere);
}

/// Not JSON, so it is dropped and counted: whoever has counted it is done with everything before, and has
/// nothing allocated any more that could look like a leak.
constexpr std::string_view kSweep = "?";

/// Parts the packets of a conversation: a byte that JSON has no use for, so that seeds stay readable.
constexpr char kPacketSeparator = '\x1e';

inline std::vector<std::string_view> packetsOf(std::string_view input)
{
    std::vector<std::string_view> packets;
    for (;;) {
        const std::size_t end = input.find(kPacketSeparator);
        packets.push_back(input.substr(0, end));
        if (end == std::string_view::npos) {
            return packets;
        }
        input.remove_prefix(end + 1);
    }
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

} // namespace Telvane
