// Checks a store's file before LMDB follows what is written in it. LMDB trusts its file: a page number or an
// offset that leads astray would end the process.
#pragma once

#include <cstdint>
#include <string>

#include "win32/types.h"

namespace orm::platform {

// Whether the two heads of an open data file can be those of a store of this machine: sizes, versions, and
// page numbers within the file. An empty file is a new store. 0 or ERROR_BADDB.
DWORD CheckHead(int file);

// Follows every page that the transaction `txnId` can see, which the caller keeps from being reused. 0;
// ERROR_BADDB, `fault` (may be null) then says what is wrong and where; or ERROR_BUSY when others have
// committed twice since: the caller begins anew with a later transaction. Takes about 0.4 us a page.
DWORD CheckPages(const std::string& path, std::uint64_t txnId, std::string* fault);

}  // namespace orm::platform
