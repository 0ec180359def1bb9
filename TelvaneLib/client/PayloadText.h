#pragma once

// A payload that is handed to the application as text. It takes the place of the record, so that it passes through the
// same queues.

#include <Telvane/TelvaneDataTypeBase.h>

#include <string>
#include <string_view>

namespace Telvane::Detail
{

class PayloadText : public TelvaneDataTypeBase
{
public:
    PayloadText() = default;
    /// \param keeps whether to copy the text, which is otherwise referenced
    PayloadText(std::string_view text, bool keeps) : m_own(keeps ? text : std::string_view()), m_text(text)
    {
        if (keeps) {
            m_text = m_own;
        }
    }
    PayloadText(const PayloadText&) = delete;
    PayloadText& operator=(const PayloadText&) = delete;

    std::string_view text() const { return m_text; }

    TelvaneDataTypeBase* BuildNewDataType() const override { return new PayloadText; }

private:
    std::string m_own;
    std::string_view m_text;
};

} // namespace Telvane::Detail
