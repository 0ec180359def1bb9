#pragma once

#include "common/bus/DecodedRecord.h"

#include <string>
#include <string_view>

namespace TelvaneTool::Mqtt
{

/// Makes one line of payloads that arrive as text: the same line as DecodedRecord makes of their trees, but without a
/// tree for payloads that the library has printed.
class PayloadDecoder
{
public:
    /// \param recordClass null to keep payloads as received
    explicit PayloadDecoder(const Telvane::RecordClass* recordClass);

    /// \param      payload one JSON value
    /// \param[out] json    set to the decoded record on one line; to the payload if it cannot be decoded
    /// \return why the payload cannot be decoded; empty if it was. Throws `std::bad_alloc`.
    std::string decode(std::string_view payload, std::string& json) const;

    /// The same without a tree.
    /// \return false if that needs decode(); \p json is then undefined
    bool decodePrinted(std::string_view payload, std::string& json) const;

private:
    const DecodedRecord m_prototype;
    const bool m_hasClass;
    const Telvane::RecordTable* m_table = nullptr; ///< null if the class writes itself, and without a class
};

} // namespace TelvaneTool::Mqtt
