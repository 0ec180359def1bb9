#pragma once

// What tests need of the process around them: a directory of their own, an environment variable for a
// while, a child, and what is written to the standard streams, whichever thread writes it.

#include "helpers/TestFiles.h"
#include "support/FileDescriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

/// Redirects a sanitizer's report; null in programs without a sanitizer.
extern "C" void __sanitizer_set_report_fd(void* descriptor) __attribute__((weak));

namespace Telvane::Testing
{

/// Time-out for events that a test expects. Only a failing test waits this long.
constexpr std::chrono::seconds kTimeout{40};

/// Time for which a test checks that nothing happens. On a busy machine a fault may be missed, but no false
/// one is reported.
constexpr std::chrono::milliseconds kQuietTime{50};

[[noreturn]] inline void throwSystemError(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// Waits until \p condition is true, for conditions without an event.
/// \return false if it does not become true in time
template <class Condition>
bool eventually(Condition condition, std::chrono::seconds timeout = kTimeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Runs \p task in a forked child, which has only the calling thread and is not cleaned up after.
/// The child kills itself: at an exit, a memory checker would report as lost what the threads left behind in
/// the parent were using at the fork.
/// \return whether \p task returned true
template <class Task>
bool holdsInChild(Task task)
{
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throwSystemError("pipe2");
    }
    const FileDescriptor toRead(ends[0]);
    FileDescriptor toWrite(ends[1]);
    const pid_t child = ::fork();
    if (child == 0) {
        const char answer = task() ? 'y' : 'n';
        [[maybe_unused]] const auto written = ::write(toWrite.get(), &answer, 1);
        ::kill(::getpid(), SIGKILL);
    }
    toWrite.reset();
    char answer = 'n';
    const bool told = ::read(toRead.get(), &answer, 1) == 1;
    ::waitpid(child, nullptr, 0);
    return told && answer == 'y';
}

/// Takes over a standard stream of the process, below every buffer and for all threads.
class StreamCapture
{
public:
    explicit StreamCapture(int stream)
        : m_stream(stream), m_original(::dup(stream)), m_text(::memfd_create("capture", MFD_CLOEXEC))
    {
        std::fflush(nullptr);
        if (m_original.get() < 0 || m_text.get() < 0 || ::dup2(m_text.get(), m_stream) < 0) {
            throwSystemError("capturing a stream");
        }
        reportTo(m_original.get());
    }
    StreamCapture(const StreamCapture&) = delete;
    StreamCapture& operator=(const StreamCapture&) = delete;

    /// Gives the stream back; of a failed test, what was captured as well.
    ~StreamCapture()
    {
        std::fflush(nullptr);
        ::dup2(m_original.get(), m_stream);
        reportTo(STDERR_FILENO);
        if (::testing::Test::HasFailure()) {
            const std::string captured = text();
            [[maybe_unused]] const auto written = ::write(m_stream, captured.data(), captured.size());
        }
    }

    /// \return what has been written so far
    std::string text() const
    {
        std::string captured;
        char part[4096];
        ssize_t count = 0;
        while ((count = ::pread(m_text.get(), part, sizeof part, static_cast<off_t>(captured.size()))) > 0) {
            captured.append(part, static_cast<std::size_t>(count));
        }
        return captured;
    }

    /// Waits until \p expected has been written.
    bool comesToHold(const std::string& expected) const
    {
        return eventually([&] { return text().find(expected) != std::string::npos; });
    }

private:
    void reportTo(int descriptor) const
    {
        if (m_stream == STDERR_FILENO && __sanitizer_set_report_fd != nullptr) {
            __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<long>(descriptor)));
        }
    }

    int m_stream;
    FileDescriptor m_original;
    FileDescriptor m_text;
};

/// What an action wrote to the two standard streams.
struct Diagnostics
{
    std::string output;
    std::string error;
};

template <class Action>
Diagnostics diagnosticsOf(Action action)
{
    const StreamCapture output(STDOUT_FILENO);
    const StreamCapture error(STDERR_FILENO);
    action();
    std::fflush(nullptr);
    return {output.text(), error.text()};
}

/// An environment variable with another value for a while.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char* name, const std::string& value) : m_name(name)
    {
        if (const char* const before = std::getenv(name)) {
            m_before = before;
        }
        ::setenv(name, value.c_str(), 1);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment()
    {
        if (m_before) {
            ::setenv(m_name, m_before->c_str(), 1);
        } else {
            ::unsetenv(m_name);
        }
    }

private:
    const char* m_name;
    std::optional<std::string> m_before;
};

/// \return how many descriptors the process has open
inline std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// \return how many threads the process has
inline std::size_t runningThreads()
{
    const std::filesystem::directory_iterator entries("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace Telvane::Testing
