// Each process is this program, started again. A process that is killed shares nothing with the others but the board, whose
// counters are atomic and therefore whole at any moment.

#include "ProcessPool.h"

#include "WorkerRoles.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Soak
{

namespace
{

[[noreturn]] void throwSystemError(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

Board* mapBoard(const std::string& path, bool create)
{
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | (create ? O_CREAT | O_EXCL : 0), 0600);
    if (file < 0 || (create && ::ftruncate(file, sizeof(Board)) != 0)) {
        throwSystemError("opening the board");
    }
    void* const memory = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (memory == MAP_FAILED) {
        throwSystemError("mapping the board");
    }
    return create ? new (memory) Board() : static_cast<Board*>(memory);
}

std::string endText(int status)
{
    return WIFSIGNALED(status) ? std::string("was ended by ") + ::strsignal(WTERMSIG(status))
                               : "ended with exit code " + std::to_string(WEXITSTATUS(status));
}

} // namespace

void Slot::reportViolation(const std::string& what)
{
    if (violations.fetch_add(1) == 0) {
        std::strncpy(firstViolation, what.c_str(), sizeof firstViolation - 1);
    }
}

ProcessPool::ProcessPool()
{
    std::string name = (std::filesystem::temp_directory_path() / "telvane-soak-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throwSystemError("making a directory");
    }
    m_directory = name;
    m_board = mapBoard(m_directory + "/board", true);
    m_members.reserve(kSlots);
}

ProcessPool::~ProcessPool()
{
    for (const Member& member : m_members) {
        if (member.process > 0) {
            ::kill(member.process, SIGKILL);
            ::waitpid(member.process, nullptr, 0);
        }
    }
    ::munmap(m_board, sizeof(Board));
    std::error_code ignored;
    std::filesystem::remove_all(m_directory, ignored);
}

std::size_t ProcessPool::start(const std::string& role, const std::vector<std::string>& arguments)
{
    const std::size_t index = m_members.size();
    m_members.push_back({role, arguments, -1});
    m_members[index].process = launch(m_members[index], index);
    return index;
}

void ProcessPool::restart(std::size_t index)
{
    m_members[index].process = launch(m_members[index], index);
}

pid_t ProcessPool::launch(const Member& member, std::size_t index) const
{
    std::vector<std::string> words = {"soak", "role", member.role, m_directory, std::to_string(index)};
    words.insert(words.end(), member.arguments.begin(), member.arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);

    // Lines about relays that were missed are expected in any number: they are no news, but crash reports
    // are.
    const std::string log = m_directory + "/log." + member.role + "." + std::to_string(index);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    pid_t process = -1;
    const int result =
        ::posix_spawn(&process, "/proc/self/exe", &actions, nullptr, pointers.data(), ::environ);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) {
        errno = result;
        throwSystemError("starting a process");
    }
    return process;
}

void ProcessPool::signal(std::size_t index, int number) const
{
    ::kill(m_members[index].process, number);
}

void ProcessPool::kill(std::size_t index)
{
    signal(index, SIGKILL);
    int status = 0;
    ::waitpid(m_members[index].process, &status, 0);
    m_members[index].process = -1;
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
        throw Failure(m_members[index].role + " " + endText(status) + " before it was killed" + logTail());
    }
}

void ProcessPool::stop(std::size_t index)
{
    Member& member = m_members[index];
    slot(index).leave = true;
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (::waitpid(member.process, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw Failure(member.role + " does not end" + logTail());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    member.process = -1;
    if (status != 0) {
        throw Failure(member.role + " " + endText(status) + logTail());
    }
}

void ProcessPool::finish()
{
    for (std::size_t index = m_members.size(); index-- > 0;) {
        if (m_members[index].process > 0) {
            stop(index);
        }
    }
    inspect();
}

void ProcessPool::inspect()
{
    for (std::size_t i = 0; i < m_members.size(); ++i) {
        Member& member = m_members[i];
        int status = 0;
        if (member.process > 0 && ::waitpid(member.process, &status, WNOHANG) > 0) {
            member.process = -1;
            throw Failure(member.role + " " + endText(status) + " by itself" + logTail());
        }
        if (slot(i).violations != 0) {
            throw Failure(member.role + ", " + std::to_string(slot(i).violations) +
                          " times, first: " + slot(i).firstViolation);
        }
    }
}

void ProcessPool::awaitOperation(std::size_t index)
{
    const std::uint64_t before = slot(index).operations;
    await(role(index) + " carries on", [&] { return slot(index).operations > before; });
}

std::string ProcessPool::logTail() const
{
    std::string all;
    for (const auto& file : std::filesystem::directory_iterator(m_directory)) {
        if (file.path().filename().string().rfind("log.", 0) == 0 && file.file_size() > 0) {
            std::ifstream stream(file.path());
            std::string line;
            int lines = 0;
            while (lines < 60 && std::getline(stream, line)) {
                if (line.rfind("RELAY ERROR", 0) != 0) {
                    all += "\n  " + file.path().filename().string() + ": " + line;
                    ++lines;
                }
            }
        }
    }
    return all;
}

bool runRole(int argc, char** argv, int& result)
{
    if (argc < 5 || std::string(argv[1]) != "role") {
        return false;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string directory = argv[3];
    Board& board = *mapBoard(directory + "/board", false);
    Slot& slot = board.slots.at(static_cast<std::size_t>(std::atoi(argv[4])));
    const RoleContext context{board, slot, directory + "/bus", {argv + 5, argv + argc}};
    result = roleNamed(argv[2])(context);
    return true;
}

Footprint footprintOf(pid_t process)
{
    const std::filesystem::path root = "/proc/" + std::to_string(process);
    const auto entries = [](const std::filesystem::path& path) {
        const std::filesystem::directory_iterator all(path);
        return static_cast<std::size_t>(std::distance(begin(all), end(all)));
    };
    Footprint footprint;
    footprint.descriptors = entries(root / "fd");
    footprint.threads = entries(root / "task");
    std::ifstream status(root / "status");
    std::string key;
    while (status >> key && key != "VmRSS:") {
    }
    status >> footprint.residentKiB;
    return footprint;
}

} // namespace Soak
