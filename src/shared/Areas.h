// The library's trace areas, one for each source file. The module frame registers them in this order, between
// the other objects of those files.
#pragma once

#include <ormutil/Trace.h>

namespace orm {

extern TraceArea areaModule;                 // "Module"
extern TraceArea areaString;                 // "string"
extern TraceArea areaBinary;                 // "binary"
extern TraceArea areaDate;                   // "Date"
extern TraceArea areaMemoryProperties;       // "mprops"
extern TraceArea areaPersistentProperties;   // "pprops"
extern TraceArea areaThread;                 // "thread"
extern TraceArea areaClassManager;           // "ClsMgr"
extern TraceArea areaClassManagerLibrary;    // "ClsMgr_LibraryIntl"
extern TraceArea areaClassManagerMask;       // "ClsMgr_MaskIntl"
extern TraceArea areaClassManagerDirectory;  // "ClsMgr_DirectoryIntl"
extern TraceArea areaClassManagerImpl;       // "ClsMgr_ClassManagerImpl"
extern TraceArea areaFont;                   // "font"
extern TraceArea areaBitmap;                 // "bitmap"
extern TraceArea areaDllMain;                // "dllmain"

}  // namespace orm
