/// \file
/// A file whose content is made afresh for every reader.
#pragma once

#include <Telvane/Export.h>

#include <functional>
#include <memory>
#include <string>

namespace Telvane
{

/// Serves a named pipe: whoever opens it for reading gets what the handler writes at that moment, a newline,
/// and the end of the file. `cat` is all a reader needs.
///
/// One listener thread per pipe waits for readers and runs the handler. Readers are served one after another.
/// Two that open at the same time share the pipe, so that each gets a part of the bytes. A reader that keeps
/// the pipe open for more than a millisecond after its content is taken for a new one.
///
/// The handler
/// - is given an open descriptor greater than 0, writes the content to it, and leaves it open;
/// - runs on the listener thread with the handler lock held: it must not call setHandlerFunction(), Open() or
///   Close() of its own interface;
/// - must expect `EPIPE` when the reader leaves early (`SIGPIPE` is ignored for the whole process), and to
///   block when the reader is slow;
/// - can be cancelled (pthread_cancel) by Close() when it has blocked for more than 100 ms. It is unwound as
///   by an exception, so objects release what they hold. A handler that is `noexcept`, ends the unwinding in
///   a `catch (...)`, or blocks in a destructor (as one that flushes a stream) ends the process then;
/// - ends the process with an exception that it lets out. An empty handler does so with
///   `std::bad_function_call` at the first reader.
///
/// Threading: Open() and Close() belong to one thread at a time; setHandlerFunction() may be called from any
/// thread but the listener.
class TELVANE_EXPORT DynamicFileInterface
{
public:
    /// Keeps copies of both; creates no file and no thread.
    /// \param path    where the pipe is to be; fixed for the life of the object
    /// \param handler writes the content
    DynamicFileInterface(const std::string& path, std::function<void(int fd)> handler);
    /// Neither stops the listener nor removes the pipe: call Close() first. A listener left running goes on
    /// serving, with the handler kept alive, until the process ends.
    virtual ~DynamicFileInterface();
    DynamicFileInterface(const DynamicFileInterface&) = delete;
    DynamicFileInterface& operator=(const DynamicFileInterface&) = delete;

    /// Creates the pipe (mode 0644 less the process's umask) and starts to serve it. What already exists at
    /// the path is served as it is: a plain file is written anew every millisecond. When the pipe is already
    /// open, its listener is replaced, which also brings back a pipe whose file was removed by others.
    ///
    /// Writes one line to standard output at every call, also on success: "ERROR[", the current `errno`,
    /// "]: " and its text.
    ///
    /// A listener that cannot be started for want of resources is not reported: readers then wait in vain.
    /// \return 0 when the pipe was created, 1 when it was not: because the path exists (it is served all the
    ///         same) or for another reason (nothing is served)
    int Open();

    /// Ends the listener and removes whatever is at the path. A handler at work may finish within 100 ms; one
    /// that blocks longer is cancelled, and its reader gets what was written until then. Takes up to a second
    /// when another pipe was put in the place of this one. Harmless when not open.
    /// \return 0; -1 with `errno` when there was nothing to remove or it could not be removed
    int Close();

    /// Replaces the handler. Waits for a handler at work; the next reader is served by the new one.
    /// \throws std::system_error when the handler lock cannot be taken
    void setHandlerFunction(std::function<void(int fd)> handler);

    /// Entry of the listener thread. Not for callers.
    static void* dynamicFile_listener(void* interface);

private:
    struct TELVANE_LOCAL State;
    std::shared_ptr<State> m_state;
};

} // namespace Telvane
