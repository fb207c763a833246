// How a program talks to the interposer that was preloaded into it. Without it the functions are null.
#pragma once

extern "C" {

// From now on the at-th call of `name` ("open", "mmap", "write", "ftruncate", "dlopen", "pthread_create",
// "malloc", "readdir") fails; 0 makes none fail. Counting begins anew.
[[gnu::weak]] void InterposerArm(const char* name, unsigned at);
// Calls of that name since then.
[[gnu::weak]] unsigned InterposerCount();
// Blocks of memory that are allocated now.
[[gnu::weak]] long InterposerBlocks();
}
