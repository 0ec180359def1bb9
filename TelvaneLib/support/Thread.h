#pragma once

// Threads whose creation can fail with a number instead of an exception.

#include <cstddef>
#include <pthread.h>

namespace Telvane
{

/// Starts \p entry(\p argument) on a joinable thread. Signals that processes handle are blocked on it, so
/// that the application's handlers run on the application's own threads and never break off a receive.
/// \param stackSize in bytes; 0 for the process's default
/// \return 0, or the positive error number of pthread_create()
int startThread(pthread_t& thread, void* (*entry)(void*), void* argument, std::size_t stackSize);

} // namespace Telvane
