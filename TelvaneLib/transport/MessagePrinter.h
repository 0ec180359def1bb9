#pragma once

// Prints messages into a buffer that is kept from one to the next, with numbers as ready digits.

#include "support/JsonTree.h"

#include <memory>

namespace Telvane
{

/// Only for trees of the library's own that are deleted right after: their number nodes do not survive.
/// Not for two threads at a time.
class MessagePrinter
{
public:
    enum class Form
    {
        Compact,
        Formatted,
    };

    MessagePrinter() = default;
    ~MessagePrinter();
    MessagePrinter(const MessagePrinter&) = delete;
    MessagePrinter& operator=(const MessagePrinter&) = delete;

    /// Replaces the numbers in \p tree by raw nodes that hold the digits to print, until the next print().
    /// Does not go into references, whose children belong to somebody else.
    void preformatNumbers(cJSON* tree);

    /// Readies the numbers of \p message and prints it. A text of more than kMessageLimit bytes may end
    /// there.
    /// \return the text, valid until the next print(); null when memory runs out
    const char* print(cJSON* message, Form form);

    /// \return the length of the text printed last; at least kMessageLimit when that was cut
    int length() const { return m_length; }

private:
    struct DigitBlock;

    const char* printIntoBuffer(cJSON* message, bool formatted);
    char* roomForNumber();

    std::unique_ptr<char[]> m_buffer;
    int m_size = 0;
    int m_length = 0;
    JsonText m_large;

    DigitBlock* m_firstBlock = nullptr;
    DigitBlock* m_block = nullptr;
    int m_blockUsed = 0;
};

} // namespace Telvane
