#pragma once

// The processes of a soak run, and the board that they share: memory of counters, which tells the run how
// each process fares without taking part in the bus itself.

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

/// How long the run waits for what must happen, before it calls it a failure.
constexpr std::chrono::seconds kPatience{60};

/// What a run found that must not be.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What one process tells of itself. Lives on when the process is killed and started again.
struct Slot
{
    std::atomic<bool> leave{false};           ///< the process is to end
    std::atomic<std::uint64_t> beats{0};      ///< operations that ended as they should
    std::atomic<std::uint64_t> answered{0};   ///< of those, requests that were answered
    std::atomic<std::uint64_t> joined{0};     ///< connections made
    std::atomic<std::uint64_t> last{0};       ///< number of the last record published or received
    std::atomic<std::uint64_t> violations{0}; ///< broken promises
    char firstViolation[200] = {};

    /// Notes a broken promise.
    void violate(const std::string& what);
};

constexpr std::size_t kSlots = 64;

struct Board
{
    std::atomic<std::uint64_t> allowed{0}; ///< up to which number a paced publisher may publish
    std::array<Slot, kSlots> slots;
};

/// A directory with the board, the socket and the logs; the processes started end with it.
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

    /// Starts this program in a role of its own. \return its slot
    std::size_t start(const std::string& role, const std::vector<std::string>& arguments = {});
    /// Starts the process of a slot again.
    void restart(std::size_t index);
    void signal(std::size_t index, int number) const;
    /// Kills the process without a warning and waits for its end.
    void kill(std::size_t index);
    /// Tells a process to end, and waits. \throws Failure when it ends otherwise than well
    void dismiss(std::size_t index);
    /// Dismisses all that are left, those first that were started last.
    void finish();
    pid_t process(std::size_t index) const { return m_members[index].process; }
    const std::string& role(std::size_t index) const { return m_members[index].role; }

    /// \throws Failure when a process has ended by itself or noted a broken promise
    void inspect();

    /// Waits until \p condition holds. \throws Failure with \p what when it does not come to
    template <class Condition>
    void await(const std::string& what, Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!condition()) {
            inspect();
            if (std::chrono::steady_clock::now() > deadline) {
                throw Failure("did not happen within " + std::to_string(kPatience.count()) + " s: " + what);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    /// Waits until the process of a slot has done something more.
    void awaitBeat(std::size_t index);

private:
    struct Member
    {
        std::string role;
        std::vector<std::string> arguments;
        pid_t process;
    };

    pid_t launch(const Member& member, std::size_t index) const;
    std::string lastWords() const;

    std::string m_directory;
    Board* m_board = nullptr;
    std::vector<Member> m_members;
};

/// What a process started by a crew knows.
struct RoleContext
{
    Board& board;
    Slot& slot;
    std::string socketPath;
    std::vector<std::string> arguments;

    bool over() const { return slot.leave; }
};

/// Runs the role that the arguments name, if they name one.
/// \return whether they did; then \p result is the exit code
bool runRole(int argc, char** argv, int& result);

/// What the system tells of a process.
struct Footprint
{
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::size_t residentKiB = 0;
};
Footprint footprintOf(pid_t process);

} // namespace Soak
