#pragma once

// Creates threads and returns an error number on failure, where `std::thread` throws.

#include <cstddef>
#include <pthread.h>

namespace Telvane
{

/// Runs \p entry(\p argument) on a new, joinable thread. Signals are blocked on it, except those that a
/// thread causes itself, so that the application's signal handlers run on its own threads and do not
/// interrupt a receive.
/// \param stackSize size in bytes; 0 for the process's default
/// \return 0, or the positive error number of pthread_create()
int startThread(pthread_t& thread, void* (*entry)(void*), void* argument, std::size_t stackSize);

} // namespace Telvane
