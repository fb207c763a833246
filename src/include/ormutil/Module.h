// The module itself, and the registry of traced objects, with which a client finds the objects that it leaks.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Export.h>
#include <ormutil/Trace.h>

extern "C" {

// Does nothing and returns 0: a client that loads the library late calls it to choose the moment.
ORMUTIL_API int DelayLoadMe();

// Enters an object: when the library is unloaded and the object is still registered, a line on `area` (which
// must live until then) at the warning level tells its class and address. Asserts that it is not registered
// yet.
ORMUTIL_API void TraceObjectRegister(const void* pObject, orm::TraceArea* pArea,
                                     const orm::BaseString<orm::MbcsTraits>& className);

// Removes an object. Asserts that it is registered.
ORMUTIL_API void TraceObjectUnregister(const void* pObject);

// Tells where a registered object keeps its reference count, so that the leak line can show it; `pCounter`
// must stay readable while the object is registered. Nothing happens for an object that is not.
ORMUTIL_API void TraceObjectRefCounter(const void* pObject, const LONG* pCounter);

}  // The three may be called by any thread; they throw nothing.
