#include "weld/LatencyTracker.h"

#include "common/bus/BusConnection.h"
#include "common/cli/Messages.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace TelvaneTool
{

/// All zero, as the file begins, is the state before anything has happened.
struct LatencyTracker::Page
{
    /// More than a listener can be behind: the records in between would have to lie in a socket's buffer.
    static constexpr std::size_t kSlots = 65536;

    struct Slot
    {
        std::atomic<std::int64_t> serial;
        std::atomic<std::int64_t> time;
    };

    std::atomic<std::uint64_t> published;
    std::atomic<std::uint32_t> listening;
    std::atomic<std::uint32_t> finished;
    std::array<Slot, kSlots> slots;

    Slot& slotOf(int serial) { return slots[static_cast<unsigned>(serial) % kSlots]; }
};

static_assert(std::atomic<std::int64_t>::is_always_lock_free, "shared between processes");

LatencyTracker::~LatencyTracker()
{
    if (m_page != nullptr) {
        munmap(m_page, sizeof(Page));
    }
}

bool LatencyTracker::open(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* page = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof(Page)) == 0) {
        page = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (page == MAP_FAILED) {
        printError("cannot use " + path + " as a ledger: " + std::strerror(errno));
    } else {
        m_page = static_cast<Page*>(page);
    }
    if (fd >= 0) {
        close(fd);
    }
    return m_page != nullptr;
}

void LatencyTracker::note(int serial)
{
    Page::Slot& slot = m_page->slotOf(serial);
    slot.serial.store(-1, std::memory_order_relaxed);
    slot.time.store(monotonicNow(), std::memory_order_release);
    slot.serial.store(serial, std::memory_order_release);
    m_page->published.fetch_add(1);
}

void LatencyTracker::finish()
{
    m_page->finished = 1;
}

void LatencyTracker::listen()
{
    m_page->listening = 1;
}

bool LatencyTracker::hasListener() const
{
    return m_page->listening != 0;
}

bool LatencyTracker::finished() const
{
    return m_page->finished != 0;
}

std::uint64_t LatencyTracker::published() const
{
    return m_page->published;
}

Nanoseconds LatencyTracker::published(int serial) const
{
    const Page::Slot& slot = m_page->slotOf(serial);
    if (slot.serial.load(std::memory_order_acquire) != serial) {
        return 0;
    }
    const Nanoseconds time = slot.time.load(std::memory_order_acquire);
    return slot.serial.load(std::memory_order_relaxed) == serial ? time : 0;
}

} // namespace TelvaneTool
