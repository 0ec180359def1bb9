#pragma once

// Readers here are plain readers of a file. What they may see has one subtlety: the listener gives a reader
// one millisecond to notice the end of the file, and a reader that is scheduled later than that is taken for
// the next one. On a loaded machine a text can therefore hold a second content, or the leftovers of one whose
// newline found no reader. The helpers accept these, but nothing torn, and read again until a reader got
// exactly its one content.

#include "helpers/ProcessTestSupport.h"
#include "helpers/ThreadTestSupport.h"

#include <Telvane/DynamicFileInterface.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Telvane::Testing
{

namespace fs = std::filesystem;

using ContentHandler = std::function<void(int fd)>;

inline constexpr std::size_t kMoreThanAPipeHolds = 1 << 20;

inline std::set<pid_t> threadIds()
{
    std::set<pid_t> ids;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/task")) {
        ids.insert(std::stoi(entry.path().filename()));
    }
    return ids;
}

/// A thread that was joined can still be listed for a moment.
inline bool comesDownToThreads(std::size_t count)
{
    return eventually([count] { return runningThreads() <= count; });
}

inline bool writeText(int fd, const std::string& text)
{
    return ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

inline ContentHandler saying(const std::string& text)
{
    return [text](int fd) {
        writeText(fd, text);
    };
}

/// Writes "content 1", "content 2" and so on, each in one piece.
inline ContentHandler counting()
{
    const auto calls = std::make_shared<int>(0);
    return [calls](int fd) {
        writeText(fd, "content " + std::to_string(++*calls));
    };
}

inline std::string readToEnd(int fd)
{
    std::string text;
    std::array<char, 4096> part = {};
    for (ssize_t count = 0; (count = ::read(fd, part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(count));
    }
    return text;
}

/// Does not wait for the end of the file: a reader that takes long for a long content comes too late to see it.
inline std::string readExactly(int fd, std::size_t size)
{
    std::string text(size, '\0');
    std::size_t filled = 0;
    for (ssize_t count = 0; filled < size && (count = ::read(fd, text.data() + filled, size - filled)) > 0;) {
        filled += static_cast<std::size_t>(count);
    }
    text.resize(filled);
    return text;
}

inline std::string readAll(const std::string& path)
{
    const FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_GE(reader.get(), 0) << path;
    return readToEnd(reader.get());
}

/// \return true as soon as a reader got exactly \p text
inline bool comesToRead(const std::string& path, const std::string& text)
{
    return eventually([&] { return readAll(path) == text; });
}

/// \return the length of the whole content of counting() that \p text begins with, else 0
inline std::size_t leadingContent(const std::string& text, int& number)
{
    int length = 0;
    const int found = std::sscanf(text.c_str(), "content %d%n", &number, &length);
    return found == 1 ? static_cast<std::size_t>(length) : 0;
}

/// \return true when \p text is made of whole contents of counting() and newlines
inline bool isUntorn(const std::string& text)
{
    std::size_t at = 0;
    for (std::size_t length = 1; at < text.size() && length != 0; at += length) {
        int number = 0;
        length = text[at] == '\n' ? 1 : leadingContent(text.substr(at), number);
    }
    return at == text.size();
}

/// Reads until a reader gets exactly one content of counting().
/// \return its number
inline int nextContent(const std::string& path)
{
    int number = 0;
    EXPECT_TRUE(eventually([&] {
        const std::string text = readAll(path);
        EXPECT_TRUE(isUntorn(text)) << text;
        const std::size_t length = leadingContent(text, number);
        return length != 0 && text.substr(length) == "\n";
    }));
    return number;
}

/// An event between a handler and its test. Awaiting it is a point of cancellation.
class Signal
{
public:
    Signal()
    {
        std::array<int, 2> ends = {-1, -1};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        m_taking.reset(ends[0]);
        m_giving.reset(ends[1]);
    }

    void give() const { EXPECT_TRUE(writeText(m_giving.get(), "!")); }
    void await() const
    {
        char token = 0;
        EXPECT_EQ(::read(m_taking.get(), &token, 1), 1);
    }

private:
    FileDescriptor m_taking;
    FileDescriptor m_giving;
};

class DynamicFile : public testing::Test
{
protected:
    // A sanitizer's own thread starts with the first of the program's, and is not to be counted.
    DynamicFile()
    {
        pid_t first = 0;
        std::thread([&first] { first = ::gettid(); }).join();
        EXPECT_TRUE(eventually([first] { return threadIds().count(first) == 0; }));
    }

    int openSilently(DynamicFileInterface& file)
    {
        int result = -1;
        m_printed = diagnosticsOf([&] { result = file.Open(); }).output;
        return result;
    }

    /// Opens a file that has no readers yet, and returns when its listener waits for the first.
    void openAndAwaitListener(DynamicFileInterface& file)
    {
        const std::set<pid_t> before = threadIds();
        openSilently(file);
        for (const pid_t id : threadIds()) {
            if (before.count(id) == 0) {
                EXPECT_TRUE(eventually([id] { return isAsleep(id); }));
            }
        }
    }

    TemporaryDirectory m_directory;
    const std::string m_path = m_directory.path("file");
    std::string m_printed;
};

} // namespace Telvane::Testing
