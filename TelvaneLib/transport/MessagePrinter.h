#pragma once

// Prints messages into a buffer that is reused, with preformatted numbers.

#include "support/JsonTree.h"

#include <memory>

namespace Telvane
{

/// Changes number nodes of the trees that it prints, so it is only for trees that are deleted afterwards. Not
/// for two threads at a time.
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

    /// Replaces the numbers in \p tree with raw nodes that hold their digits until the next print(). Skips
    /// references, whose children belong to another tree.
    void preformatNumbers(cJSON* tree);

    /// Preformats the numbers of \p message and prints it. A text of more than kMessageLimit bytes may be cut
    /// there.
    /// \return the text, valid until the next print(); null if memory runs out
    const char* print(cJSON* message, Form form);

    /// \return the length of the last text; at least kMessageLimit if it was cut
    int length() const { return m_length; }

private:
    struct DigitBlock;

    const char* printIntoBuffer(cJSON* message, bool formatted);
    char* allocateNumber();

    std::unique_ptr<char[]> m_buffer;
    int m_size = 0;
    int m_length = 0;
    JsonText m_large;

    DigitBlock* m_firstBlock = nullptr;
    DigitBlock* m_block = nullptr;
    int m_blockUsed = 0;
};

} // namespace Telvane
