// What holds in a child made by fork: the calls of the layer work there, named objects are held by the child
// in its own right, and a named mutex that the forking thread owns stays the parent's.
#pragma once

#include <mutex>

namespace orm::platform {

class KernelObject;
struct ThreadRecord;

// Registers what the layer's kernel does around a fork, unless that has been done. Whoever registers handlers
// of his own and calls the kernel under his locks calls this first: the kernel's locks are then taken after
// his, at a fork as anywhere else. Any thread.
void RegisterForkHandlers() noexcept;

// What a child does about the threads that it does not have; its own one's record is null when it has none.
void ForgetOtherRecords(ThreadRecord* self) noexcept;
// Visits the objects that have handles, and those that are still pinned.
void VisitObjects(void (*visit)(KernelObject& object)) noexcept;

// The locks that are held during a fork, so that no thread of the parent leaves one taken in the child.
std::mutex& DebugOutputLock() noexcept;
std::mutex& ChangeLock() noexcept;
std::mutex& MachineLock() noexcept;
std::mutex& ViewLock() noexcept;
std::mutex& NamedMutexLock() noexcept;
std::mutex& ThreadListLock() noexcept;
std::mutex& HandleLock() noexcept;
std::mutex& TlsLock() noexcept;
std::mutex& ModuleEntriesLock() noexcept;
std::mutex& LoadedModulesLock() noexcept;

}  // namespace orm::platform
