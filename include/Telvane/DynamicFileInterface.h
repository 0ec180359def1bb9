/// \file
/// A named pipe whose content is generated for each reader.
#pragma once

#include <Telvane/detail/Export.h>

#include <functional>
#include <memory>
#include <string>

namespace Telvane
{

/// A named pipe. Each reader gets what a handler writes at that moment, a newline, and the end of the file,
/// for example with `cat`.
///
/// One listener thread per pipe waits for readers and runs the handler, for one reader after another. If two
/// processes open the pipe at the same time, each gets a part of the bytes. A process that keeps the pipe
/// open for more than a millisecond after the end counts as a new reader.
///
/// The handler
/// - gets an open descriptor greater than 0, writes the content to it, and does not close it;
/// - runs on the listener thread with the handler lock held: it must not call setHandlerFunction(), Open() or
///   Close() of its own pipe;
/// - gets `EPIPE` if the reader closes the pipe early (`SIGPIPE` is ignored for the whole process), and
///   blocks while the reader is slow;
/// - is cancelled (pthread_cancel) by Close() if it blocks for more than 100 ms. The cancellation unwinds the
///   stack as an exception does, so destructors run. It ends the process if the handler is `noexcept`, stops
///   the unwinding in a `catch (...)`, or blocks in a destructor, for example of a stream that is flushed;
/// - must not throw: an exception ends the process. An empty handler throws `std::bad_function_call` for the
///   first reader.
///
/// **Threads**: Call Open() and Close() from one thread at a time. setHandlerFunction() may be called from
/// any thread except the listener.
class TELVANE_EXPORT DynamicFileInterface
{
public:
    /// Creates neither the pipe nor a thread; Open() does.
    /// \param path    path of the pipe
    /// \param handler writes the content; copied
    DynamicFileInterface(const std::string& path, std::function<void(int fd)> handler);
    /// Neither ends the listener nor removes the pipe: call Close() first. Without it, the listener serves
    /// readers with the handler until the process ends.
    virtual ~DynamicFileInterface();
    DynamicFileInterface(const DynamicFileInterface&) = delete;
    DynamicFileInterface& operator=(const DynamicFileInterface&) = delete;

    /// Creates the pipe with mode 0644, less the umask, and starts the listener.
    ///
    /// If the path exists, the listener serves it as it is: it writes a plain file again every millisecond.
    /// If the pipe is open already, its listener is replaced, which also restores a pipe that another process
    /// has removed.
    ///
    /// Prints a line to standard output in any case: "ERROR[", the current `errno`, "]: " and its text. Does
    /// not report a thread that cannot be created: readers then wait forever.
    /// \return 0 if the pipe was created; 1 if not, because the path exists, which is then served, or for
    ///         another reason, and then nothing is served
    int Open();

    /// Ends the listener and removes the file at the path. Does nothing if not open.
    ///
    /// Waits up to 100 ms for a handler that runs, then cancels it: the reader gets what was written until
    /// then. Waits up to 1 s if another pipe has replaced this one at the path.
    /// \return 0; -1 with `errno` set if the file does not exist or cannot be removed; -1 with `ENOENT` if not
    ///         open
    int Close();

    /// Replaces the handler. Waits until a handler that runs has returned.
    /// \throws std::system_error if the handler lock cannot be taken
    void setHandlerFunction(std::function<void(int fd)> handler);

    /// Runs the listener thread. Do not call.
    static void* dynamicFile_listener(void* interface);

private:
    struct TELVANE_LOCAL State;
    std::shared_ptr<State> m_state;
};

} // namespace Telvane
