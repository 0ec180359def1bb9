// Every process that uses the file holds a shared lock on it. A process that gets an exclusive lock is the only one.
// The contents of the file are then from an earlier run, and are reset.

#include "weld/LatencyTracker.h"

#include "common/cli/Messages.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr std::uint64_t kMark = 0x3152474C564C5400; ///< identifies a ledger

std::string systemError()
{
    return std::strerror(errno);
}

} // namespace

/// All zero except the mark is the initial state.
struct LatencyTracker::Page
{
    /// More than a listener can fall behind: the records in between would have to be in a socket's buffer.
    static constexpr std::size_t kSlots = 65536;

    struct Slot
    {
        std::atomic<std::int64_t> serial;
        std::atomic<std::int64_t> time;
    };

    std::uint64_t mark;
    std::atomic<std::uint64_t> published;
    std::atomic<std::uint32_t> publishers;
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

bool LatencyTracker::open(const std::string& path, Role role)
{
    m_file = FileDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600));
    std::string error = m_file.isOpen() ? prepare() : systemError();
    if (error.empty() && role == Role::Publisher && m_page->publishers.exchange(1) != 0) {
        error = "it is in use by another run";
    }
    if (error.empty()) {
        return true;
    }
    printError("cannot use " + path + " as a ledger: " + error);
    if (m_page != nullptr) {
        munmap(m_page, sizeof(Page));
        m_page = nullptr;
    }
    return false;
}

std::string LatencyTracker::prepare()
{
    const int fd = m_file.get();
    const bool alone = flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (!alone && (errno != EWOULDBLOCK || flock(fd, LOCK_SH) != 0)) {
        return systemError();
    }
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        return systemError();
    }
    std::uint64_t mark = 0;
    const bool isNew = S_ISREG(status.st_mode) && status.st_size == 0;
    if (!isNew && (!S_ISREG(status.st_mode) || status.st_size != sizeof(Page) ||
                   pread(fd, &mark, sizeof mark, 0) != sizeof mark || mark != kMark)) {
        return "the file exists and is not a ledger";
    }
    // Truncating first sets everything to zero. Unlike an access through the mapping, allocating reports a full
    // disk.
    if (alone) {
        if (ftruncate(fd, 0) != 0) {
            return systemError();
        }
        if (const int result = posix_fallocate(fd, 0, sizeof(Page)); result != 0) {
            return std::strerror(result);
        }
        if (pwrite(fd, &kMark, sizeof kMark, 0) != sizeof kMark) {
            return systemError();
        }
    }
    return share();
}

std::string LatencyTracker::share()
{
    void* const page = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, m_file.get(), 0);
    if (page == MAP_FAILED) {
        return systemError();
    }
    m_page = static_cast<Page*>(page);
    // From exclusive to shared, the lock may pass through another process that resets the still unused page.
    return flock(m_file.get(), LOCK_SH) == 0 ? std::string() : systemError();
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
