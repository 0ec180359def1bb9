// The JSON library builds and prints every message. Two of its habits cost more than all the rest, though: it
// formats each number by way of sprintf and sscanf, and it prints into memory that it allocates, grows and
// copies each time. So numbers are handed to it as raw nodes that hold the very digits it would print, and it
// prints into a buffer that stays. Where memory runs out, its own ways remain.
//
// A formatted text grows with depth times size: a publication of 16 KiB can be one of megabytes, of which no
// more than the message limit travels. So printing ends where the buffer does.

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

// Enough for most messages; and the largest that is kept, large enough for any message that arrives.
constexpr int kFirstBuffer = 4096;
constexpr int kLargestBuffer = 65536;
constexpr int kBlockSize = 4096 - static_cast<int>(sizeof(void*));

} // namespace

struct MessagePrinter::DigitBlock
{
    DigitBlock* next = nullptr;
    char texts[kBlockSize]; // written before they are read
};

MessagePrinter::~MessagePrinter()
{
    while (m_firstBlock != nullptr) {
        DigitBlock* const next = m_firstBlock->next;
        delete m_firstBlock;
        m_firstBlock = next;
    }
}

char* MessagePrinter::roomForNumber()
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
        if (char* const text = roomForNumber()) {
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
                m_buffer[kMessageLimit - 1] = '\0'; // shows whether the text has come that far
            }
            if (cJSON_PrintPreallocated(message, m_buffer.get(), m_size, formatted ? 1 : 0) != 0) {
                return m_buffer.get();
            }
        }
        const int larger = m_buffer == nullptr ? kFirstBuffer : m_size * 4;
        if (larger > kLargestBuffer) {
            // Texts are written from front to back: what stands before the limit is what would travel.
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
