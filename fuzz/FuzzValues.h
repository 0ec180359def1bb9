#pragma once

// Takes values of members from the bytes of an input.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace Telvane
{

/// Values from the bytes of an input, and zeros after them.
class Values
{
public:
    explicit Values(std::string_view bytes) : m_bytes(bytes) {}

    template <class Value>
    Value take()
    {
        Value value = {};
        const std::size_t size = std::min(sizeof value, m_bytes.size());
        std::memcpy(&value, m_bytes.data(), size);
        m_bytes.remove_prefix(size);
        return value;
    }

    bool takeFlag() { return take<unsigned char>() % 2 != 0; }

    /// A long text needs few bytes, which it then repeats.
    std::string takeText()
    {
        constexpr std::size_t kMaxCount = 256;
        const std::size_t length = take<std::uint16_t>();
        const std::string_view pattern = m_bytes.substr(0, std::min(length, kMaxCount));
        m_bytes.remove_prefix(pattern.size());
        std::string text;
        while (text.size() < length && !pattern.empty()) {
            text += pattern.substr(0, length - text.size());
        }
        return text;
    }

private:
    std::string_view m_bytes;
};

} // namespace Telvane
