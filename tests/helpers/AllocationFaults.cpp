// One switch and one count for all allocations, so that "the third one" means the same whoever makes it. The
// functions are out of line: inlined, malloc and free would look like a mismatched pair to the compiler.

#include "helpers/AllocationFaults.h"

#include <cjson/cJSON.h>

#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace Telvane::Testing
{

namespace
{

constexpr int kNobody = -1;

std::atomic<int> victim{kNobody}; ///< a Caller
std::atomic<int> left{0};         ///< allocations until the failing one
std::atomic<bool> lasting{false};
std::atomic<bool> failed{false};
std::atomic<std::ptrdiff_t> live{0};
std::atomic<std::ptrdiff_t> liveBytes{0};
std::atomic<std::ptrdiff_t> mostBytes{0};

void countBytes(std::ptrdiff_t change)
{
    const std::ptrdiff_t now = liveBytes.fetch_add(change) + change;
    std::ptrdiff_t most = mostBytes;
    while (now > most && !mostBytes.compare_exchange_weak(most, now)) {
    }
}

bool strikesNow()
{
    const int wanted = victim;
    if (wanted == kNobody || wanted != static_cast<int>(currentCaller())) {
        return false;
    }
    const int before = left.fetch_sub(1);
    if (before == 1 || (before < 1 && lasting)) {
        failed = true;
        return true;
    }
    return false;
}

[[gnu::noinline]] void* allocate(std::size_t size)
{
    void* const block = strikesNow() ? nullptr : std::malloc(size != 0 ? size : 1);
    if (block != nullptr) {
        ++live;
        countBytes(static_cast<std::ptrdiff_t>(::malloc_usable_size(block)));
    }
    return block;
}

[[gnu::noinline]] void release(void* block)
{
    if (block != nullptr) {
        --live;
        countBytes(-static_cast<std::ptrdiff_t>(::malloc_usable_size(block)));
        std::free(block);
    }
}

/// The JSON library's memory, from before its first use.
const bool hooked = [] {
    cJSON_Hooks hooks = {&allocate, &release};
    cJSON_InitHooks(&hooks);
    return true;
}();

} // namespace

AllocationFault::AllocationFault(Caller caller, int nth, Shortage shortage)
    : m_caller(caller), m_nth(nth), m_shortage(shortage)
{}

void AllocationFault::begin()
{
    left = m_nth;
    lasting = m_shortage == Shortage::Persistent;
    failed = false;
    victim = static_cast<int>(m_caller);
}

void AllocationFault::end()
{
    if (victim.exchange(kNobody) != kNobody) {
        m_triggered = failed;
    }
}

std::ptrdiff_t liveBlocks()
{
    return live;
}

MemoryGauge::MemoryGauge() : m_before(liveBytes)
{
    mostBytes = m_before;
}

std::ptrdiff_t MemoryGauge::growth() const
{
    return liveBytes - m_before;
}

std::ptrdiff_t MemoryGauge::peak() const
{
    return mostBytes - m_before;
}

} // namespace Telvane::Testing

using Telvane::Testing::allocate;
using Telvane::Testing::release;

void* operator new(std::size_t size)
{
    void* const block = allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void operator delete(void* block) noexcept
{
    release(block);
}

void operator delete[](void* block) noexcept
{
    release(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    release(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    release(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept
{
    release(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    release(block);
}
