// The Win32 operations that the layers above call, and no more. On the original platform this header is
// replaced by the system's own; every name here has that system's meaning.
#pragma once

#include "win32/errors.h"
#include "win32/files.h"
#include "win32/gdi.h"
#include "win32/geometry.h"
#include "win32/kernel.h"
#include "win32/modules.h"
#include "win32/nls.h"
#include "win32/registry.h"
#include "win32/resources.h"
#include "win32/system.h"
#include "win32/time.h"
#include "win32/types.h"
#include "win32/user.h"
