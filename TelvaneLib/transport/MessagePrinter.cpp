// The JSON library formats numbers with sprintf and sscanf, and prints into memory that it allocates,
// enlarges and copies each time. Both cost more than the rest of printing. So it gets numbers as raw nodes
// with the same digits, and a buffer that is reused. If memory runs out, it prints in its own way.
//
// A formatted text grows with depth times size: a message of 16 KiB can become megabytes, of which only the
// message limit is sent. So printing stops at the end of the buffer.

#include "transport/MessagePrinter.h"

#include "support/NumberText.h"
#include "transport/SeqpacketSocket.h"

#include <climits>
#include <cstring>
#include <new>

namespace Telvane
{

namespace
{

// Enough for most messages; and for any message that can be received.
constexpr int kInitialBuffer = 4096;
constexpr int kMaxBuffer = 65536;
constexpr int kBlockSize = 4096 - static_cast<int>(sizeof(void*));

} // namespace

struct MessagePrinter::DigitBlock
{
    DigitBlock* next = nullptr;
    char texts[kBlockSize]; // not initialised
};

MessagePrinter::~MessagePrinter()
{
    while (m_firstBlock != nullptr) {
        DigitBlock* const next = m_firstBlock->next;
        delete m_firstBlock;
        m_firstBlock = next;
    }
}

char* MessagePrinter::allocateNumber()
{
    if (m_block == nullptr || m_blockUsed + kNumberTextSize > kBlockSize) {
        DigitBlock*& next = m_block == nullptr ? m_firstBlock : m_block->next;
        if (next == nullptr) {
            next = new (std::nothrow) DigitBlock;
        }
        if (next == nullptr) {
            return nullptr;
        }
        m_block = next;
        m_blockUsed = 0;
    }
    return m_block->texts + m_blockUsed;
}

void MessagePrinter::preformatNumbers(cJSON* tree)
{
    if (tree == nullptr || (tree->type & cJSON_IsReference) != 0) {
        return;
    }
    if ((tree->type & 0xFF) == cJSON_Number) {
        if (char* const text = allocateNumber()) {
            m_blockUsed += static_cast<int>(formatNumber(tree->valuedouble, text) - text) + 1;
            tree->type = (tree->type & ~0xFF) | cJSON_Raw | cJSON_IsReference;
            tree->valuestring = text;
        }
        return;
    }
    for (cJSON* child = tree->child; child != nullptr; child = child->next) {
        preformatNumbers(child);
    }
}

const char* MessagePrinter::print(cJSON* message, Form form)
{
    preformatNumbers(message);
    const bool formatted = form == Form::Formatted;
    const char* text = printIntoBuffer(message, formatted);
    if (text == nullptr) {
        m_large.reset(formatted ? cJSON_Print(message) : cJSON_PrintUnformatted(message));
        text = m_large.get();
    }
    m_block = nullptr;
    if (text != nullptr) {
        const std::size_t length = std::strlen(text);
        m_length = length < INT_MAX ? static_cast<int>(length) : INT_MAX;
    }
    return text;
}

const char* MessagePrinter::printIntoBuffer(cJSON* message, bool formatted)
{
    m_large.reset();
    for (;;) {
        if (m_buffer != nullptr) {
            if (m_size > kMessageLimit) {
                m_buffer[kMessageLimit - 1] = '\0'; // shows whether the text reaches this far
            }
            if (cJSON_PrintPreallocated(message, m_buffer.get(), m_size, formatted ? 1 : 0) != 0) {
                return m_buffer.get();
            }
        }
        const int larger = m_buffer == nullptr ? kInitialBuffer : m_size * 4;
        if (larger > kMaxBuffer) {
            // The library writes from front to back, so the text up to the limit is complete.
            m_buffer[kMessageLimit] = '\0';
            return m_buffer[kMessageLimit - 1] != '\0' ? m_buffer.get() : nullptr;
        }
        char* const buffer = new (std::nothrow) char[static_cast<std::size_t>(larger)];
        if (buffer == nullptr) {
            return nullptr;
        }
        m_buffer.reset(buffer);
        m_size = larger;
    }
}

} // namespace Telvane
