#pragma once

#include <Telvane/TelvaneDataTypeBase.h>

#include <memory>
#include <mutex>
#include <string>

namespace TelvaneTool
{

/// The last payload of a channel. Payloads are printed only if somebody has asked since the previous one, because
/// a channel can carry thousands in a second.
struct LatestPayload
{
    std::mutex lock;
    bool wanted = true;
    std::string text;
    std::int64_t time = 0; ///< when it arrived, wall clock
    std::uint64_t count = 0;
};

/// A prototype for subscriptions that keeps the last payload of any class.
class LatestRecord : public Telvane::TelvaneDataTypeBase
{
public:
    explicit LatestRecord(std::shared_ptr<LatestPayload> latest) : m_latest(std::move(latest)) {}

    bool _packageData(cJSON* output) override;
    bool _unpackageData(cJSON* input) override;
    int copy(TelvaneDataTypeBase* other) override;
    TelvaneDataTypeBase* BuildNewDataType() const override;

private:
    std::shared_ptr<LatestPayload> m_latest;
};

} // namespace TelvaneTool
