#include "top/LatestPayloads.h"

#include "common/cli/ExitCodes.h"
#include "common/support/Json.h"

#include <cerrno>

namespace TelvaneTool
{

using Telvane::TelvaneDataTypeBase;

/// The client creates one for each message, reads the payload into it and deletes it.
class SampledRecord : public TelvaneDataTypeBase
{
public:
    explicit SampledRecord(std::shared_ptr<LatestPayloads::Slot> slot) : m_slot(std::move(slot)) {}

    bool _packageData(cJSON* /*output*/) override { return false; }
    bool _unpackageData(cJSON* input) override
    {
        const std::lock_guard<std::mutex> guard(m_slot->lock);
        if (m_slot->wanted) {
            m_slot->text = printJson(input);
            m_slot->wanted = false;
        }
        return true;
    }
    int copy(TelvaneDataTypeBase* /*other*/) override { return -EINVAL; }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new SampledRecord(m_slot); }

private:
    std::shared_ptr<LatestPayloads::Slot> m_slot;
};

int LatestPayloads::subscribe(BusConnection& bus, const std::string& channel)
{
    auto& slot = m_slots[channel];
    if (slot != nullptr) {
        return kSuccess;
    }
    slot = std::make_shared<Slot>();
    return bus.subscribe(channel, SampledRecord(slot), [](void*, TelvaneDataTypeBase*, int, void*) {});
}

std::map<std::string, std::string> LatestPayloads::take()
{
    std::map<std::string, std::string> texts;
    for (const auto& [channel, slot] : m_slots) {
        const std::lock_guard<std::mutex> guard(slot->lock);
        slot->wanted = true;
        if (!slot->text.empty()) {
            texts[channel].swap(slot->text);
        }
    }
    return texts;
}

} // namespace TelvaneTool
