// Hints about memory that is about to be used. Not part of win32.h: they change no result, only what the
// first touch of each page costs, which is an exception of the processor, and on a virtual machine that can
// take as long as ten system calls.
#pragma once

#include "win32/types.h"

extern "C" {

// Has the pages of a range that the caller may write, and is about to write, made in one call. Nothing
// happens where the system cannot do it. Any thread.
ORM_PLATFORM_API void OrmPopulatePages(void* start, SIZE_T bytes) noexcept;

// The same for about as much memory as the next allocations will take, 96 KiB at most: no more than the
// allocator keeps when nobody uses it. The last error stays. Any thread.
ORM_PLATFORM_API void OrmPopulateHeap(SIZE_T bytes) noexcept;
}
