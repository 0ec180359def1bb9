#pragma once

// Lets memory run out at a chosen allocation of a chosen kind of thread. Programs that link this have the
// C++ allocation functions replaced and the JSON library's led to the same place; threads are told apart by
// FaultInjection.h.

#include "helpers/FaultInjection.h"

#include <cstddef>

namespace Telvane::Testing
{

enum class Shortage
{
    Once,    ///< one allocation fails, those after it succeed
    Lasting, ///< no allocation succeeds from then on
};

/// Between begin() and end() the allocation number \p nth, counted from 1, fails. One at a time.
class AllocationFault
{
public:
    AllocationFault(Caller caller, int nth, Shortage shortage);
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault() { end(); }

    void begin();
    void end();

    /// Runs \p action on this thread with the fault in force. \return what it returns
    template <class Action>
    auto during(Action action)
    {
        begin();
        struct AtEnd
        {
            ~AtEnd() { fault.end(); }
            AllocationFault& fault;
        } atEnd{*this};
        return action();
    }

    /// \return whether any allocation has failed; to be asked after end()
    bool struck() const { return m_struck; }

private:
    const Caller m_caller;
    const int m_nth;
    const Shortage m_shortage;
    bool m_struck = false;
};

/// \return how many blocks are allocated at present
std::ptrdiff_t liveBlocks();

/// How much more memory is allocated than when it was made, now and at most.
class MemoryGauge
{
public:
    MemoryGauge();
    std::ptrdiff_t growth() const;
    std::ptrdiff_t peak() const;

private:
    std::ptrdiff_t m_before;
};

/// Runs \p operation(fault) with the first allocation failing, then with the second, and so on, until it
/// makes no more. The operation says from when to when. \return how many allocations it made
template <class Operation>
int failEachAllocation(Caller caller, Shortage shortage, Operation operation)
{
    for (int nth = 1;; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        AllocationFault fault(caller, nth, shortage);
        operation(fault);
        if (!fault.struck() || ::testing::Test::HasFatalFailure()) {
            return nth - 1;
        }
    }
}

/// Tests that run for both kinds of shortage.
class UnderShortage : public ::testing::TestWithParam<Shortage>
{};

inline std::string nameOfShortage(const ::testing::TestParamInfo<Shortage>& shortage)
{
    return shortage.param == Shortage::Once ? "Once" : "Lasting";
}

} // namespace Telvane::Testing
