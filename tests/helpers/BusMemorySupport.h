#pragma once

// What the tests of a bus without memory share.

#include "helpers/AllocationFaults.h"
#include "helpers/BusTestSupport.h"

#include <Telvane/DeviceRecords.h>

#include <string>

namespace Telvane::Testing
{

// Longer than what a text holds without an allocation.
inline const std::string kChannel = "a_channel_with_quite_a_long_name";

inline HALInfo exampleRecord(int number)
{
    HALInfo record;
    record.serialNumber = "a serial number of more than sixteen characters";
    record.machineType = "a machine type of more than sixteen characters";
    record.revisionNumber = number;
    return record;
}

/// Counts the calls of one kind on one kind of thread, which tells how far that thread is.
class Progress
{
public:
    Progress(Call call, Caller caller) : m_counting({call, caller, 0, 0, 0}) {}

    /// Runs \p action, and waits until the thread has come to its next call.
    template <class Action>
    bool afterNextCallOf(Action action)
    {
        const int before = m_counting.calls();
        action();
        return eventually([&] { return m_counting.calls() > before; });
    }

private:
    Fault m_counting;
};

} // namespace Telvane::Testing
