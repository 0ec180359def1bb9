#pragma once

#include "common/bus/DecodedRecord.h"

#include <Telvane/WeldRecords.h>

#include <optional>

namespace TelvaneTool
{

/// A prototype for subscriptions to samples, for speed: the library reads a sample straight from its text. If it cannot,
/// the payload is decoded like all others.
class SampleRecord : public Telvane::WeldTraceData
{
public:
    /// \return whether the members are set; else only decoded() is
    bool isRead() const { return !m_decoded; }
    /// \return the sample, or what arrived in its place, as any other record
    const DecodedRecord& decoded();

    bool _unpackageData(cJSON* input) override;
    int copy(TelvaneDataTypeBase* other) override;
    TelvaneDataTypeBase* BuildNewDataType() const override;
    const Telvane::RecordTable* _recordTable() const override;

private:
    std::optional<DecodedRecord> m_decoded;
};

} // namespace TelvaneTool
