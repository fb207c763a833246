// What the module frame and the thread sources share.
#pragma once

#include <ormutil/Error.h>
#include <ormutil/Thread.h>

namespace orm {

// The slot in which each thread holds a raw pointer to its Thread object, owning one reference.
extern DWORD gTlsIndex;

// The thread module's share of DllMain; its result is DllMain's.
bool ThreadAttachDetach(DWORD reason);

// The platform ends all other threads before a process detaches; where it does not, a thread that still calls
// the library afterwards is held here for the little while that the process has left. Otherwise returns
// whether the calling thread is the one that has detached.
bool HoldAfterDetach();

// The object under which the calling thread registers: its own, also while its slot lets go of it.
Thread* GetRegistrant();

// Lets go of the object that the detaching thread has been given since the detach.
void ReleaseLateThread();

// The error of an interrupted thread.
[[noreturn]] void ThrowInterrupted(const char* text = "The thread was interrupted.");
// A failure that the code does not expect: 0xE7210001 without text.
[[noreturn]] void ThrowGeneralFailure();
// The last error's system layer with 0xE72D0001 and the text on top.
[[noreturn]] void ThrowSystemFailure(const char* text);

}  // namespace orm
