// What this system's registry offers beyond the platform's: transactions, a check of the store, and a word
// in memory that tells of changes without a system call. Not part of win32.h: code that is to run on the
// original platform includes this header only where it has a fallback.
#pragma once

#include "win32/registry.h"

extern "C" {

// Begins a transaction of the calling thread on the part of the registry that holds `key` (for a key of the
// local machine: on both its halves, see registry.h; each half is committed in one step; for a user who may
// write the open keys only, on their half, and writing the other one fails with 5). Until the same
// thread ends it, its calls read and write inside the transaction and others see none of it; their writes
// wait. A thread that ends without it aborts it. `expectedBytes` is an estimate of what will be stored; a
// transaction that outgrows it by much fails with 1450 and can only be aborted. 170 when this thread has one
// already, 5 when the part cannot be written.
ORM_PLATFORM_API LSTATUS OrmRegBeginTransaction(HKEY key, uint64_t expectedBytes);
ORM_PLATFORM_API LSTATUS OrmRegCommitTransaction(HKEY key);
ORM_PLATFORM_API LSTATUS OrmRegAbortTransaction(HKEY key);

// Reads the whole store that holds `key` and checks that every record is well-formed and every reference
// leads to a record. 0 when it is sound, 1009 when it is not; `report` (may be null) is called once for each
// fault with a line of UTF-8 text, which is valid during the call.
ORM_PLATFORM_API LSTATUS OrmRegCheckStore(HKEY key, void (*report)(void* context, const char* fault),
                                          void* context);

// A word that differs from its earlier content once any process has committed a change to the part of the
// registry that holds `key`. Never null, valid for the life of the process and over fork. Use: read the
// word, then ask the registry and keep both; ask again only when the word differs from what was kept. Where
// the store does not offer such a word, it is one that every query moves, so that the caller asks each time.
ORM_PLATFORM_API const volatile uint64_t* OrmRegistryChangeWord(HKEY key);
}
