#pragma once

// Makes a chosen allocation of a chosen kind of thread fail. Programs that link this have the allocation
// functions of C++ and of the JSON library replaced. FaultInjection.h distinguishes the threads.

#include "helpers/FaultInjection.h"

#include <cstddef>

namespace Telvane::Testing
{

enum class Shortage
{
    Once,       ///< one allocation fails
    Persistent, ///< all allocations from the chosen one on fail
};

/// Makes allocation \p nth after begin() fail, counted from 1, until end(). Use one at a time.
class AllocationFault
{
public:
    AllocationFault(Caller caller, int nth, Shortage shortage);
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault() { end(); }

    void begin();
    void end();

    /// Runs \p action between begin() and end(). \return its result
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

    /// \return whether an allocation has failed; call it after end()
    bool triggered() const { return m_triggered; }

private:
    const Caller m_caller;
    const int m_nth;
    const Shortage m_shortage;
    bool m_triggered = false;
};

/// \return the count of allocated blocks
std::ptrdiff_t liveBlocks();

/// Growth of the allocated memory since construction, in bytes.
class MemoryGauge
{
public:
    MemoryGauge();
    std::ptrdiff_t growth() const;
    std::ptrdiff_t peak() const;

private:
    std::ptrdiff_t m_before;
};

/// Runs \p operation(fault) repeatedly, each time with the next allocation failing, until it runs without a
/// failure. The operation calls begin() and end(). \return its count of allocations
template <class Operation>
int failEachAllocation(Caller caller, Shortage shortage, Operation operation)
{
    for (int nth = 1;; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        AllocationFault fault(caller, nth, shortage);
        operation(fault);
        if (!fault.triggered() || ::testing::Test::HasFatalFailure()) {
            return nth - 1;
        }
    }
}

/// For tests that run with both kinds of shortage.
class UnderShortage : public ::testing::TestWithParam<Shortage>
{
protected:
    /// As failEachAllocation(); the operation must allocate.
    template <class Operation>
    void failEach(Caller caller, Operation operation)
    {
        EXPECT_GT(failEachAllocation(caller, GetParam(), operation), 0);
    }
};

inline std::string nameOfShortage(const ::testing::TestParamInfo<Shortage>& shortage)
{
    return shortage.param == Shortage::Once ? "Once" : "Persistent";
}

} // namespace Telvane::Testing
