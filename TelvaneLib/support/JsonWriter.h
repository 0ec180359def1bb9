#pragma once

// Writes JSON text as the JSON library's formatted printer prints it, without a tree.

#include <cjson/cJSON.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace Telvane
{

/// Writes a text from front to back into a buffer that is reused for the next text. Text beyond the limit is dropped. If
/// memory runs out, the whole text fails, which finish() reports.
class JsonWriter
{
public:
    explicit JsonWriter(std::size_t limit) : m_limit(limit) {}

    /// Starts a new text.
    void clear();

    void put(std::string_view text);
    /// Ends the line and indents the next one.
    void newLine(int depth);
    /// Begins an object's member, with the comma and the line before it.
    /// \param key contains no character that needs an escape
    void key(std::string_view key, bool first, int depth);

    /// \name Values
    /// @{
    void integer(int value);
    void number(double value);
    void flag(bool value);
    void string(const char* value);
    /// \param write writes at most 80 characters that need no escapes to its argument, and returns their end
    template <class Write>
    void shortString(Write write)
    {
        if (reservePiece()) {
            *m_next = '"';
            m_next = write(m_next + 1);
            *m_next++ = '"';
        }
    }
    /// Without memory, or if the tree holds what the library does not print either, the text fails.
    /// \param depth objects and arrays around the value
    void tree(const cJSON* value, int depth);
    /// @}

    /// \return how much is written, for rewind()
    std::size_t position() const { return static_cast<std::size_t>(m_next - m_buffer.get()); }
    /// Drops all that was written after \p position.
    void rewind(std::size_t position) { m_next = m_buffer.get() + position; }

    /// Makes finish() report that memory has run out.
    void fail() { m_failed = true; }

    /// \return the text, terminated and valid until the next change; null when it could not be written
    const char* finish();

    /// \return the length of the text that finish() returned
    std::size_t length() const { return position(); }

private:
    std::size_t room() const { return static_cast<std::size_t>(m_end - m_next); }
    void grow(std::size_t size);
    bool reserve(std::size_t size);
    bool reservePiece();
    void escape(char c);
    void scalar(const cJSON* value);
    void separate(const cJSON* item, bool first, bool isMember, int depth);

    const std::size_t m_limit;
    std::unique_ptr<char[]> m_buffer;
    char* m_next = nullptr;
    char* m_end = nullptr; ///< of what is allocated
    bool m_failed = false;
};

} // namespace Telvane
