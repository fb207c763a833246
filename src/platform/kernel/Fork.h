// What holds in a child made by fork: the calls of the layer work there, named objects are held by the child
// in its own right, and a named mutex that the forking thread owns stays the parent's.
#pragma once

#include <mutex>

namespace orm::platform {

// Registers what the layer's kernel does around a fork, unless that has been done. Whoever registers handlers
// of his own and calls the kernel under his locks calls this first: the kernel's locks are then taken after
// his, at a fork as anywhere else. Any thread.
void RegisterForkHandlers() noexcept;

// The locks that are held during a fork, so that no thread of the parent leaves one taken in the child.
std::mutex& ChangeLock() noexcept;
std::mutex& MachineLock() noexcept;
std::mutex& ViewLock() noexcept;
std::mutex& NamedMutexLock() noexcept;
std::mutex& ThreadListLock() noexcept;
std::mutex& HandleLock() noexcept;
std::mutex& TlsLock() noexcept;

std::mutex& DebugOutputLock() noexcept;
}  // namespace orm::platform
std::mutex& ModuleEntriesLock() noexcept;
std::mutex& LoadedModulesLock() noexcept;
