#pragma once

// The processes of a soak run, and the shared memory in which each reports its progress outside of the bus.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace Soak
{

/// Time-out for expected events.
constexpr std::chrono::seconds kTimeout{60};

/// A failed check.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The reports of one process, which persist when it is killed and restarted.
struct Slot
{
    std::atomic<bool> leave{false};           ///< request to end
    std::atomic<std::uint64_t> operations{0}; ///< successful operations
    std::atomic<std::uint64_t> answered{0};   ///< requests that were answered
    std::atomic<std::uint64_t> joined{0};     ///< connections made
    std::atomic<std::uint64_t> last{0};       ///< number of the last record published or received
    std::atomic<std::uint64_t> violations{0}; ///< violations of the bus's guarantees
    char firstViolation[200] = {};

    /// Reports a violation of the bus's guarantees.
    void reportViolation(const std::string& what);
};

constexpr std::size_t kSlots = 64;

struct Board
{
    std::atomic<std::uint64_t> allowed{0}; ///< highest number that a paced publisher may publish
    std::array<Slot, kSlots> slots;
};

/// Processes, and a directory with the shared memory, the socket and the logs. The destructor ends the
/// processes.
class ProcessPool
{
public:
    ProcessPool();
    ProcessPool(const ProcessPool&) = delete;
    ProcessPool& operator=(const ProcessPool&) = delete;
    ~ProcessPool();

    Board& board() { return *m_board; }
    Slot& slot(std::size_t index) { return m_board->slots[index]; }
    std::string socketPath() const { return m_directory + "/bus"; }

    /// Starts this program in \p role. \return the index of its slot
    std::size_t start(const std::string& role, const std::vector<std::string>& arguments = {});
    /// Restarts the process of a slot.
    void restart(std::size_t index);
    void signal(std::size_t index, int number) const;
    /// Kills a process and waits for its end.
    void kill(std::size_t index);
    /// Requests a process to end, and waits. \throws Failure if it fails
    void stop(std::size_t index);
    /// Stops all processes, the last one first.
    void finish();
    pid_t process(std::size_t index) const { return m_members[index].process; }
    const std::string& role(std::size_t index) const { return m_members[index].role; }

    /// \throws Failure if a process has ended by itself or reported a violation
    void inspect();

    /// Waits until \p condition is true. \throws Failure with \p what after a time-out
    template <class Condition>
    void await(const std::string& what, Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + kTimeout;
        while (!condition()) {
            inspect();
            if (std::chrono::steady_clock::now() > deadline) {
                throw Failure("did not happen within " + std::to_string(kTimeout.count()) + " s: " + what);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    /// Waits until the process of a slot completes another operation.
    void awaitOperation(std::size_t index);

private:
    struct Member
    {
        std::string role;
        std::vector<std::string> arguments;
        pid_t process;
    };

    pid_t launch(const Member& member, std::size_t index) const;
    std::string logTail() const;

    std::string m_directory;
    Board* m_board = nullptr;
    std::vector<Member> m_members;
};

/// What a process started by a pool knows.
struct RoleContext
{
    Board& board;
    Slot& slot;
    std::string socketPath;
    std::vector<std::string> arguments;

    bool over() const { return slot.leave; }
};

/// Runs the role in the arguments, if there is one.
/// \return whether there is one; \p result is then the exit code
bool runRole(int argc, char** argv, int& result);

/// Resources of a process.
struct Footprint
{
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::size_t residentKiB = 0;
};
Footprint footprintOf(pid_t process);

} // namespace Soak
