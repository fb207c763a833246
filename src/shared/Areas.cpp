#include "Areas.h"

namespace orm {

constinit TraceArea areaModule{"Module"};
constinit TraceArea areaString{"string"};
constinit TraceArea areaBinary{"binary"};
constinit TraceArea areaDate{"Date"};
constinit TraceArea areaMemoryProperties{"mprops"};
constinit TraceArea areaPersistentProperties{"pprops"};
constinit TraceArea areaThread{"thread"};
constinit TraceArea areaClassManager{"ClsMgr"};
constinit TraceArea areaClassManagerLibrary{"ClsMgr_LibraryIntl"};
constinit TraceArea areaClassManagerMask{"ClsMgr_MaskIntl"};
constinit TraceArea areaClassManagerDirectory{"ClsMgr_DirectoryIntl"};
constinit TraceArea areaClassManagerImpl{"ClsMgr_ClassManagerImpl"};
constinit TraceArea areaFont{"font"};
constinit TraceArea areaBitmap{"bitmap"};
constinit TraceArea areaDllMain{"dllmain"};

}  // namespace orm
